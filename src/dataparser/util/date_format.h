// Date texts: the engine's fixed formats, display formats, calendar-system dates and durations.
//
// The engine writes dates as "MM-dd-yyyy HH:mm:ss" in UTC, the default format wherever a format
// argument is empty. Parsing is strict: a text that does not fit the pattern gives no date.
// The codec supports the patterns the library uses: "MM-dd-yyyy HH:mm:ss",
// "yyyy/MM/dd HH:mm:ss", "yyyy/MM/dd HH:mm", "yyyy-MM-dd", "MM - dd - yyyy HH:mm : ss",
// "yyyyMMddHHmmss", "MM-dd", "MM-dd-yyyy"; in UTC, in the local zone, or at a fixed offset.
//
// Operations on a text take the text first; operations on a date take the date first.
// Where no result exists the text operations give "".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "dataparser/util/date.h"

namespace dataparser {

inline constexpr std::string_view kDefaultDateFormat = "MM-dd-yyyy HH:mm:ss";
inline constexpr std::string_view kDisplayDateFormat = "yyyy/MM/dd HH:mm:ss";

// Where a date text is read or written: UTC, the local time zone (its offset at each date, so
// daylight-saving time is followed), or a fixed offset east of UTC.
struct DateZone {
  enum class Kind : std::uint8_t { kUTC, kLocal, kFixed };
  Kind kind = Kind::kUTC;
  int offsetSeconds = 0;  // for kFixed

  static DateZone utc() { return {}; }
  static DateZone local() { return {Kind::kLocal, 0}; }
  static DateZone fixed(int offsetSeconds) { return {Kind::kFixed, offsetSeconds}; }
};

// The local time zone's offset from UTC, in seconds east, at `date`.
int localUTCOffsetSeconds(Date date);

// The codec under every operation below. Pattern fields:
//   yyyy  four-digit year          y, yyy  the year, unpadded   yy  its last two digits
//   MM    month 01-12              M       1-12                 MMM "Jan"   MMMM "January"
//   dd    day 01-31                d       1-31
//   HH    hour 00-23               H       0-23
//   hh    hour 01-12               h       1-12                 a   "AM" / "PM"
//   mm    minute 00-59             m       0-59
//   ss    second 00-59             s       0-59
//   S...  fraction of a second, one digit per letter (SSS milliseconds)
//   EEE   weekday "Mon"            EEEE    "Monday"
// English names; literal characters other than ASCII letters, and quoted literals ('T'; '' is
// a quote, also inside quotes). Two-letter number fields are exactly two digits; one-letter
// fields read one or two. When parsing, a two-digit year is the one within 80 years before and
// 20 after today, names match in any case, the weekday is read but not checked, and an "H"
// field wins over "h"/"a". Fields missing from a pattern read as 1970-01-01 00:00:00. Parsing
// is strict: every character must fit the pattern, the whole text is used and the date must
// exist (no 02-30). An unsupported pattern parses nothing and prints "". Dates use the
// proleptic Gregorian calendar; printing drops what the pattern does not show.
OptionalDate parseDate(std::string_view text, std::string_view pattern, DateZone zone);
std::string printDate(Date date, std::string_view pattern, DateZone zone);

// --- text operations ---
// Parses `text` with `format` (the default when empty) in UTC.
OptionalDate dateWithDateFormatter(std::string_view text, std::string_view format = {});
// Parses with the default format in UTC and prints with `format` (default when empty) in UTC.
std::string stringWithDateFormatter(std::string_view text, std::string_view format);
// stringWithDateFormatter(text, "MM-dd-yyyy HH:mm:ss").
std::string formattedDate(std::string_view text);
// Parses "yyyy-MM-dd" in UTC, prints with `format` at the local zone's UTC offset.
std::string iCloudStringWithDateFormatter(std::string_view text, std::string_view format);
// "MM-dd" for a year below 1605 (no year known), else "MM-dd-yyyy".
std::string formattedDateForContact(std::string_view text);
// Calendar-system dates. The texts are six fields separated by ",".
// Lunar: only for a text that also parses with the default format; then formattedLunarFields.
std::string formattedLunar(std::string_view text);
// Lunar month and day names ("正月初一") from fields 4 (month 1..12) and 5 (day 1..30); "" when
// the text does not have exactly six fields or a value is out of range.
std::string formattedLunarFields(std::string_view text);
// "year-month-day" from fields 3, 4, 5; "month-day" when the year is below 1.
std::string formattedIslamic(std::string_view text);
std::string formattedHebrew(std::string_view text);

// "00:00" below one second, else "%d:%d:%d" of hours, minutes, seconds with no leading zeros.
std::string formattedDurationTime(std::int64_t seconds);

// --- date operations ---
// Prints `date` with `format` (default "yyyy/MM/dd HH:mm:ss" when empty) in UTC.
std::string stringWithDateFormatter(Date date, std::string_view format = {});
// The same in the local time zone.
std::string stringWithLocalDateFormatter(Date date, std::string_view format = {});
// stringWithDateFormatter(date, "yyyy/MM/dd HH:mm").
std::string formattedDate(Date date);
// formattedDate of the date `seconds` after 1970-01-01 UTC.
std::string stringWithTimeIntervalSince1970(double seconds);

}  // namespace dataparser
