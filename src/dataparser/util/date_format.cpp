#include "dataparser/util/date_format.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <vector>

#include "dataparser/util/json.h"

namespace dataparser {
namespace {

using std::chrono::days;
using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::sys_seconds;

enum class Field : std::uint8_t { kLiteral, kYear, kMonth, kDay, kHour, kMinute, kSecond };
constexpr std::size_t kFieldCount = 7;

struct Token {
  Field field = Field::kLiteral;
  std::string literal;  // for kLiteral
};

int widthOf(Field field) {
  return field == Field::kYear ? 4 : 2;
}

// One compiled date pattern. Immutable after construction.
class DateCodec {
 public:
  explicit DateCodec(std::string_view pattern) : pattern_(pattern) { valid_ = compile(pattern); }

  std::string_view pattern() const { return pattern_; }

  OptionalDate parse(std::string_view text, DateZone zone) const {
    if (!valid_) return std::nullopt;
    std::array<int, kFieldCount> values = {0, 1970, 1, 1, 0, 0, 0};
    std::size_t position = 0;
    for (const Token& token : tokens_) {
      if (token.field == Field::kLiteral) {
        if (text.substr(position, token.literal.size()) != token.literal) return std::nullopt;
        position += token.literal.size();
        continue;
      }
      const auto width = static_cast<std::size_t>(widthOf(token.field));
      if (text.size() - position < width) return std::nullopt;
      int value = 0;
      for (std::size_t i = 0; i < width; ++i) {
        const char c = text[position + i];
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + (c - '0');
      }
      values[static_cast<std::size_t>(token.field)] = value;
      position += width;
    }
    if (position != text.size()) return std::nullopt;
    return toDate(values, zone);
  }

  std::string print(Date date, DateZone zone) const {
    if (!valid_) return {};
    const sys_seconds utc = std::chrono::floor<seconds>(date);
    // The calendar types cover years up to 32767; farther dates have no text.
    constexpr std::int64_t kLimit = 900'000'000'000;
    if (utc.time_since_epoch().count() > kLimit || utc.time_since_epoch().count() < -kLimit) {
      return {};
    }
    const sys_seconds local = utc + seconds(offsetAt(utc, zone));
    const sys_days day = std::chrono::floor<days>(local);
    const std::chrono::year_month_day ymd(day);
    if (!ymd.ok()) return {};
    const std::chrono::hh_mm_ss<seconds> time(local - day);
    const int year = static_cast<int>(ymd.year());
    std::array<int, kFieldCount> values = {
        0,
        year > 0 ? year : 1 - year,  // years before 1 count back as the era's years do
        static_cast<int>(static_cast<unsigned>(ymd.month())),
        static_cast<int>(static_cast<unsigned>(ymd.day())),
        static_cast<int>(time.hours().count()),
        static_cast<int>(time.minutes().count()),
        static_cast<int>(time.seconds().count()),
    };
    std::string out(printedSize_, '\0');  // the most this pattern can print
    char* cursor = out.data();
    for (const Token& token : tokens_) {
      if (token.field == Field::kLiteral) {
        cursor = std::copy(token.literal.begin(), token.literal.end(), cursor);
      } else {
        cursor = writePadded(cursor, values[static_cast<std::size_t>(token.field)],
                             widthOf(token.field));
      }
    }
    out.resize(static_cast<std::size_t>(cursor - out.data()));
    return out;
  }

 private:
  // Pattern letters come in runs ("yyyy"); everything other than an ASCII letter is literal.
  bool compile(std::string_view pattern) {
    for (std::size_t i = 0; i < pattern.size();) {
      const char c = pattern[i];
      if (c == '\'') {
        if (i + 1 < pattern.size() && pattern[i + 1] == '\'') {  // '' is one quote
          appendLiteral("'");
          i += 2;
          continue;
        }
        const std::size_t end = pattern.find('\'', i + 1);
        if (end == std::string_view::npos) return false;
        appendLiteral(pattern.substr(i + 1, end - i - 1));
        i = end + 1;
        continue;
      }
      if (!isAsciiLetter(c)) {
        appendLiteral(pattern.substr(i, 1));
        ++i;
        continue;
      }
      std::size_t run = 1;
      while (i + run < pattern.size() && pattern[i + run] == c)
        ++run;
      const Field field = fieldOf(c, run);
      if (field == Field::kLiteral) return false;
      tokens_.push_back({field, {}});
      printedSize_ += run + (field == Field::kYear ? 1 : 0);  // years past 9999
      i += run;
    }
    return true;
  }

  static bool isAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

  static Field fieldOf(char letter, std::size_t run) {
    if (letter == 'y' && run == 4) return Field::kYear;
    if (run != 2) return Field::kLiteral;
    switch (letter) {
      case 'M':
        return Field::kMonth;
      case 'd':
        return Field::kDay;
      case 'H':
        return Field::kHour;
      case 'm':
        return Field::kMinute;
      case 's':
        return Field::kSecond;
      default:
        return Field::kLiteral;
    }
  }

  void appendLiteral(std::string_view text) {
    if (tokens_.empty() || tokens_.back().field != Field::kLiteral) tokens_.push_back({});
    tokens_.back().literal += text;
    printedSize_ += text.size();
  }

  // Writes `value` (0..99999) with at least `width` digits; returns the end.
  static char* writePadded(char* out, int value, int width) {
    char digits[12];
    int count = 0;
    do {
      digits[count++] = static_cast<char>('0' + value % 10);
      value /= 10;
    } while (value > 0);
    for (int pad = width - count; pad > 0; --pad)
      *out++ = '0';
    while (count > 0)
      *out++ = digits[--count];
    return out;
  }

  static int offsetAt(sys_seconds utc, DateZone zone) {
    switch (zone.kind) {
      case DateZone::Kind::kUTC:
        return 0;
      case DateZone::Kind::kFixed:
        return zone.offsetSeconds;
      case DateZone::Kind::kLocal:
        return localUTCOffsetSeconds(Date(utc));
    }
    return 0;
  }

  static OptionalDate toDate(const std::array<int, kFieldCount>& values, DateZone zone) {
    const int year = values[static_cast<std::size_t>(Field::kYear)];
    const std::chrono::year_month_day ymd{
        std::chrono::year(year),
        std::chrono::month(static_cast<unsigned>(values[static_cast<std::size_t>(Field::kMonth)])),
        std::chrono::day(static_cast<unsigned>(values[static_cast<std::size_t>(Field::kDay)]))};
    const int hour = values[static_cast<std::size_t>(Field::kHour)];
    const int minute = values[static_cast<std::size_t>(Field::kMinute)];
    const int second = values[static_cast<std::size_t>(Field::kSecond)];
    if (year < 1 || !ymd.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
    const sys_seconds wall = sys_days(ymd) + seconds(hour * 3600 + minute * 60 + second);
    sys_seconds utc = wall - seconds(offsetAt(wall, zone));
    if (zone.kind == DateZone::Kind::kLocal) {
      // The offset guessed at the wall-clock time may differ from the one at the instant itself
      // around a daylight-saving change; one correction settles it.
      utc = wall - seconds(offsetAt(utc, zone));
    }
    return Date(utc);
  }

  std::string pattern_;
  std::vector<Token> tokens_;
  std::size_t printedSize_ = 0;
  bool valid_ = false;
};

// Runs `operation` with the codec for `pattern`: the library's own patterns are compiled once,
// any other pattern on the spot.
template <class Operation>
auto withCodec(std::string_view pattern, Operation&& operation) {
  static const std::array<DateCodec, 8> kKnown = {
      DateCodec("MM-dd-yyyy HH:mm:ss"),
      DateCodec("yyyy/MM/dd HH:mm:ss"),
      DateCodec("yyyy/MM/dd HH:mm"),
      DateCodec("yyyy-MM-dd"),
      DateCodec("MM - dd - yyyy HH:mm : ss"),
      DateCodec("yyyyMMddHHmmss"),
      DateCodec("MM-dd"),
      DateCodec("MM-dd-yyyy"),
  };
  for (const DateCodec& codec : kKnown) {
    if (codec.pattern() == pattern) return operation(codec);
  }
  const DateCodec codec(pattern);
  return operation(codec);
}

std::string_view orDefault(std::string_view format, std::string_view fallback) {
  return format.empty() ? fallback : format;
}

// The fields of a text split at "," (empty fields count).
std::vector<std::string_view> commaFields(std::string_view text) {
  std::vector<std::string_view> fields;
  std::size_t start = 0;
  for (std::size_t comma = text.find(','); comma != std::string_view::npos;
       comma = text.find(',', start)) {
    fields.push_back(text.substr(start, comma - start));
    start = comma + 1;
  }
  fields.push_back(text.substr(start));
  return fields;
}

// Year, month and day from fields 3, 4, 5 of a six-field calendar text; "year-month-day", or
// "month-day" when the year is unknown (below 1).
std::string formattedCalendarFields(std::string_view text) {
  const std::vector<std::string_view> fields = commaFields(text);
  if (fields.size() != 6) return {};
  const std::int64_t year = json::integerFromText(fields[3]);
  const std::int64_t month = json::integerFromText(fields[4]);
  const std::int64_t day = json::integerFromText(fields[5]);
  if (year >= 1) return fmt::format("{}-{}-{}", year, month, day);
  return fmt::format("{}-{}", month, day);
}

constexpr std::array<std::string_view, 12> kLunarMonths = {
    "正月", "二月", "三月", "四月", "五月", "六月", "七月", "八月", "九月", "十月", "冬月", "腊月",
};
constexpr std::array<std::string_view, 30> kLunarDays = {
    "初一", "初二", "初三", "初四", "初五", "初六", "初七", "初八", "初九", "初十",
    "十一", "十二", "十三", "十四", "十五", "十六", "十七", "十八", "十九", "二十",
    "廿一", "廿二", "廿三", "廿四", "廿五", "廿六", "廿七", "廿八", "廿九", "三十",
};

}  // namespace

int localUTCOffsetSeconds(Date date) {
  const std::time_t time =
      static_cast<std::time_t>(std::chrono::floor<seconds>(date).time_since_epoch().count());
  std::tm local{};
  if (::localtime_r(&time, &local) == nullptr) return 0;
  return static_cast<int>(local.tm_gmtoff);
}

OptionalDate parseDate(std::string_view text, std::string_view pattern, DateZone zone) {
  return withCodec(pattern, [&](const DateCodec& codec) { return codec.parse(text, zone); });
}

std::string printDate(Date date, std::string_view pattern, DateZone zone) {
  return withCodec(pattern, [&](const DateCodec& codec) { return codec.print(date, zone); });
}

// --- text operations ---

OptionalDate dateWithDateFormatter(std::string_view text, std::string_view format) {
  return parseDate(text, orDefault(format, kDefaultDateFormat), DateZone::utc());
}

std::string stringWithDateFormatter(std::string_view text, std::string_view format) {
  OptionalDate date = parseDate(text, kDefaultDateFormat, DateZone::utc());
  if (!date) return {};
  return printDate(*date, orDefault(format, kDefaultDateFormat), DateZone::utc());
}

std::string formattedDate(std::string_view text) {
  return stringWithDateFormatter(text, "MM-dd-yyyy HH:mm:ss");
}

std::string iCloudStringWithDateFormatter(std::string_view text, std::string_view format) {
  OptionalDate date = parseDate(text, "yyyy-MM-dd", DateZone::utc());
  if (!date) return {};
  // The zone is fixed at the offset the local zone has now, not at the date.
  const int offset = localUTCOffsetSeconds(
      std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now()));
  return printDate(*date, orDefault(format, kDefaultDateFormat), DateZone::fixed(offset));
}

std::string formattedDateForContact(std::string_view text) {
  OptionalDate date = parseDate(text, kDefaultDateFormat, DateZone::utc());
  if (!date) return {};
  const std::chrono::year_month_day ymd(std::chrono::floor<days>(*date));
  // Contacts store a birthday without a year in the year 1604.
  const bool hasYear = static_cast<int>(ymd.year()) >= 1605;
  return printDate(*date, hasYear ? "MM-dd-yyyy" : "MM-dd", DateZone::utc());
}

std::string formattedLunar(std::string_view text) {
  if (!parseDate(text, kDefaultDateFormat, DateZone::utc())) return {};
  return formattedLunarFields(text);
}

std::string formattedLunarFields(std::string_view text) {
  const std::vector<std::string_view> fields = commaFields(text);
  if (fields.size() != 6) return {};
  const std::int64_t month = json::integerFromText(fields[4]);
  const std::int64_t day = json::integerFromText(fields[5]);
  if (month < 1 || month > 12 || day < 1 || day > 30) return {};
  std::string out(kLunarMonths[static_cast<std::size_t>(month - 1)]);
  out += kLunarDays[static_cast<std::size_t>(day - 1)];
  return out;
}

std::string formattedIslamic(std::string_view text) {
  return formattedCalendarFields(text);
}

std::string formattedHebrew(std::string_view text) {
  return formattedCalendarFields(text);
}

std::string formattedDurationTime(std::int64_t seconds) {
  if (seconds < 1) return "00:00";
  // The bare form is the product's: 3723 seconds show as "1:2:3", never "01:02:03".
  return fmt::format("{}:{}:{}", seconds / 3600, (seconds % 3600) / 60, seconds % 60);
}

// --- date operations ---

std::string stringWithDateFormatter(Date date, std::string_view format) {
  return printDate(date, orDefault(format, kDisplayDateFormat), DateZone::utc());
}

std::string stringWithLocalDateFormatter(Date date, std::string_view format) {
  return printDate(date, orDefault(format, kDisplayDateFormat), DateZone::local());
}

std::string formattedDate(Date date) {
  return stringWithDateFormatter(date, "yyyy/MM/dd HH:mm");
}

std::string stringWithTimeIntervalSince1970(double seconds) {
  OptionalDate date = dateWithSecondsSince1970(seconds);
  return date ? formattedDate(*date) : std::string();
}

}  // namespace dataparser
