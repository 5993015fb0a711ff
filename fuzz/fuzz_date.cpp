// Fuzzes the date codec and the date-text helpers built on it.
//
// The input picks a pattern (one of the library's own, or arbitrary bytes), a zone and a text or
// a date. Checked on every input:
//   - a text that parses prints back to the same text with the same pattern and fixed zone;
//   - a date between the years 1 and 9999 prints to a text that parses back to that date, to
//     the second, with each of the library's patterns that has every field;
//   - every helper takes any text, any number of seconds and any date without failing.
// The local zone is a POSIX rule with daylight-saving time, so the local paths cross gaps and
// overlaps.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdlib.h>
#include <time.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "dataparser/util/date_format.h"
#include "fuzz/harness.h"

namespace {

using dataparser::Date;
using dataparser::DateZone;
using dataparser::OptionalDate;
using dataparser::fuzz::check;

constexpr std::array<std::string_view, 8> kPatterns = {
    "MM-dd-yyyy HH:mm:ss",
    "yyyy/MM/dd HH:mm:ss",
    "yyyy/MM/dd HH:mm",
    "yyyy-MM-dd",
    "MM - dd - yyyy HH:mm : ss",
    "yyyyMMddHHmmss",
    "MM-dd",
    "MM-dd-yyyy",
};
// The patterns above that hold every field, so that printing loses nothing but fractions.
constexpr std::array<std::string_view, 4> kCompletePatterns = {
    "MM-dd-yyyy HH:mm:ss", "yyyy/MM/dd HH:mm:ss", "MM - dd - yyyy HH:mm : ss", "yyyyMMddHHmmss"};

// Fixed offsets run to a day either way, like real ones (and a little past them).
constexpr int kMaxOffset = 26 * 3600;

DateZone pickZone(FuzzedDataProvider& input, bool allowLocal) {
  switch (input.ConsumeIntegralInRange(0, allowLocal ? 2 : 1)) {
    case 0:
      return DateZone::utc();
    case 1:
      return DateZone::fixed(input.ConsumeIntegralInRange(-kMaxOffset, kMaxOffset));
    default:
      return DateZone::local();
  }
}

std::string pickPattern(FuzzedDataProvider& input) {
  if (input.ConsumeBool()) return input.ConsumeRandomLengthString(32);
  return std::string(input.PickValueInArray(kPatterns));
}

int yearOf(Date date) {
  return static_cast<int>(
      std::chrono::year_month_day(std::chrono::floor<std::chrono::days>(date)).year());
}

void textRoundTrip(FuzzedDataProvider& input) {
  const std::string pattern = pickPattern(input);
  const DateZone zone = pickZone(input, /*allowLocal=*/false);
  const std::string text = input.ConsumeRemainingBytesAsString();
  const OptionalDate date = dataparser::parseDate(text, pattern, zone);
  if (!date) return;
  check(dataparser::printDate(*date, pattern, zone) == text, "a parsed text prints back");
  // Local parsing never fails where UTC parsing succeeded, whatever the gap it falls in.
  (void)dataparser::parseDate(text, pattern, DateZone::local());
}

void dateRoundTrip(FuzzedDataProvider& input) {
  const DateZone zone = pickZone(input, /*allowLocal=*/false);
  const Date date{std::chrono::microseconds(input.ConsumeIntegral<std::int64_t>())};
  const std::string pattern = pickPattern(input);
  (void)dataparser::printDate(date, pattern, zone);
  (void)dataparser::printDate(date, pattern, DateZone::local());
  (void)dataparser::stringWithDateFormatter(date);
  (void)dataparser::stringWithLocalDateFormatter(date);
  (void)dataparser::formattedDate(date);

  // Years 1..9999 in the zone the text is written in have a four-digit text.
  const auto count = date.time_since_epoch().count();
  constexpr std::int64_t kSafe = std::int64_t{20'000} * 366 * 86400 * 1'000'000;
  if (count > kSafe || count < -kSafe) return;
  const Date shifted =
      date + std::chrono::seconds(zone.kind == DateZone::Kind::kFixed ? zone.offsetSeconds : 0);
  const int year = yearOf(shifted);
  if (year < 1 || year > 9999) return;
  for (std::string_view complete : kCompletePatterns) {
    const std::string text = dataparser::printDate(date, complete, zone);
    const OptionalDate back = dataparser::parseDate(text, complete, zone);
    check(back.has_value(), "a printed date parses");
    check(*back == std::chrono::floor<std::chrono::seconds>(date), "a printed date round-trips");
  }
}

void helpers(FuzzedDataProvider& input) {
  const std::int64_t seconds = input.ConsumeIntegral<std::int64_t>();
  const double interval = input.ConsumeFloatingPoint<double>();
  const std::string format = pickPattern(input);
  const std::string text = input.ConsumeRemainingBytesAsString();

  const OptionalDate date = dataparser::dateWithDateFormatter(text);
  const std::string printed = dataparser::stringWithDateFormatter(text, format);
  if (!date) check(printed.empty(), "an unreadable text prints as nothing");
  const std::string again = dataparser::formattedDate(text);
  check(again.empty() || again == text, "formattedDate(text) prints a readable text back");
  (void)dataparser::dateWithDateFormatter(text, format);
  (void)dataparser::iCloudStringWithDateFormatter(text, format);
  (void)dataparser::formattedDateForContact(text);
  (void)dataparser::formattedLunar(text);
  (void)dataparser::formattedLunarFields(text);
  (void)dataparser::formattedIslamic(text);
  (void)dataparser::formattedHebrew(text);
  check(!dataparser::formattedDurationTime(seconds).empty(), "a duration always has a text");
  (void)dataparser::stringWithTimeIntervalSince1970(interval);
  (void)dataparser::dateWithSecondsSince2001(interval);
  (void)dataparser::localUTCOffsetSeconds(
      Date{std::chrono::microseconds(seconds)});  // any instant, however far
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  dataparser::fuzz::FuzzEnvironment::instance();
  // Central European rules: a spring gap and an autumn overlap every year.
  ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  ::tzset();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  switch (input.ConsumeIntegralInRange(0, 2)) {
    case 0:
      textRoundTrip(input);
      break;
    case 1:
      dateRoundTrip(input);
      break;
    default:
      helpers(input);
      break;
  }
  return 0;
}
