// JSON access layer: the one place that decides how engine JSON is read.
//
// A parse produces one immutable, shared document. Two handle types point into it:
//
//   json::View   a non-owning 24-byte handle to one element. Cheap to copy; valid only while
//                some json::Value (or json::Document) of the same document is alive. Use it
//                for walking a document you already hold.
//   json::Value  a View plus shared ownership of its document. This is what an item keeps as
//                its `rawData`: a million records of one file share one document, and no
//                record is ever copied.
//
// The reading rules every parser shares live here and nowhere else:
//   - JSON null counts as absent (`present()` is false, every reader gives its empty value);
//   - a value of the wrong type reads as empty ("" / 0 / false / no elements);
//   - numbers read as integers truncate towards zero and saturate at the int64 range, like the
//     platform's integer conversion; booleans read as 0 and 1;
//   - text holding a number is only converted by the explicit `integerFromText` /
//     `numberFromText` readers.
//
// Decoding errors never throw: `parse` gives an absent Value and, on request, the error text.
// simdjson stays out of this header; it is included only by json.cpp.
//
// Thread safety: a document is immutable after parsing, so handles may be read from any number
// of threads at once. Parsing uses one parser per thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "dataparser/util/slab_memory.h"

namespace dataparser::json {

enum class Type : std::uint8_t {
  kAbsent,  // no element: a missing key, an index past the end, a failed parse
  kNull,
  kObject,
  kArray,
  kString,
  kInteger,   // fits in int64
  kUnsigned,  // above INT64_MAX
  kDouble,
  kBoolean,
};

class View;

// One parsed document: its tape and the strings the tape points into, in simdjson's documented
// tape layout. Each value or bracket is one 64-bit word with its kind (a character) in the top
// byte; a number's value fills the word after it; an opening bracket's low 32 bits give the
// index just past its partner, the next 24 bits its element count (saturated); a string's
// 56 bits give the offset of its 32-bit length and bytes. Immutable once parsed; made only by
// the parse functions below.
class Document {
 public:
  static constexpr std::size_t kRootIndex = 1;  // the root element, after the tape's root word

  char kind(std::size_t index) const { return static_cast<char>(tape_[index] >> 56); }
  std::uint64_t word(std::size_t index) const { return tape_[index]; }
  // The string at `index` (which must hold one).
  std::string_view stringAt(std::size_t index) const {
    const std::uint8_t* at = strings_ + (tape_[index] & kPayloadMask);
    std::uint32_t length;
    std::memcpy(&length, at, sizeof(length));
    return {reinterpret_cast<const char*>(at + sizeof(length)), length};
  }
  static View view(const Document* document, std::size_t index);

 private:
  friend struct DocumentAccess;
  static constexpr std::uint64_t kPayloadMask = 0x00FFFFFFFFFFFFFFull;
  const std::uint64_t* tape_ = nullptr;
  const std::uint8_t* strings_ = nullptr;
  // The owners of the two buffers: two arrays, or one run of slab bytes holding both.
  std::unique_ptr<std::uint64_t[]> ownTape_;
  std::unique_ptr<std::uint8_t[]> ownStrings_;
  SlabBytes block_;
};

class ArrayRange;
class ObjectRange;

class View {
 public:
  // An absent element.
  View() = default;

  Type type() const;
  // False for absent and for null: the shared "null counts as absent" rule.
  bool present() const { return type() != Type::kAbsent && type() != Type::kNull; }
  bool isNull() const { return type() == Type::kNull; }
  bool isObject() const { return type() == Type::kObject; }
  bool isArray() const { return type() == Type::kArray; }
  bool isString() const { return type() == Type::kString; }
  bool isNumber() const;
  bool isBoolean() const { return type() == Type::kBoolean; }

  // Member of an object; absent when this is not an object or has no such key.
  View operator[](std::string_view key) const;
  // Several members found in one walk of the object: element i is the member named keys[i],
  // exactly what operator[] gives for that key (the first member of that name, absent when
  // there is none). A record read field by field pays one walk instead of one per key. Name
  // each key once.
  //   auto [text, date, kind] = record.fields({"text", "send_date", "type"});
  template <std::size_t N>
  std::array<View, N> fields(const std::string_view (&keys)[N]) const {
    std::array<View, N> found{};
    findFields(keys, found.data(), N);
    return found;
  }
  // The same for keys known only at run time: found[i] is the member named keys[i]; slots
  // already filled are kept.
  void fields(const std::string_view* keys, View* found, std::size_t count) const {
    findFields(keys, found, count);
  }
  // Element of an array; absent when this is not an array or `index` is past the end.
  View at(std::size_t index) const;
  // Number of elements of an array or members of an object; 0 for everything else.
  std::size_t size() const;

  // The string's bytes, "" for every other type. Valid while the document lives.
  std::string_view string() const;
  // The string, or nothing when this is not a string.
  std::optional<std::string_view> optionalString() const;
  // The string copied, "" for every other type.
  std::string stringCopy() const { return std::string(string()); }

  // Numbers (and booleans as 0/1) truncated towards zero and saturated; 0 for anything else.
  std::int64_t integer() const;
  // Numbers (and booleans as 0/1) as double; 0 for anything else.
  double number() const;
  // A boolean, or a number other than 0; false for anything else.
  bool boolean() const;
  // Like `integer`, but a string is read as the number it holds (leading white space and sign
  // allowed, reading stops at the first character that does not belong; "" and "abc" give 0).
  std::int64_t integerFromText() const;
  // Like `number`, but a string is read as the decimal number it holds.
  double numberFromText() const;

  // Iteration; empty ranges for values of another type.
  ArrayRange elements() const;
  ObjectRange members() const;

  // Serialises this element as JSON text (RapidJSON writer). Absent gives "".
  std::string toJsonText(bool pretty = false) const;

  friend bool operator==(const View& a, const View& b);

 private:
  friend class Document;
  friend class ArrayRange;
  friend class ObjectRange;
  friend class Value;
  void findFields(const std::string_view* keys, View* found, std::size_t count) const;

  const Document* document_ = nullptr;
  // simdjson's element is a (document pointer, tape index) pair; we keep the tape index and
  // rebuild the element inside json.cpp.
  std::size_t tapeIndex_ = 0;
};

inline Type View::type() const {
  if (document_ == nullptr) return Type::kAbsent;
  switch (document_->kind(tapeIndex_)) {
    case '{':
      return Type::kObject;
    case '[':
      return Type::kArray;
    case '"':
      return Type::kString;
    case 'l':
      return Type::kInteger;
    case 'u':
      return Type::kUnsigned;
    case 'd':
      return Type::kDouble;
    case 't':
    case 'f':
      return Type::kBoolean;
    case 'n':
      return Type::kNull;
    default:
      return Type::kAbsent;
  }
}

inline std::string_view View::string() const {
  if (document_ == nullptr || document_->kind(tapeIndex_) != '"') return {};
  return document_->stringAt(tapeIndex_);
}

inline View Document::view(const Document* document, std::size_t index) {
  View view;
  view.document_ = document;
  view.tapeIndex_ = index;
  return view;
}

// Shared, owning handle. Copying it copies a shared_ptr. Items keep one for their record, so it
// is kept small: the owner and the element's tape index (0, the tape's root word, for none).
class Value {
 public:
  Value() = default;
  Value(std::shared_ptr<const Document> document, View view)
      : document_(std::move(document)),
        tapeIndex_(view.document_ != nullptr && document_ != nullptr ? view.tapeIndex_ : 0) {}

  View view() const {
    View element;
    if (tapeIndex_ != 0) {
      element.document_ = document_.get();
      element.tapeIndex_ = tapeIndex_;
    }
    return element;
  }
  // Another element of the same document, sharing its ownership.
  Value sub(View element) const { return Value(document_, element); }
  const std::shared_ptr<const Document>& document() const { return document_; }

  // Forwarders so that a Value reads like a View.
  Type type() const { return view().type(); }
  bool present() const { return view().present(); }
  bool isObject() const { return view().isObject(); }
  bool isArray() const { return view().isArray(); }
  bool isString() const { return view().isString(); }
  View operator[](std::string_view key) const { return view()[key]; }
  template <std::size_t N>
  std::array<View, N> fields(const std::string_view (&keys)[N]) const {
    return view().fields(keys);
  }
  View at(std::size_t index) const { return view().at(index); }
  std::size_t size() const { return view().size(); }
  ArrayRange elements() const;
  ObjectRange members() const;

 private:
  std::shared_ptr<const Document> document_;
  std::size_t tapeIndex_ = 0;
};

class ArrayRange {
 public:
  class iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = View;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = View;
    View operator*() const;
    iterator& operator++();
    iterator operator++(int) {
      iterator copy = *this;
      ++*this;
      return copy;
    }
    friend bool operator==(const iterator& a, const iterator& b) { return a.index_ == b.index_; }

   private:
    friend class ArrayRange;
    const Document* document_ = nullptr;
    std::size_t index_ = 0;
  };
  iterator begin() const;
  iterator end() const;
  bool empty() const { return begin() == end(); }

 private:
  friend class View;
  View array_;
};

struct Member {
  std::string_view key;
  View value;
};

class ObjectRange {
 public:
  class iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Member;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = Member;
    Member operator*() const;
    iterator& operator++();
    iterator operator++(int) {
      iterator copy = *this;
      ++*this;
      return copy;
    }
    friend bool operator==(const iterator& a, const iterator& b) { return a.index_ == b.index_; }

   private:
    friend class ObjectRange;
    const Document* document_ = nullptr;
    std::size_t index_ = 0;
  };
  iterator begin() const;
  iterator end() const;
  bool empty() const { return begin() == end(); }

 private:
  friend class View;
  View object_;
};

inline ArrayRange Value::elements() const {
  return view().elements();
}
inline ObjectRange Value::members() const {
  return view().members();
}

// Parses JSON text whose top level is an object or an array (a bare scalar is an error, as with
// the platform's decoder). On failure returns an absent Value and, when `error` is given, stores
// the decoder's message there. Never throws.
Value parse(std::string_view text, std::string* error = nullptr);
// Parses a string that the caller gives up; avoids a copy when it already has spare capacity
// for the decoder's padding.
Value parse(std::string&& text, std::string* error = nullptr);
inline Value parse(const char* text, std::string* error = nullptr) {
  return parse(std::string_view(text), error);
}
// Reads and parses a regular file. A missing or unreadable file is an error like malformed
// JSON. A file that fails only for invalid UTF-8 bytes or surrogate escapes without their pair is
// mended (mendedText) and parsed again; the run log then names the file once. A caller that
// decodes on one thread and reports on another passes `mended`: it is then set instead, and the
// caller writes the line with logMendedFile where the file is consumed.
Value parseFile(const std::string& path, std::string* error = nullptr, bool* mended = nullptr);
// The run log's line for a file that decoded only after mending.
void logMendedFile(const std::string& path);
// The text as it stands between the quotes of a JSON string: quote, backslash and control
// characters escaped; bytes outside valid UTF-8 become U+FFFD.
std::string escapedText(std::string_view text);
// The text with bytes outside valid UTF-8 and unpaired "\uD800".."\uDFFF" escapes replaced by
// U+FFFD; valid text comes back unchanged.
std::string mendedText(std::string_view text);

// The number of bytes the parser needs after the text (simdjson's padding). Callers that build
// large texts can reserve this much extra capacity so that `parse(std::string&&)` copies nothing.
std::size_t paddingBytes();

// The integer that a text holds, read like `View::integerFromText` reads a string: leading white
// space and a sign allowed, reading stops at the first character that is not a digit, "" and
// "abc" give 0, values beyond the int64 range saturate. For texts that do not come from JSON
// (header values, file contents).
std::int64_t integerFromText(std::string_view text);

}  // namespace dataparser::json
