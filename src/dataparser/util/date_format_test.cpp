#include "dataparser/util/date_format.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/test_support.h"

namespace dataparser {
namespace {

using namespace std::chrono;

Date utc(int y, unsigned m, unsigned d, int hh = 0, int mm = 0, int ss = 0) {
  return Date(sys_days(year(y) / month(m) / day(d)) + hours(hh) + minutes(mm) + seconds(ss));
}

using testing::LocalZone;

TEST(DateFormatTest, DurationsAreBareHoursMinutesSeconds) {
  constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
  constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
  // clang-format off
  const std::pair<std::int64_t, const char*> cases[] = {
      {0, "00:00"}, {-5, "00:00"}, {kMin, "00:00"}, {1, "0:0:1"}, {59, "0:0:59"}, {60, "0:1:0"},
      {3600, "1:0:0"}, {3723, "1:2:3"}, {86399, "23:59:59"}, {360000, "100:0:0"},
      {kMax, "2562047788015215:30:7"}};
  // clang-format on
  for (const auto& [seconds, text] : cases) {
    EXPECT_EQ(formattedDurationTime(seconds), text) << seconds;
  }
}

TEST(DateFormatTest, EngineTextsParseStrictly) {
  EXPECT_EQ(dateWithDateFormatter("01-02-2020 03:04:05"), utc(2020, 1, 2, 3, 4, 5));
  EXPECT_EQ(dateWithDateFormatter("01-02-2020 03:04:05", ""), utc(2020, 1, 2, 3, 4, 5));
  EXPECT_EQ(dateWithDateFormatter("2020-01-02", "yyyy-MM-dd"), utc(2020, 1, 2));
  EXPECT_EQ(dateWithDateFormatter("02 - 29 - 2024 23:59 : 58", "MM - dd - yyyy HH:mm : ss"),
            utc(2024, 2, 29, 23, 59, 58));
  EXPECT_EQ(dateWithDateFormatter("20240102030405", "yyyyMMddHHmmss"), utc(2024, 1, 2, 3, 4, 5));
  EXPECT_EQ(dateWithDateFormatter("2024/01/02 03:04", "yyyy/MM/dd HH:mm"), utc(2024, 1, 2, 3, 4));
  EXPECT_EQ(dateWithDateFormatter("2024T01", "yyyy'T'MM"), utc(2024, 1, 1));

  const char* rejected[] = {"2020-01-02",            // another format
                            "01-02-2020 03:04:05 ",  // trailing text
                            " 01-02-2020 03:04:05",  // leading text
                            "1-02-2020 03:04:05",    // short field
                            "01-02-2020 03:04",      // cut short
                            "02-30-2020 00:00:00",   // no such day
                            "02-29-2023 00:00:00",   // not a leap year
                                                     // clang-format off
      "13-01-2020 00:00:00", "00-01-2020 00:00:00", "01-01-2020 24:00:00", "01-01-2020 00:60:00",
      "01-01-2020 00:00:60", "01-01-0000 00:00:00", "01-01-2020 0a:00:00", "01-01-+020 00:00:00",
      "01\xFF" "01-2020 00:00:00", ""};
  // clang-format on
  for (const char* text : rejected)
    EXPECT_FALSE(dateWithDateFormatter(text)) << text;
  EXPECT_FALSE(dateWithDateFormatter("01-02-2020 03:04:05", "dd.QQQ.yyyy"));  // unsupported
  EXPECT_FALSE(dateWithDateFormatter("x", "'x"));                             // open quote
}

TEST(DateFormatTest, TextConversionsBetweenFormats) {
  EXPECT_EQ(stringWithDateFormatter("12-31-1999 23:59:59", "yyyy/MM/dd HH:mm:ss"),
            "1999/12/31 23:59:59");
  EXPECT_EQ(stringWithDateFormatter("12-31-1999 23:59:59", ""), "12-31-1999 23:59:59");
  EXPECT_EQ(stringWithDateFormatter("1999-12-31", "yyyy/MM/dd"), "");
  EXPECT_EQ(formattedDate("07-04-2021 08:09:10"), "07-04-2021 08:09:10");
  EXPECT_EQ(formattedDate("bad"), "");

  EXPECT_EQ(formattedDateForContact("05-06-1604 00:00:00"), "05-06");  // birthday without a year
  EXPECT_EQ(formattedDateForContact("12-31-1604 23:59:59"), "12-31");
  EXPECT_EQ(formattedDateForContact("01-01-1605 00:00:00"), "01-01-1605");
  EXPECT_EQ(formattedDateForContact("05-06-1990 00:00:00"), "05-06-1990");
  EXPECT_EQ(formattedDateForContact("0001-01-01"), "");
}

TEST(DateFormatTest, ICloudDatesPrintAtTheLocalOffset) {
  {
    LocalZone zone("UTC");
    EXPECT_EQ(iCloudStringWithDateFormatter("2020-03-04", "MM-dd-yyyy HH:mm:ss"),
              "03-04-2020 00:00:00");
    EXPECT_EQ(iCloudStringWithDateFormatter("2020-03-04", ""), "03-04-2020 00:00:00");
    EXPECT_EQ(iCloudStringWithDateFormatter("03-04-2020 00:00:00", ""), "");
  }
  {
    LocalZone zone("JST-9");  // nine hours east, no daylight saving time
    EXPECT_EQ(iCloudStringWithDateFormatter("2020-03-04", "MM-dd-yyyy HH:mm:ss"),
              "03-04-2020 09:00:00");
  }
}

TEST(DateFormatTest, DatesPrintInUtcAndInTheLocalZone) {
  const Date date = utc(2021, 7, 4, 8, 9, 10) + milliseconds(999);
  EXPECT_EQ(stringWithDateFormatter(date), "2021/07/04 08:09:10");  // fractions are dropped
  EXPECT_EQ(stringWithDateFormatter(date, ""), "2021/07/04 08:09:10");
  EXPECT_EQ(stringWithDateFormatter(date, "yyyyMMddHHmmss"), "20210704080910");
  EXPECT_EQ(formattedDate(date), "2021/07/04 08:09");
  EXPECT_EQ(stringWithDateFormatter(utc(1969, 12, 31, 23, 59, 59) + milliseconds(500)),
            "1969/12/31 23:59:59");
  EXPECT_EQ(stringWithDateFormatter(date, "dd QQQ"), "");  // a field the codec does not know
  // Years past 9999 print in full, however often the pattern repeats them.
  EXPECT_EQ(stringWithDateFormatter(utc(12345, 6, 7), "yyyy|yyyy|yyyy"), "12345|12345|12345");
  EXPECT_EQ(stringWithDateFormatter(utc(987, 6, 7), "yyyy-MM-dd"), "0987-06-07");

  {
    LocalZone zone("EST5EDT,M3.2.0,M11.1.0");  // New York rules
    EXPECT_EQ(stringWithLocalDateFormatter(utc(2021, 7, 4, 8, 9, 10)), "2021/07/04 04:09:10");
    EXPECT_EQ(stringWithLocalDateFormatter(utc(2021, 1, 4, 8, 9, 10)), "2021/01/04 03:09:10");
    EXPECT_EQ(localUTCOffsetSeconds(utc(2021, 7, 4)), -4 * 3600);
    // Local parsing follows daylight saving time on both sides of the change.
    EXPECT_EQ(parseDate("2021/03/14 01:30:00", kDisplayDateFormat, DateZone::local()),
              utc(2021, 3, 14, 6, 30));
    EXPECT_EQ(parseDate("2021/03/14 03:30:00", kDisplayDateFormat, DateZone::local()),
              utc(2021, 3, 14, 7, 30));
  }
  EXPECT_EQ(printDate(utc(2021, 1, 1), "yyyy-MM-dd HH:mm", DateZone::fixed(-90 * 60)),
            "2020-12-31 22:30");
  EXPECT_EQ(parseDate("2021-01-01", "yyyy-MM-dd", DateZone::fixed(3600)), utc(2020, 12, 31, 23));
}

// Every field other parsers print: one date in the afternoon, one just after midnight.
TEST(DateFormatTest, EveryFieldPrints) {
  const Date afternoon = utc(2021, 7, 4, 15, 9, 5) + milliseconds(42);
  const Date midnight = utc(2009, 1, 31, 0, 5, 0) + microseconds(999999);
  // clang-format off
  const struct { const char* pattern; const char* afternoon; const char* midnight; } cases[] = {
      {"yy", "21", "09"},                {"y", "2021", "2009"},
      {"M/d", "7/4", "1/31"},            {"MM/dd", "07/04", "01/31"},
      {"MMM", "Jul", "Jan"},             {"MMMM", "July", "January"},
      {"H:m:s", "15:9:5", "0:5:0"},      {"HH:mm:ss", "15:09:05", "00:05:00"},
      {"h a", "3 PM", "12 AM"},          {"hh:mm a", "03:09 PM", "12:05 AM"},
      {"ss.SSS", "05.042", "00.999"},    {"S", "0", "9"},
      {"EEE", "Sun", "Sat"},             {"EEEE", "Sunday", "Saturday"},
      {"EEE, d MMM yyyy", "Sun, 4 Jul 2021", "Sat, 31 Jan 2009"},
      {"yyyy-MM-dd'T'HH:mm:ss", "2021-07-04T15:09:05", "2009-01-31T00:05:00"},
      {"'at' h 'o''clock'", "at 3 o'clock", "at 12 o'clock"},
      {"MMMMM", "", ""},                 {"EEEEE", "", ""}, {"hhh", "", ""}, {"aa", "", ""},
  };
  // clang-format on
  for (const auto& test : cases) {
    EXPECT_EQ(stringWithDateFormatter(afternoon, test.pattern), test.afternoon) << test.pattern;
    EXPECT_EQ(stringWithDateFormatter(midnight, test.pattern), test.midnight) << test.pattern;
  }
}

TEST(DateFormatTest, EveryFieldParses) {
  // clang-format off
  const struct { const char* text; const char* pattern; OptionalDate expected; } cases[] = {
      {"7/4/21 3:09 PM", "M/d/yy h:mm a", utc(2021, 7, 4, 15, 9)},
      {"12/31/99 12:00 AM", "M/d/yy h:mm a", utc(1999, 12, 31, 0, 0)},
      {"1/1/05 12:30 pm", "M/d/yy h:mm a", utc(2005, 1, 1, 12, 30)},
      {"Sun, 04 Jul 2021 15:09:05", "EEE, dd MMM yyyy HH:mm:ss", utc(2021, 7, 4, 15, 9, 5)},
      {"Sunday, July 4, 2021", "EEEE, MMMM d, yyyy", utc(2021, 7, 4)},
      {"4 jul 2021", "d MMM y", utc(2021, 7, 4)},
      {"2021-07-04 15:09:05.042", "yyyy-MM-dd HH:mm:ss.SSS", utc(2021, 7, 4, 15, 9, 5) + milliseconds(42)},
      {"2021-07-04T15:09:05", "yyyy-MM-dd'T'HH:mm:ss", utc(2021, 7, 4, 15, 9, 5)},
      {"15 PM", "H a", utc(1970, 1, 1, 15)},  // a 24-hour field ignores the marker
      {"13 PM", "h a", std::nullopt},         // no 13 o'clock on a 12-hour clock
      {"0 AM", "h a", std::nullopt},
      {"7/4/2021", "M/d/yy", std::nullopt},   // yy reads two digits only
      {"Jux 4", "MMM d", std::nullopt},
      {"Sux", "EEE", std::nullopt},
      {"7/", "M/d", std::nullopt},
      {"3 XM", "h a", std::nullopt},
  };
  // clang-format on
  for (const auto& test : cases) {
    EXPECT_EQ(dateWithDateFormatter(test.text, test.pattern), test.expected)
        << test.text << " / " << test.pattern;
  }
}

TEST(DateFormatTest, SecondsSince1970) {
  EXPECT_EQ(stringWithTimeIntervalSince1970(0), "1970/01/01 00:00");
  EXPECT_EQ(stringWithTimeIntervalSince1970(1609459199.9), "2020/12/31 23:59");
  EXPECT_EQ(stringWithTimeIntervalSince1970(-60), "1969/12/31 23:59");
  EXPECT_EQ(stringWithTimeIntervalSince1970(std::numeric_limits<double>::quiet_NaN()), "");
  EXPECT_EQ(stringWithTimeIntervalSince1970(1e300), "");
  EXPECT_EQ(stringWithTimeIntervalSince1970(8.9e12), "");  // beyond the calendar
  // Round trip through the engine format.
  const Date date = utc(2000, 2, 29, 12);
  EXPECT_EQ(dateWithDateFormatter(stringWithDateFormatter(date, kDefaultDateFormat)), date);
}

TEST(DateFormatTest, CalendarSystemDates) {
  EXPECT_EQ(formattedIslamic("a,b,c,1445,9,1"), "1445-9-1");
  EXPECT_EQ(formattedHebrew("0,0,0,5784,13,29"), "5784-13-29");
  EXPECT_EQ(formattedHebrew("0,0,0,0,7,3"), "7-3");  // no year
  EXPECT_EQ(formattedHebrew("0,0,0,-3,7,3"), "7-3");
  EXPECT_EQ(formattedIslamic(",,, 12x,,"), "12-0-0");
  EXPECT_EQ(formattedIslamic("1,2,3,4,5"), "");
  EXPECT_EQ(formattedIslamic("1,2,3,4,5,6,7"), "");
  EXPECT_EQ(formattedIslamic(""), "");
  EXPECT_EQ(formattedIslamic("0,0,0,99999999999999999999999,1,1"), "9223372036854775807-1-1");

  // clang-format off
  const std::pair<const char*, const char*> lunar[] = {
      {"0,0,0,0,1,1", "正月初一"}, {"0,0,0,0,12,30", "腊月三十"}, {"0,0,0,0,11,20", "冬月二十"},
      {"0,0,0,0,8,21", "八月廿一"}, {"0,0,0,0,0,1", ""}, {"0,0,0,0,13,1", ""}, {"0,0,0,0,1,0", ""},
      {"0,0,0,0,1,31", ""}, {"0,0,0,0,-1,5", ""}, {"0,0,0,0,1", ""}, {"0,0,0,0,1,1,", ""}};
  // clang-format on
  for (const auto& [text, expected] : lunar)
    EXPECT_EQ(formattedLunarFields(text), expected) << text;
  // The lunar form is only given for a text that is also an engine date, which a six-field
  // text never is.
  EXPECT_EQ(formattedLunar("0,0,0,0,1,1"), "");
  EXPECT_EQ(formattedLunar("01-02-2020 03:04:05"), "");
}

}  // namespace
}  // namespace dataparser
