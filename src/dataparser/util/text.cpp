#include "dataparser/util/text.h"

#include <libxml/HTMLparser.h>
#include <libxml/parser.h>
#include <openssl/evp.h>
#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "dataparser/util/regex.h"
#include "dataparser/util/run_log.h"

namespace dataparser {
namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// --- HTML to text ---

bool isNamed(const xmlNode* node, std::initializer_list<const char*> names) {
  if (node->name == nullptr) return false;
  const char* name = reinterpret_cast<const char*>(node->name);
  return std::any_of(names.begin(), names.end(),
                     [name](const char* candidate) { return std::strcmp(name, candidate) == 0; });
}

// Collects the rendered text of an HTML tree: runs of white space become one space, block
// elements and <br> end a line, and invisible content (scripts, styles, the head) is skipped.
class HtmlTextCollector {
 public:
  void walk(const xmlNode* node) {
    for (; node != nullptr; node = node->next) {
      if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) {
        appendText(reinterpret_cast<const char*>(node->content));
      } else if (node->type == XML_ELEMENT_NODE) {
        if (isNamed(node, {"script", "style", "head", "title"})) continue;
        if (isNamed(node, {"br"})) {
          newLine();
          continue;
        }
        const bool block =
            isNamed(node, {"p",   "div", "li",      "tr",      "h1",     "h2",     "h3",
                           "h4",  "h5",  "h6",      "ul",      "ol",     "table",  "blockquote",
                           "pre", "hr",  "section", "article", "header", "footer", "address"});
        if (block) endLine();
        walk(node->children);
        if (block) endLine();
      }
    }
  }

  std::string text() && {
    while (!out_.empty() && (out_.back() == '\n' || out_.back() == ' '))
      out_.pop_back();
    return std::move(out_);
  }

 private:
  void appendText(const char* content) {
    if (content == nullptr) return;
    for (const char* c = content; *c != '\0'; ++c) {
      if (*c == ' ' || *c == '\n' || *c == '\t' || *c == '\r' || *c == '\f') {
        pendingSpace_ = true;
        continue;
      }
      if (pendingSpace_ && !out_.empty() && out_.back() != '\n') out_ += ' ';
      pendingSpace_ = false;
      out_ += *c;
    }
  }
  void newLine() {
    out_ += '\n';
    pendingSpace_ = false;
  }
  // Ends the current line unless it is already ended (or nothing was written yet).
  void endLine() {
    if (!out_.empty() && out_.back() != '\n') out_ += '\n';
    pendingSpace_ = false;
  }

  std::string out_;
  bool pendingSpace_ = false;
};

// --- base64 ---

bool isBase64Letter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
         c == '/';
}

}  // namespace

bool isAscii(std::string_view text) {
  // Eight bytes at a time: any byte with its top bit set makes the text not ASCII.
  constexpr std::uint64_t kTopBits = 0x8080808080808080ull;
  std::size_t i = 0;
  for (; i + 8 <= text.size(); i += 8) {
    std::uint64_t word;
    std::memcpy(&word, text.data() + i, sizeof(word));
    if (word & kTopBits) return false;
  }
  for (; i < text.size(); ++i) {
    if (static_cast<unsigned char>(text[i]) >= 0x80) return false;
  }
  return true;
}

bool isValidUtf8(std::string_view text) {
  if (isAscii(text)) return true;
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  auto remaining = static_cast<utf8proc_ssize_t>(text.size());
  while (remaining > 0) {
    utf8proc_int32_t codepoint = 0;
    const utf8proc_ssize_t used = utf8proc_iterate(bytes, remaining, &codepoint);
    if (used <= 0) return false;
    bytes += used;
    remaining -= used;
  }
  return true;
}

std::string repairedUtf8(std::string_view text) {
  if (isValidUtf8(text)) return std::string(text);
  std::string out;
  out.reserve(text.size() + 8);
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  auto remaining = static_cast<utf8proc_ssize_t>(text.size());
  while (remaining > 0) {
    utf8proc_int32_t codepoint = 0;
    utf8proc_ssize_t used = utf8proc_iterate(bytes, remaining, &codepoint);
    if (used <= 0) {
      out += "\xEF\xBF\xBD";
      used = 1;
    } else {
      out.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(used));
    }
    bytes += used;
    remaining -= used;
  }
  return out;
}

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

std::string stringByReplacingOccurrences(std::string_view text, std::string_view target,
                                         std::string_view replacement) {
  if (target.empty()) return std::string(text);
  std::string out;
  out.reserve(text.size());
  std::size_t from = 0;
  for (std::size_t at = text.find(target); at != std::string_view::npos;
       at = text.find(target, from)) {
    out.append(text, from, at - from).append(replacement);
    from = at + target.size();
  }
  return out.append(text, from, std::string_view::npos);
}

namespace {

// Lower-case hexadecimal digest of `text` under `digest`; "" when the digest fails.
std::string hexDigest(std::string_view text, const EVP_MD* digestKind) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (EVP_Digest(text.data(), text.size(), digest.data(), &length, digestKind, nullptr) != 1) {
    return {};
  }
  std::string hex;
  hex.reserve(length * 2);
  for (unsigned int i = 0; i < length; ++i) {
    hex += "0123456789abcdef"[digest[i] >> 4];
    hex += "0123456789abcdef"[digest[i] & 0xF];
  }
  return hex;
}

}  // namespace

std::string md5String(std::string_view text) {
  return hexDigest(text, EVP_md5());
}

std::string sha1String(std::string_view text) {
  return hexDigest(text, EVP_sha1());
}

std::string URLEncodedString(std::string_view text) {
  if (!isValidUtf8(text)) return {};
  std::string out;
  out.reserve(text.size() * 3);
  for (char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                            (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' || c == '~';
    if (unreserved) {
      out += c;
    } else {
      out += '%';
      out += kHexDigits[byte >> 4];
      out += kHexDigits[byte & 0xF];
    }
  }
  return out;
}

std::string URLDecodedString(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '+') {
      out += ' ';
    } else if (c == '%') {
      if (i + 2 >= text.size()) return {};  // a cut-off escape
      const int high = hexValue(text[i + 1]);
      const int low = hexValue(text[i + 2]);
      if (high < 0 || low < 0) return {};
      out += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      out += c;
    }
  }
  return isValidUtf8(out) ? out : std::string();
}

std::string htmlText(std::string_view html) {
  if (html.empty() || html.size() > static_cast<std::size_t>(INT_MAX)) return {};
  static const bool ready = [] {
    xmlInitParser();
    return true;
  }();
  (void)ready;
  constexpr int kOptions = HTML_PARSE_RECOVER | HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING |
                           HTML_PARSE_NONET | HTML_PARSE_NOIMPLIED;
  std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
      htmlReadMemory(html.data(), static_cast<int>(html.size()), nullptr, "UTF-8", kOptions),
      &xmlFreeDoc);
  if (!document) return {};
  HtmlTextCollector collector;
  collector.walk(document->children);
  return std::move(collector).text();
}

std::string nilStrToSpaceStringWithStr(json::View value) {
  return value.stringCopy();
}

std::optional<std::string> matchWithPattern(std::string_view text, std::string_view pattern) {
  std::string error;
  auto compiled = regex::Regex::compile(pattern, regex::kCaseless, &error);
  if (!compiled) {
    SystemLog::write("***{}", error);
    return std::nullopt;
  }
  std::optional<std::string_view> found = compiled->search(text);
  if (!found) return std::nullopt;
  return std::string(*found);
}

std::optional<std::string> jk_dataWithBase64EncodedString(std::string_view text) {
  std::string clean;
  clean.reserve(text.size());
  for (char c : text) {
    if (c != ' ' && c != '\n' && c != '\r' && c != '\t') clean += c;
  }
  // Padding may be left out; anything else out of place makes the text no base64.
  std::size_t padding = 0;
  while (!clean.empty() && clean.back() == '=' && padding < 2) {
    clean.pop_back();
    ++padding;
  }
  if (!std::all_of(clean.begin(), clean.end(), isBase64Letter)) return std::nullopt;
  if (clean.size() % 4 == 1) return std::nullopt;
  if (padding > 0 && (clean.size() + padding) % 4 != 0) return std::nullopt;
  const std::size_t missing = (4 - clean.size() % 4) % 4;
  clean.append(missing, '=');
  if (clean.size() > static_cast<std::size_t>(INT_MAX)) return std::nullopt;
  std::string out(clean.size() / 4 * 3, '\0');
  const int written = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                                      reinterpret_cast<const unsigned char*>(clean.data()),
                                      static_cast<int>(clean.size()));
  if (written < 0) return std::nullopt;
  out.resize(out.size() - missing);  // EVP_DecodeBlock counts padding as zero bytes
  return out;
}

std::string jk_base64EncodedStringWithWrapWidth(std::string_view data, std::size_t wrapWidth) {
  std::string encoded;
  // EVP_EncodeBlock takes an int length: encode in chunks of whole 3-byte groups.
  constexpr std::size_t kChunk = 3 * (1 << 20);
  for (std::size_t start = 0; start < data.size(); start += kChunk) {
    const std::size_t length = std::min(kChunk, data.size() - start);
    const std::size_t offset = encoded.size();
    encoded.resize(offset + (length + 2) / 3 * 4 + 1);
    const int written = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(encoded.data() + offset),
                                        reinterpret_cast<const unsigned char*>(data.data() + start),
                                        static_cast<int>(length));
    encoded.resize(offset + static_cast<std::size_t>(std::max(written, 0)));
  }
  if (wrapWidth == 0) return encoded;
  const std::size_t width = std::max<std::size_t>(4, wrapWidth / 4 * 4);
  if (encoded.size() <= width) return encoded;
  std::string wrapped;
  wrapped.reserve(encoded.size() + encoded.size() / width * 2);
  for (std::size_t start = 0; start < encoded.size(); start += width) {
    if (start > 0) wrapped += "\r\n";
    wrapped.append(encoded, start, width);
  }
  return wrapped;
}

std::string jk_base64EncodedString(std::string_view data) {
  return jk_base64EncodedStringWithWrapWidth(data, 0);
}

}  // namespace dataparser
