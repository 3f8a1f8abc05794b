#include "toml/times.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace rack {

namespace {

struct Unit {
  std::string_view name;
  Nanos time;
};
constexpr Unit kUnits[] = {{"ms", kMillisecond},
                           {"s", kSecond},
                           {"min", 60 * kSecond},
                           {"h", 3600 * kSecond},
                           {"d", 86400 * kSecond}};
constexpr double kLongest = 1e9 * kSecond;

// The number that a text begins with, taken away from it. Nothing but a digit begins one.
std::optional<double> TakeNumber(std::string_view& text) {
  if (text.empty() || text[0] < '0' || text[0] > '9') return std::nullopt;
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

std::optional<Nanos> TimeIn(std::optional<double> number, std::string_view unit) {
  const auto* const row = std::find_if(std::begin(kUnits), std::end(kUnits),
                                       [&](const Unit& candidate) { return candidate.name == unit; });
  if (!number || row == std::end(kUnits)) return std::nullopt;
  const double nanos = *number * static_cast<double>(row->time);
  if (nanos > kLongest) return std::nullopt;
  return std::llround(nanos / kMicrosecond) * kMicrosecond;
}

// "1.5" for 1500 of a thousand.
std::string Decimal(Nanos value, Nanos one) {
  std::string text = std::to_string(value / one);
  if (value % one == 0) return text;
  text += "." + std::to_string(one + value % one).substr(1);
  text.erase(text.find_last_not_of('0') + 1);
  return text;
}

}  // namespace

std::optional<Nanos> FileTime(std::string_view text) {
  const std::optional<double> number = TakeNumber(text);
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  return TimeIn(number, text);
}

std::optional<Nanos> CommandTime(std::string_view text) {
  const std::optional<double> number = TakeNumber(text);
  return TimeIn(number, text.empty() ? "s" : text);
}

std::string TimeText(Nanos time) {
  const Nanos minute = 60 * kSecond;
  if (time != 0 && time % minute == 0) return std::to_string(time / minute) + " min";
  if (time == 0 || time >= kSecond) return Decimal(time, kSecond) + " s";
  return Decimal(time, kMillisecond) + " ms";
}

}  // namespace rack
