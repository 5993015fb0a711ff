#include "dataparser/util/byte_count.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace dataparser {
namespace {

TEST(ByteCountTest, DecimalUnitsInTheFileStyle) {
  const std::pair<std::int64_t, const char*> cases[] = {
      {0, "Zero KB"},
      {-1, "1 byte"},  // unknown size: one byte
      {std::numeric_limits<std::int64_t>::min(), "1 byte"},
      {1, "1 byte"},
      {2, "2 bytes"},
      {999, "999 bytes"},
      {1000, "1 KB"},
      {1024, "1 KB"},
      {1499, "1 KB"},
      {1500, "2 KB"},
      {999'499, "999 KB"},
      {999'500, "1 MB"},  // never "1000 KB"
      {1'000'000, "1 MB"},
      {1'250'000, "1.3 MB"},
      {1'049'999, "1 MB"},
      {12'345'678, "12.3 MB"},
      {1'000'000'000, "1 GB"},
      {1'250'000'000, "1.25 GB"},
      {1'050'000'000, "1.05 GB"},
      {12'340'000'000, "12.34 GB"},
      {999'999'999'999, "1 TB"},
      {std::numeric_limits<std::int64_t>::max(), "9.22 EB"},
  };
  for (const auto& [bytes, text] : cases)
    EXPECT_EQ(formattedByteCount(bytes), text) << bytes;
}

}  // namespace
}  // namespace dataparser
