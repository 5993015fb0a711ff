#include "dataparser/util/regex.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <map>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>

namespace dataparser::regex {
namespace {

pcre2_code* asCode(void* code) {
  return static_cast<pcre2_code*>(code);
}

// Compiles with Unicode semantics. JIT is used when the platform has it; without it the
// interpreter runs.
pcre2_code* compileCode(std::string_view pattern, unsigned options, bool whole,
                        std::string* error) {
  std::uint32_t flags = PCRE2_UTF | PCRE2_UCP;
  if (options & kCaseless) flags |= PCRE2_CASELESS;
  // Anchoring at compile time keeps whole-text matching on the JIT path.
  if (whole) flags |= PCRE2_ANCHORED | PCRE2_ENDANCHORED;
  int errorCode = 0;
  PCRE2_SIZE errorOffset = 0;
  pcre2_code* code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                                   flags, &errorCode, &errorOffset, nullptr);
  if (code == nullptr) {
    if (error != nullptr) {
      PCRE2_UCHAR message[256];
      pcre2_get_error_message(errorCode, message, sizeof message);
      *error = std::string(reinterpret_cast<const char*>(message)) + " at offset " +
               std::to_string(errorOffset);
    }
    return nullptr;
  }
  pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);  // failure leaves the interpreter in charge
  return code;
}

// Per-thread scratch: match data (we only read the whole match) and a JIT stack that can grow
// past the default 32 KiB for patterns that backtrack deeply.
class Scratch {
 public:
  Scratch()
      : data_(pcre2_match_data_create(1, nullptr)),
        context_(pcre2_match_context_create(nullptr)),
        stack_(pcre2_jit_stack_create(32 * 1024, 1024 * 1024, nullptr)) {
    if (context_ != nullptr && stack_ != nullptr) pcre2_jit_stack_assign(context_, nullptr, stack_);
  }
  ~Scratch() {
    pcre2_jit_stack_free(stack_);
    pcre2_match_context_free(context_);
    pcre2_match_data_free(data_);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  pcre2_match_data* data() const { return data_; }
  pcre2_match_context* context() const { return context_; }

 private:
  pcre2_match_data* data_;
  pcre2_match_context* context_;
  pcre2_jit_stack* stack_;
};

Scratch& scratch() {
  thread_local Scratch instance;
  return instance;
}

struct StringHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const {
    return std::hash<std::string_view>{}(text);
  }
};

// Compiled patterns by options, then by pattern text. Entries live until the process ends:
// the library uses a small fixed set of patterns.
class Cache {
 public:
  std::shared_ptr<const Regex> find(std::string_view pattern, unsigned options) const {
    std::shared_lock lock(mutex_);
    auto byOptions = entries_.find(options);
    if (byOptions == entries_.end()) return nullptr;
    auto entry = byOptions->second.find(pattern);
    return entry == byOptions->second.end() ? nullptr : entry->second;
  }
  std::shared_ptr<const Regex> insert(std::string_view pattern, unsigned options,
                                      std::shared_ptr<const Regex> regex) {
    std::unique_lock lock(mutex_);
    auto& byPattern = entries_[options];
    auto [entry, inserted] = byPattern.try_emplace(std::string(pattern), std::move(regex));
    return entry->second;  // a racing thread's copy wins; both are equivalent
  }

 private:
  mutable std::shared_mutex mutex_;
  std::map<unsigned, std::unordered_map<std::string, std::shared_ptr<const Regex>, StringHash,
                                        std::equal_to<>>>
      entries_;
};

Cache& cache() {
  static Cache* instance = new Cache;  // never destroyed: usable from other static destructors
  return *instance;
}

}  // namespace

Regex::Regex(std::string pattern, unsigned options, void* code, void* wholeCode)
    : pattern_(std::move(pattern)), options_(options), code_(code), wholeCode_(wholeCode) {}

Regex::~Regex() {
  pcre2_code_free(asCode(code_));
  pcre2_code_free(asCode(wholeCode_));
}

std::shared_ptr<const Regex> Regex::compile(std::string_view pattern, unsigned options,
                                            std::string* error) {
  if (auto cached = cache().find(pattern, options)) return cached;
  pcre2_code* code = compileCode(pattern, options, false, error);
  if (code == nullptr) return nullptr;
  pcre2_code* wholeCode = compileCode(pattern, options, true, error);
  if (wholeCode == nullptr) {
    pcre2_code_free(code);
    return nullptr;
  }
  std::shared_ptr<const Regex> regex(new Regex(std::string(pattern), options, code, wholeCode));
  return cache().insert(pattern, options, std::move(regex));
}

std::optional<std::pair<std::size_t, std::size_t>> Regex::match(std::string_view text,
                                                                bool whole) const {
  Scratch& local = scratch();
  if (local.data() == nullptr) return std::nullopt;
  // An empty view may carry a null pointer, which PCRE2 accepts only with a zero length.
  static constexpr char kEmpty[] = "";
  const char* subject = text.data() != nullptr ? text.data() : kEmpty;
  int rc = pcre2_match(asCode(whole ? wholeCode_ : code_), reinterpret_cast<PCRE2_SPTR>(subject),
                       text.size(), 0, 0, local.data(), local.context());
  // rc == 0 means the match data had no room for capture groups; the whole match is there.
  // Errors (a text that is not UTF-8, the backtracking limit reached) count as no match.
  if (rc < 0) return std::nullopt;
  const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(local.data());
  if (ovector[0] > ovector[1] || ovector[1] > text.size()) return std::nullopt;  // \K oddities
  return std::make_pair(static_cast<std::size_t>(ovector[0]), static_cast<std::size_t>(ovector[1]));
}

std::optional<std::string_view> Regex::search(std::string_view text) const {
  auto range = match(text, false);
  if (!range) return std::nullopt;
  return text.substr(range->first, range->second - range->first);
}

bool Regex::matches(std::string_view text) const {
  return match(text, true).has_value();
}

std::optional<std::string_view> search(std::string_view text, std::string_view pattern,
                                       unsigned options) {
  auto regex = Regex::compile(pattern, options);
  if (!regex) return std::nullopt;
  return regex->search(text);
}

bool matches(std::string_view text, std::string_view pattern, unsigned options) {
  auto regex = Regex::compile(pattern, options);
  return regex && regex->matches(text);
}

}  // namespace dataparser::regex
