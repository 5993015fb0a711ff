#include "dataparser/util/date_format.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <optional>
#include <utility>
#include <vector>

#include "dataparser/util/json.h"

namespace dataparser {
namespace {

using std::chrono::days;
using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::sys_seconds;

// Pattern fields. Numbers print with at least `width` digits and parse with `width` to
// `maxDigits` digits (a fixed width when the two agree).
enum class Field : std::uint8_t {
  kLiteral,
  kYear,       // y, yyy, yyyy...
  kShortYear,  // yy: the last two digits
  kMonth,      // M, MM
  kMonthName,  // MMM "Jan", MMMM "January"
  kDay,        // d, dd
  kHour,       // H, HH (0-23)
  kHour12,     // h, hh (1-12)
  kMinute,     // m, mm
  kSecond,     // s, ss
  kFraction,   // S... (the first digits of the fraction of a second)
  kAmPm,       // a: "AM" or "PM"
  kWeekday,    // EEE "Mon", EEEE "Monday" (printed; skipped when parsing)
};

// The values a pattern reads or writes.
struct DateFields {
  int year = 1970;
  int month = 1;
  int day = 1;
  int hour = 0;
  int hour12 = -1;  // from h when no H was read
  int pm = -1;      // from a
  int minute = 0;
  int second = 0;
  int microseconds = 0;
  int weekday = 0;  // 0 Sunday, printing only
};

struct Token {
  Field field = Field::kLiteral;
  std::uint8_t width = 0;      // numbers: least digits printed; names: 3 short, 4 long
  std::uint8_t maxDigits = 0;  // numbers: most digits read
  std::string literal;         // for kLiteral
  // Fixed-width numbers that only store their value (the engine's "MM", "yyyy"...): where.
  int DateFields::*slot = nullptr;
};

constexpr std::array<std::string_view, 12> kMonthNames = {
    "January", "February", "March",     "April",   "May",      "June",
    "July",    "August",   "September", "October", "November", "December",
};
constexpr std::array<std::string_view, 7> kWeekdayNames = {
    "Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday",
};

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

// The index of the name at the start of `text` (long names tried before short ones), with its
// length; nothing when none fits.
template <std::size_t N>
std::optional<std::pair<int, std::size_t>> matchName(std::string_view text,
                                                     const std::array<std::string_view, N>& names,
                                                     bool longForm) {
  for (std::size_t i = 0; i < N; ++i) {
    const std::string_view name = longForm ? names[i] : names[i].substr(0, 3);
    if (equalsIgnoringCase(text.substr(0, name.size()), name)) {
      return std::pair{static_cast<int>(i), name.size()};
    }
  }
  return std::nullopt;
}

// A two-digit year means the year of that ending that lies within 80 years before and 20 years
// after today.
int expandShortYear(int shortYear) {
  const auto today =
      std::chrono::year_month_day(std::chrono::floor<days>(std::chrono::system_clock::now()));
  const int start = static_cast<int>(today.year()) - 80;
  int year = start - start % 100 + shortYear;
  if (year < start) year += 100;
  return year;
}

// One compiled date pattern. Immutable after construction.
class DateCodec {
 public:
  explicit DateCodec(std::string_view pattern) : pattern_(pattern) { valid_ = compile(pattern); }

  std::string_view pattern() const { return pattern_; }

  OptionalDate parse(std::string_view text, DateZone zone) const {
    if (!valid_) return std::nullopt;
    DateFields values;
    std::size_t position = 0;
    for (const Token& token : tokens_) {
      if (token.field == Field::kLiteral) {
        if (text.substr(position, token.literal.size()) != token.literal) return std::nullopt;
        position += token.literal.size();
        continue;
      }
      if (token.slot != nullptr) {
        const std::size_t width = token.width;
        if (text.size() - position < width) return std::nullopt;
        int value = 0;
        for (std::size_t i = 0; i < width; ++i) {
          const char c = text[position + i];
          if (c < '0' || c > '9') return std::nullopt;
          value = value * 10 + (c - '0');
        }
        values.*token.slot = value;
        position += width;
        continue;
      }
      const std::string_view rest = text.substr(position);
      switch (token.field) {
        case Field::kMonthName: {
          auto found = matchName(rest, kMonthNames, token.width > 3);
          if (!found) return std::nullopt;
          values.month = found->first + 1;
          position += found->second;
          continue;
        }
        case Field::kWeekday: {
          auto found = matchName(rest, kWeekdayNames, token.width > 3);
          if (!found) return std::nullopt;
          position += found->second;
          continue;
        }
        case Field::kAmPm: {
          if (rest.size() < 2 || (rest[1] != 'M' && rest[1] != 'm')) return std::nullopt;
          if (rest[0] == 'A' || rest[0] == 'a') {
            values.pm = 0;
          } else if (rest[0] == 'P' || rest[0] == 'p') {
            values.pm = 1;
          } else {
            return std::nullopt;
          }
          position += 2;
          continue;
        }
        default:
          break;
      }
      std::size_t count = 0;
      int value = 0;
      int scale = 1;
      while (count < token.maxDigits && count < rest.size() && rest[count] >= '0' &&
             rest[count] <= '9') {
        if (count < 6) {  // a fraction keeps microseconds; its further digits are read only
          value = value * 10 + (rest[count] - '0');
          scale *= 10;
        }
        ++count;
      }
      if (count < token.width) return std::nullopt;
      position += count;
      switch (token.field) {
        case Field::kYear:
          values.year = value;
          break;
        case Field::kShortYear:
          values.year = expandShortYear(value);
          break;
        case Field::kMonth:
          values.month = value;
          break;
        case Field::kDay:
          values.day = value;
          break;
        case Field::kHour:
          values.hour = value;
          break;
        case Field::kHour12:
          values.hour12 = value;
          break;
        case Field::kMinute:
          values.minute = value;
          break;
        case Field::kSecond:
          values.second = value;
          break;
        case Field::kFraction:
          values.microseconds = value * (1'000'000 / scale);
          break;
        default:
          break;
      }
    }
    if (position != text.size()) return std::nullopt;
    if (values.hour12 >= 0 && !hasHour24_) {  // H wins over h
      if (values.hour12 < 1 || values.hour12 > 12) return std::nullopt;
      values.hour = values.hour12 % 12 + (values.pm == 1 ? 12 : 0);
    }
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
    DateFields values;
    values.year = year > 0 ? year : 1 - year;  // years before 1 count back as the era's do
    values.month = static_cast<int>(static_cast<unsigned>(ymd.month()));
    values.day = static_cast<int>(static_cast<unsigned>(ymd.day()));
    values.hour = static_cast<int>(time.hours().count());
    values.minute = static_cast<int>(time.minutes().count());
    values.second = static_cast<int>(time.seconds().count());
    if (needsFraction_) values.microseconds = static_cast<int>((date - utc).count());
    if (needsWeekday_) values.weekday = static_cast<int>(std::chrono::weekday(day).c_encoding());
    std::string out(printedSize_, '\0');  // the most this pattern can print
    char* cursor = out.data();
    for (const Token& token : tokens_) {
      if (token.slot != nullptr) {
        cursor = writePadded(cursor, values.*token.slot, token.width);
      } else if (token.field == Field::kLiteral) {
        cursor = copyText(cursor, token.literal);
      } else {
        cursor = printToken(cursor, token, values);
      }
    }
    out.resize(static_cast<std::size_t>(cursor - out.data()));
    return out;
  }

 private:
  static char* copyText(char* out, std::string_view text) {
    return std::copy(text.begin(), text.end(), out);
  }

  static char* printToken(char* out, const Token& token, const DateFields& values) {
    switch (token.field) {
      case Field::kLiteral:
        return copyText(out, token.literal);
      case Field::kYear:
        return writePadded(out, values.year, token.width);
      case Field::kShortYear:
        return writePadded(out, values.year % 100, 2);
      case Field::kMonth:
        return writePadded(out, values.month, token.width);
      case Field::kMonthName: {
        const std::string_view name = kMonthNames[static_cast<std::size_t>(values.month - 1)];
        return copyText(out, token.width > 3 ? name : name.substr(0, 3));
      }
      case Field::kDay:
        return writePadded(out, values.day, token.width);
      case Field::kHour:
        return writePadded(out, values.hour, token.width);
      case Field::kHour12:
        return writePadded(out, values.hour % 12 == 0 ? 12 : values.hour % 12, token.width);
      case Field::kMinute:
        return writePadded(out, values.minute, token.width);
      case Field::kSecond:
        return writePadded(out, values.second, token.width);
      case Field::kFraction: {
        // The microseconds' digits from the left; letters past the sixth print 0.
        int divisor = 100'000;
        for (std::size_t i = 0; i < token.width; ++i, divisor /= 10)
          *out++ = divisor > 0 ? static_cast<char>('0' + values.microseconds / divisor % 10) : '0';
        return out;
      }
      case Field::kAmPm:
        return copyText(out, values.hour < 12 ? "AM" : "PM");
      case Field::kWeekday: {
        const std::string_view name = kWeekdayNames[static_cast<std::size_t>(values.weekday)];
        return copyText(out, token.width > 3 ? name : name.substr(0, 3));
      }
    }
    return out;
  }

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
        // A quoted literal runs to the next lone quote; '' inside it is one quote too.
        std::size_t j = i + 1;
        std::string literal;
        for (;; ++j) {
          if (j >= pattern.size()) return false;
          if (pattern[j] != '\'') {
            literal.push_back(pattern[j]);
          } else if (j + 1 < pattern.size() && pattern[j + 1] == '\'') {
            literal.push_back('\'');
            ++j;
          } else {
            break;
          }
        }
        appendLiteral(literal);
        i = j + 1;
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
      std::optional<Token> token = tokenOf(c, run);
      if (!token) return false;
      printedSize_ += printedWidth(*token);
      needsFraction_ = needsFraction_ || token->field == Field::kFraction;
      needsWeekday_ = needsWeekday_ || token->field == Field::kWeekday;
      hasHour24_ = hasHour24_ || token->field == Field::kHour;
      if (token->width == token->maxDigits) token->slot = slotOf(token->field);
      tokens_.push_back(std::move(*token));
      i += run;
    }
    return true;
  }

  static bool isAsciiLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

  // The field of a run of one letter; nothing for a letter or length the codec does not know.
  static std::optional<Token> tokenOf(char letter, std::size_t run) {
    auto number = [run](Field field, std::size_t most) -> std::optional<Token> {
      // A two-letter field is fixed at two digits; a single letter reads one or two.
      const auto width = static_cast<std::uint8_t>(run);
      const auto maxDigits = static_cast<std::uint8_t>(run == 2 ? 2 : most);
      return Token{field, width, maxDigits, {}};
    };
    if (run > 9) return std::nullopt;
    switch (letter) {
      case 'y':
        if (run == 2) return Token{Field::kShortYear, 2, 2, {}};
        // "yyyy" reads exactly four digits; "y" and "yyy" read one or more.
        return Token{Field::kYear,
                     static_cast<std::uint8_t>(run),
                     static_cast<std::uint8_t>(run == 4 ? 4 : std::max<std::size_t>(run, 5)),
                     {}};
      case 'M':
        if (run > 4) return std::nullopt;
        if (run >= 3) return Token{Field::kMonthName, static_cast<std::uint8_t>(run), 0, {}};
        return number(Field::kMonth, 2);
      case 'd':
        return run <= 2 ? number(Field::kDay, 2) : std::nullopt;
      case 'H':
        return run <= 2 ? number(Field::kHour, 2) : std::nullopt;
      case 'h':
        return run <= 2 ? number(Field::kHour12, 2) : std::nullopt;
      case 'm':
        return run <= 2 ? number(Field::kMinute, 2) : std::nullopt;
      case 's':
        return run <= 2 ? number(Field::kSecond, 2) : std::nullopt;
      case 'S':
        return Token{
            Field::kFraction, static_cast<std::uint8_t>(run), static_cast<std::uint8_t>(run), {}};
      case 'a':
        return run == 1 ? std::optional(Token{Field::kAmPm, 2, 0, {}}) : std::nullopt;
      case 'E':
        return run <= 4
                   ? std::optional(Token{Field::kWeekday, static_cast<std::uint8_t>(run), 0, {}})
                   : std::nullopt;
      default:
        return std::nullopt;
    }
  }

  // Where a field that only stores its value goes; nullptr for the others.
  static int DateFields::*slotOf(Field field) {
    switch (field) {
      case Field::kYear:
        return &DateFields::year;
      case Field::kMonth:
        return &DateFields::month;
      case Field::kDay:
        return &DateFields::day;
      case Field::kHour:
        return &DateFields::hour;
      case Field::kMinute:
        return &DateFields::minute;
      case Field::kSecond:
        return &DateFields::second;
      default:
        return nullptr;
    }
  }

  // The most characters a token prints.
  static std::size_t printedWidth(const Token& token) {
    switch (token.field) {
      case Field::kYear:
        return std::max<std::size_t>(token.width, 5);  // years up to 32767
      case Field::kMonthName:
      case Field::kWeekday:
        return 9;  // "September", "Wednesday"
      case Field::kLiteral:
      case Field::kFraction:
      case Field::kAmPm:
        return token.width;
      default:
        return std::max(token.width, token.maxDigits);
    }
  }

  void appendLiteral(std::string_view text) {
    if (tokens_.empty() || tokens_.back().field != Field::kLiteral) tokens_.push_back({});
    tokens_.back().literal += text;
    printedSize_ += text.size();
  }

  // Writes `value` (0..999999) with at least `width` digits; returns the end.
  static char* writePadded(char* out, int value, int width) {
    // The widths of nearly every pattern ("MM", "dd", "HH", "yyyy"), without a loop.
    if (width == 2 && value < 100) {
      out[0] = static_cast<char>('0' + value / 10);
      out[1] = static_cast<char>('0' + value % 10);
      return out + 2;
    }
    if (width == 4 && value < 10000) {
      out[0] = static_cast<char>('0' + value / 1000);
      out[1] = static_cast<char>('0' + value / 100 % 10);
      out[2] = static_cast<char>('0' + value / 10 % 10);
      out[3] = static_cast<char>('0' + value % 10);
      return out + 4;
    }
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

  static OptionalDate toDate(const DateFields& values, DateZone zone) {
    const std::chrono::year_month_day ymd{std::chrono::year(values.year),
                                          std::chrono::month(static_cast<unsigned>(values.month)),
                                          std::chrono::day(static_cast<unsigned>(values.day))};
    if (values.year < 1 || values.year > 32767 || !ymd.ok() || values.hour > 23 ||
        values.minute > 59 || values.second > 59) {
      return std::nullopt;
    }
    const sys_seconds wall =
        sys_days(ymd) + seconds(values.hour * 3600 + values.minute * 60 + values.second);
    sys_seconds utc = wall - seconds(offsetAt(wall, zone));
    if (zone.kind == DateZone::Kind::kLocal) {
      // The offset guessed at the wall-clock time may differ from the one at the instant itself
      // around a daylight-saving change; one correction settles it.
      utc = wall - seconds(offsetAt(utc, zone));
    }
    return Date(utc) + std::chrono::microseconds(values.microseconds);
  }

  std::string pattern_;
  std::vector<Token> tokens_;
  std::size_t printedSize_ = 0;
  bool valid_ = false;
  bool needsFraction_ = false;
  bool needsWeekday_ = false;
  bool hasHour24_ = false;
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
