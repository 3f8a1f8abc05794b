#include "numbers.h"

#include <cfloat>
#include <cmath>
#include <cstdlib>

long long ToWideNumber(const char* text) {
  return std::strtoll(text, nullptr, 10);
}

float ToFloat(const char* text) {
  const double value = std::strtod(text, nullptr);
  if (value > static_cast<double>(FLT_MAX)) return HUGE_VALF;
  if (value < -static_cast<double>(FLT_MAX)) return -HUGE_VALF;
  return static_cast<float>(value);
}
