// Text helpers shared by every item and parser: MD5, URL escaping, HTML to plain text, regular
// expression matching, JSON text reading, diacritic folding and base64.
//
// All functions are pure, thread-safe and never throw. Bad input (invalid UTF-8, broken
// escapes, broken base64) gives an empty result as documented per function.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "dataparser/util/json.h"

namespace dataparser {

// The text with its diacritics removed ("Ünïcödé" -> "Unicode"), composed (NFC). Nothing when
// `text` is not valid UTF-8. Pure-ASCII text comes back unchanged.
std::optional<std::string> foldDiacritics(std::string_view text);

// True when the text has no bytes.
inline bool empty(std::string_view text) {
  return text.empty();
}

// `text` with every occurrence of `target` replaced by `replacement`, left to right, without
// rescanning what was put in. An empty `target` changes nothing.
std::string stringByReplacingOccurrences(std::string_view text, std::string_view target,
                                         std::string_view replacement);

// True when the bytes are valid UTF-8.
bool isValidUtf8(std::string_view text);
// True when every byte is below 0x80 ("" included).
bool isAscii(std::string_view text);
// The text with every byte that does not belong to a valid UTF-8 sequence replaced by U+FFFD;
// valid text comes back unchanged.
std::string repairedUtf8(std::string_view text);

// MD5 of the bytes as 32 lower-case hexadecimal digits.
std::string md5String(std::string_view text);
// SHA-1 of the bytes as 40 lower-case hexadecimal digits.
std::string sha1String(std::string_view text);

// Percent-escapes every byte except ASCII letters, digits and "-._~" (so every character of
// "!*'();:@&=+$,/?%#[]" is escaped, upper-case hex). "" for text that is not valid UTF-8.
std::string URLEncodedString(std::string_view text);
// Replaces "+" by " ", then removes percent escapes. "" when an escape is malformed or the
// result is not valid UTF-8.
std::string URLDecodedString(std::string_view text);

// The plain text of an HTML document or fragment (tags dropped, entities decoded, block
// elements on their own lines). "" for "".
std::string htmlText(std::string_view html);

// The value when it is a JSON string, else "".
std::string nilStrToSpaceStringWithStr(json::View value);

// The first case-insensitive match of `pattern` in `text`; nothing when there is none. An
// invalid pattern writes "***" followed by the compiler's error to the system log and gives
// nothing.
std::optional<std::string> matchWithPattern(std::string_view text, std::string_view pattern);

// Base64 (standard alphabet, with padding).
// Decodes, ignoring line ends and other white space; nothing when the text is not base64.
std::optional<std::string> jk_dataWithBase64EncodedString(std::string_view text);
// Encodes, starting a new line ("\r\n") after every `wrapWidth` characters; 0 means no wrapping.
// A width that is not a multiple of 4 is rounded down to one (at least 4).
std::string jk_base64EncodedStringWithWrapWidth(std::string_view data, std::size_t wrapWidth);
// Encodes on one line.
std::string jk_base64EncodedString(std::string_view data);

}  // namespace dataparser
