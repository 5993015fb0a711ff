#include "dataparser/util/date_format.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <limits>

namespace dataparser {
namespace {

using namespace std::chrono;

Date utc(int y, unsigned m, unsigned d, int hh = 0, int mm = 0, int ss = 0) {
  return Date(sys_days(year(y) / month(m) / day(d)) + hours(hh) + minutes(mm) + seconds(ss));
}

// Points the local zone at `zone` for the life of the object.
class LocalZone {
 public:
  explicit LocalZone(const char* zone) {
    if (const char* old = std::getenv("TZ")) saved_ = old;
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  ~LocalZone() {
    if (saved_.empty()) {
      ::unsetenv("TZ");
    } else {
      ::setenv("TZ", saved_.c_str(), 1);
    }
    ::tzset();
  }

 private:
  std::string saved_;
};

TEST(DateFormatTest, DurationsAreBareHoursMinutesSeconds) {
  const std::pair<std::int64_t, const char*> cases[] = {
      {0, "00:00"},
      {-5, "00:00"},
      {std::numeric_limits<std::int64_t>::min(), "00:00"},
      {1, "0:0:1"},
      {59, "0:0:59"},
      {60, "0:1:0"},
      {3600, "1:0:0"},
      {3723, "1:2:3"},
      {86399, "23:59:59"},
      {360000, "100:0:0"},
      {std::numeric_limits<std::int64_t>::max(), "2562047788015215:30:7"},
  };
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

  const char* rejected[] = {
      "2020-01-02",            // another format
      "01-02-2020 03:04:05 ",  // trailing text
      " 01-02-2020 03:04:05",  // leading text
      "1-02-2020 03:04:05",    // short field
      "01-02-2020 03:04",      // cut short
      "02-30-2020 00:00:00",   // no such day
      "02-29-2023 00:00:00",   // not a leap year
      "13-01-2020 00:00:00",   // no such month
      "00-01-2020 00:00:00",
      "01-01-2020 24:00:00",
      "01-01-2020 00:60:00",
      "01-01-2020 00:00:60",
      "01-01-0000 00:00:00",
      "01-01-2020 0a:00:00",
      "01-01-+020 00:00:00",
      "01\xFF"
      "01-2020 00:00:00",
      "",
  };
  for (const char* text : rejected)
    EXPECT_FALSE(dateWithDateFormatter(text)) << text;
  EXPECT_FALSE(dateWithDateFormatter("01-02-2020 03:04:05", "dd.MMM.yyyy"));  // unsupported
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
  EXPECT_EQ(stringWithDateFormatter(date, "dd MMM"), "");
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

  const std::pair<const char*, const char*> lunar[] = {
      {"0,0,0,0,1,1", "正月初一"},   {"0,0,0,0,12,30", "腊月三十"},
      {"0,0,0,0,11,20", "冬月二十"}, {"0,0,0,0,8,21", "八月廿一"},
      {"0,0,0,0,0,1", ""},           {"0,0,0,0,13,1", ""},
      {"0,0,0,0,1,0", ""},           {"0,0,0,0,1,31", ""},
      {"0,0,0,0,-1,5", ""},          {"0,0,0,0,1", ""},
      {"0,0,0,0,1,1,", ""},
  };
  for (const auto& [text, expected] : lunar)
    EXPECT_EQ(formattedLunarFields(text), expected) << text;
  // The lunar form is only given for a text that is also an engine date, which a six-field
  // text never is.
  EXPECT_EQ(formattedLunar("0,0,0,0,1,1"), "");
  EXPECT_EQ(formattedLunar("01-02-2020 03:04:05"), "");
}

}  // namespace
}  // namespace dataparser
