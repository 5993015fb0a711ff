// Fetching the whole body of a small remote file in one blocking call, for pictures that a
// record names by address (a chat sticker, say).
//
// Only http and https are followed (redirects included, at most five, and only to those two
// schemes): an address from a backup can never make the library read a local file or talk
// another protocol. The call gives nothing on every failure: another scheme, no answer within
// the time limit, an HTTP status of 400 or above, an empty body, or a body above the size
// limit.
//
// Thread safety: any number of calls may run at once on different threads.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace dataparser {

struct URLDataLimits {
  std::chrono::milliseconds connectTimeout{5000};
  std::chrono::milliseconds totalTimeout{20000};
  std::size_t maxBytes = 16 * 1024 * 1024;
};

// The body at `url`; nothing when it could not be fetched (see above).
std::optional<std::string> dataWithContentsOfURL(std::string_view url,
                                                 const URLDataLimits& limits = {});

}  // namespace dataparser
