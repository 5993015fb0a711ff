#include "dataparser/util/text.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace dataparser {
namespace {

bool isAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

}  // namespace

std::optional<std::string> foldDiacritics(std::string_view text) {
  if (isAscii(text)) return std::string(text);
  utf8proc_uint8_t* folded = nullptr;
  utf8proc_ssize_t length =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                   static_cast<utf8proc_ssize_t>(text.size()), &folded,
                   static_cast<utf8proc_option_t>(UTF8PROC_COMPOSE | UTF8PROC_STRIPMARK));
  if (length < 0) return std::nullopt;  // not UTF-8, or out of memory
  std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(folded, &std::free);
  return std::string(reinterpret_cast<const char*>(folded), static_cast<std::size_t>(length));
}

}  // namespace dataparser
