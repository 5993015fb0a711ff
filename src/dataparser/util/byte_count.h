// The byte-count formatter in the file style: decimal units (1 KB = 1000 bytes), as a file
// browser shows sizes. One function, used by every item that shows a size.
#pragma once

#include <cstdint>
#include <string>

namespace dataparser {

// "Zero KB", "1 byte", "532 bytes", "1 KB", "1.5 MB", "12.34 GB", ... A negative (unknown) size
// is shown as one byte.
std::string formattedByteCount(std::int64_t bytes);

}  // namespace dataparser
