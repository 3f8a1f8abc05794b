#include "numbers.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdlib>

// Every program line has some: the C library's way, with its bases and languages, takes three times as long.
long long ToWideNumber(const char* text) {
  while (*text == ' ' || (*text >= '\t' && *text <= '\r')) ++text;
  const bool isNegative = *text == '-';
  if (isNegative || *text == '+') ++text;
  long long value = 0;  // below zero, where there is room for one number more
  for (; *text >= '0' && *text <= '9'; ++text) {
    if (__builtin_mul_overflow(value, 10, &value) || __builtin_sub_overflow(value, *text - '0', &value)) {
      return isNegative ? LLONG_MIN : LLONG_MAX;
    }
  }
  if (isNegative) return value;
  return value == LLONG_MIN ? LLONG_MAX : -value;
}

float ToFloat(const char* text) {
  const double value = std::strtod(text, nullptr);
  if (value > static_cast<double>(FLT_MAX)) return HUGE_VALF;
  if (value < -static_cast<double>(FLT_MAX)) return -HUGE_VALF;
  return static_cast<float>(value);
}
