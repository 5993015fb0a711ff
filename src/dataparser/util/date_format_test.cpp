#include "dataparser/util/date_format.h"

#include <gtest/gtest.h>

#include <limits>

namespace dataparser {
namespace {

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

}  // namespace
}  // namespace dataparser
