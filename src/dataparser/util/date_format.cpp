#include "dataparser/util/date_format.h"

#include <fmt/core.h>

namespace dataparser {

std::string formattedDurationTime(std::int64_t seconds) {
  if (seconds < 1) return "00:00";
  // The bare form is the product's: 3723 seconds show as "1:2:3", never "01:02:03".
  return fmt::format("{}:{}:{}", seconds / 3600, (seconds % 3600) / 60, seconds % 60);
}

}  // namespace dataparser
