// Small readers shared by the calendar, reminder and note items: lazily read fields, and for the
// records of a downloaded iCloud account, dates given by their parts and the local names of
// downloaded files.
//
// Pure functions over JSON handles and texts; thread-safe; nothing touches the network.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "dataparser/util/json.h"

namespace dataparser::personal {

// The cached value, read with `read()` on first use. A setter that stores into `cache` wins.
template <class T, class Read>
const T& lazy(std::optional<T>& cache, Read&& read) {
  if (!cache) cache.emplace(read());
  return *cache;
}

// A date split into its parts, as the service writes it.
struct DateParts {
  std::int64_t year = 0;
  std::int64_t month = 0;
  std::int64_t day = 0;
  std::int64_t hour = 0;
  std::int64_t minute = 0;
  std::int64_t second = 0;
};

// Reads a date given by its parts: either a list of numbers whose elements 1 to 5 are year,
// month, day, hour and minute (element 0 is a packed day number that is not used), or an
// object with "year", "month", "day", "hour", "minute" and "second". Missing parts read as 0.
DateParts datePartsOf(json::View value);

// True when `value` holds a date in one of the two forms above.
bool hasDateParts(json::View value);

// "{md5(uuid)}{extension}": the name a downloaded file gets inside the download folder, so that
// a second run finds it again. `extension` is written as given (".png", ".jpg" or "").
std::string downloadedFileName(std::string_view uuid, std::string_view extension);

// The path of the downloaded file `name` inside `folder` when a regular file is there, else "".
std::string existingDownloadedFile(std::string_view folder, std::string_view name);

}  // namespace dataparser::personal
