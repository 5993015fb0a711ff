// Percent-encoding of a whole URL for a request: everything but ASCII letters, digits and
// "!$&'()*+,-./:;=?@_~" (the characters allowed in a URL query) is escaped, so an address that
// is already valid passes unchanged and spaces or non-ASCII bytes become %XX.
#pragma once

#include <string>
#include <string_view>

namespace dataparser {

std::string urlQueryEncoded(std::string_view url);

}  // namespace dataparser
