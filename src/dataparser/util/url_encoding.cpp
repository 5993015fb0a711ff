#include "dataparser/util/url_encoding.h"

namespace dataparser {

std::string urlQueryEncoded(std::string_view url) {
  static constexpr std::string_view kAllowed = "!$&'()*+,-./:;=?@_~";
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(url.size());
  for (char c : url) {
    auto byte = static_cast<unsigned char>(c);
    bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                 (byte >= '0' && byte <= '9') || kAllowed.find(c) != std::string_view::npos;
    if (plain) {
      out.push_back(c);
    } else {
      out.push_back('%');
      out.push_back(kHex[byte >> 4]);
      out.push_back(kHex[byte & 0xF]);
    }
  }
  return out;
}

}  // namespace dataparser
