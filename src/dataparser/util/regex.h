// Regular expressions (PCRE2 with JIT, Perl syntax with look-ahead and look-behind).
//
// A pattern compiles once per (pattern, options) pair and is then kept for the life of the
// process in a shared cache; a compiled Regex is immutable and may be used from any number of
// threads at once (each thread matches with its own scratch data). Patterns and texts are UTF-8;
// a text that is not valid UTF-8 never matches. A pattern that backtracks without end gives up
// at the engine's match limit: no match rather than a hang.
//
//   regex::search("alice@example.com", ".*(?=@|-.*)")  == "alice"
//   regex::matches("IMG_1.JPG", ".*\\.jpg$", regex::kCaseless) == true
//
// Nothing here throws; an invalid pattern gives no match and, on request, the compiler's error.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace dataparser::regex {

enum Options : unsigned {
  kNone = 0,
  kCaseless = 1u << 0,  // Unicode case-insensitive
};

class Regex {
 public:
  // The compiled pattern from the process-wide cache, compiling it on first use. Nothing for an
  // invalid pattern; `error` then gets the compiler's message with the offending offset.
  static std::shared_ptr<const Regex> compile(std::string_view pattern, unsigned options = kNone,
                                              std::string* error = nullptr);

  // The first match in `text` (a view into `text`), or nothing.
  std::optional<std::string_view> search(std::string_view text) const;
  // True when the pattern matches the whole of `text`.
  bool matches(std::string_view text) const;

  const std::string& pattern() const { return pattern_; }
  unsigned options() const { return options_; }

  ~Regex();
  Regex(const Regex&) = delete;
  Regex& operator=(const Regex&) = delete;

 private:
  Regex(std::string pattern, unsigned options, void* code, void* wholeCode);
  // Start and end offsets of the first match, or nothing.
  std::optional<std::pair<std::size_t, std::size_t>> match(std::string_view text, bool whole) const;

  std::string pattern_;
  unsigned options_;
  void* code_;       // pcre2_code_8 for searching, owned
  void* wholeCode_;  // the same anchored at both ends, owned
};

// Shorthands over the cache. An invalid pattern gives nothing / false.
std::optional<std::string_view> search(std::string_view text, std::string_view pattern,
                                       unsigned options = kNone);
bool matches(std::string_view text, std::string_view pattern, unsigned options = kNone);

}  // namespace dataparser::regex
