#include "dataparser/util/byte_count.h"

#include <fmt/core.h>

#include <array>

namespace dataparser {
namespace {

struct Unit {
  const char* name;
  std::uint64_t bytes;
  int fractionDigits;  // KB whole, MB with one digit, GB and above with two
};

constexpr std::array<Unit, 6> kUnits = {{
    {"KB", 1'000ULL, 0},
    {"MB", 1'000'000ULL, 1},
    {"GB", 1'000'000'000ULL, 2},
    {"TB", 1'000'000'000'000ULL, 2},
    {"PB", 1'000'000'000'000'000ULL, 2},
    {"EB", 1'000'000'000'000'000'000ULL, 2},
}};

constexpr std::uint64_t pow10(int digits) {
  std::uint64_t value = 1;
  while (digits-- > 0)
    value *= 10;
  return value;
}

}  // namespace

std::string formattedByteCount(std::int64_t bytes) {
  if (bytes == 0) return "Zero KB";
  if (bytes < 0) bytes = 1;  // an unknown size shows as one byte
  if (bytes == 1) return "1 byte";
  if (bytes < 1000) return fmt::format("{} bytes", bytes);
  const auto count = static_cast<std::uint64_t>(bytes);
  for (std::size_t i = 0; i < kUnits.size(); ++i) {
    const Unit& unit = kUnits[i];
    // Rounded half up in integers: no binary-fraction surprises ("1.25 GB" stays 1.25).
    const std::uint64_t scale = pow10(unit.fractionDigits);
    const std::uint64_t step = unit.bytes / scale;
    const std::uint64_t scaled = count / step + (count % step >= step - step / 2 ? 1 : 0);
    const std::uint64_t whole = scaled / scale;
    // A value that rounds up to 1000 is shown in the next unit ("1 MB", not "1000 KB").
    if (whole >= 1000 && i + 1 < kUnits.size()) continue;
    std::uint64_t fraction = scaled % scale;
    int digits = unit.fractionDigits;
    while (digits > 0 && fraction % 10 == 0) {
      fraction /= 10;
      --digits;
    }
    if (digits == 0) return fmt::format("{} {}", whole, unit.name);
    return fmt::format("{}.{:0{}} {}", whole, fraction, digits, unit.name);
  }
  return {};  // not reached: the last unit always returns
}

}  // namespace dataparser
