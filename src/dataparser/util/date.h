// The library's date value: a point in time with microsecond resolution on the system clock.
// Where a date may be missing, fields are std::optional<Date>.
#pragma once

#include <chrono>
#include <cmath>
#include <optional>

namespace dataparser {

using Date = std::chrono::sys_time<std::chrono::microseconds>;
using OptionalDate = std::optional<Date>;

// Seconds between 1970-01-01 and 2001-01-01, both UTC.
inline constexpr double kSecondsFrom1970To2001 = 978307200.0;

inline double secondsSince1970(Date date) {
  return std::chrono::duration<double>(date.time_since_epoch()).count();
}

// Nothing for values that are not finite or do not fit the clock.
inline OptionalDate dateWithSecondsSince1970(double seconds) {
  constexpr double kLimit = 9.0e12;  // about 285,000 years: far inside the clock's range
  if (!std::isfinite(seconds) || seconds > kLimit || seconds < -kLimit) return std::nullopt;
  return Date(std::chrono::microseconds(std::llround(seconds * 1e6)));
}

inline OptionalDate dateWithSecondsSince2001(double seconds) {
  return dateWithSecondsSince1970(seconds + kSecondsFrom1970To2001);
}

}  // namespace dataparser
