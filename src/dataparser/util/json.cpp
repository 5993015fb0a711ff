#include "dataparser/util/json.h"

#include <fmt/format.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>

#include <algorithm>
#include <bit>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <memory>

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/run_log.h"
#include "dataparser/util/text.h"

namespace dataparser::json {

using simdjson::internal::tape_type;

// Gives the parse functions the document's buffers.
struct DocumentAccess {
  static void adopt(Document& document, std::unique_ptr<std::uint64_t[]> tape,
                    std::unique_ptr<std::uint8_t[]> strings) {
    document.tape_ = tape.get();
    document.strings_ = strings.get();
    document.ownTape_ = std::move(tape);
    document.ownStrings_ = std::move(strings);
  }
  // The tape at the start of `block`, the strings at `stringsOffset`.
  static void adopt(Document& document, SlabBytes block, std::size_t stringsOffset) {
    document.tape_ = reinterpret_cast<const std::uint64_t*>(block.data());
    document.strings_ = block.data() + stringsOffset;
    document.block_ = std::move(block);
  }
};

namespace {

// One tape word read the way simdjson's own tape reader reads it.
class TapeWord {
 public:
  TapeWord(const Document* document, std::size_t index) : document_(document), index_(index) {}
  tape_type tape_ref_type() const { return static_cast<tape_type>(document_->kind(index_)); }
  // The index just past this element.
  std::size_t after_element() const {
    switch (tape_ref_type()) {
      case tape_type::START_ARRAY:
      case tape_type::START_OBJECT:
        return static_cast<std::uint32_t>(document_->word(index_));
      case tape_type::INT64:
      case tape_type::UINT64:
      case tape_type::DOUBLE:
        return index_ + 2;
      default:
        return index_ + 1;
    }
  }
  std::uint32_t scope_count() const {
    return static_cast<std::uint32_t>((document_->word(index_) >> 32) & 0xFFFFFF);
  }
  std::string_view get_string_view() const { return document_->stringAt(index_); }
  template <class T>
  T next_tape_value() const {
    const std::uint64_t bits = document_->word(index_ + 1);
    T value;
    std::memcpy(&value, &bits, sizeof(value));
    return value;
  }
  bool is_true() const { return tape_ref_type() == tape_type::TRUE_VALUE; }

 private:
  const Document* document_;
  std::size_t index_;
};

TapeWord word(const Document* document, std::size_t index) {
  return TapeWord(document, index);
}

}  // namespace

namespace {

// Documents above this size are parsed with a parser of their own, so that a thread does not
// keep a giant parser buffer alive after one huge file.
constexpr std::size_t kLargeDocumentBytes = std::size_t{64} << 20;

simdjson::dom::parser& threadParser() {
  thread_local simdjson::dom::parser parser;
  return parser;
}

// Gives the document room for a text of `length` bytes before the parse fills it.
simdjson::error_code prepareDocument(simdjson::dom::document& dom, std::size_t length) {
  // No huge-page hint: the system zeroes a whole 2 MiB page at its first touch, which costs more
  // than it saves where page faults are dear (virtual machines) and rounds every buffer up.
  return dom.allocate(length);
}

// True when the decoder may read its padding past `data + length` without a copy: the bytes it
// reads there are ignored, so they only have to be readable, and they are when they lie in the
// page that holds the text's last byte. Spares the copy of a block of hundreds of megabytes
// (and the memory it takes) in nearly every case.
bool paddingReadable(const char* data, std::size_t length) {
  // Pages are at least this large on every system we run on.
  constexpr std::uintptr_t kPage = 4096;
  if (length == 0) return false;
  auto last = reinterpret_cast<std::uintptr_t>(data) + length - 1;
  return last % kPage + simdjson::SIMDJSON_PADDING < kPage;
}

// Whether two runs of `length` bytes, at most 32, are equal: a few word compares, overlapping at
// the end, instead of a call. Keys and most record values are this short.
inline bool sameShortBytes(const std::uint8_t* a, const std::uint8_t* b, std::size_t length) {
  auto word = [](const std::uint8_t* at) {
    std::uint64_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
  };
  if (length >= 8) {
    std::uint64_t differ = word(a + length - 8) ^ word(b + length - 8);
    for (std::size_t i = 0; i + 8 < length; i += 8)
      differ |= word(a + i) ^ word(b + i);
    return differ == 0;
  }
  if (length >= 4) {
    std::uint32_t head, otherHead, tail, otherTail;
    std::memcpy(&head, a, 4);
    std::memcpy(&otherHead, b, 4);
    std::memcpy(&tail, a + length - 4, 4);
    std::memcpy(&otherTail, b + length - 4, 4);
    return ((head ^ otherHead) | (tail ^ otherTail)) == 0;
  }
  for (std::size_t i = 0; i < length; ++i) {
    if (a[i] != b[i]) return false;
  }
  return true;
}

// a == b, with short texts compared inline.
inline bool sameText(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  const auto* left = reinterpret_cast<const std::uint8_t*>(a.data());
  const auto* right = reinterpret_cast<const std::uint8_t*>(b.data());
  return a.size() <= 32 ? sameShortBytes(left, right, a.size())
                        : std::memcmp(left, right, a.size()) == 0;
}

// Shares repeated short strings of a parsed document and packs its string buffer.
//
// A message file repeats the same keys ("text", "from_id" ...) and many of the same short values
// (addresses, kinds) in every record, and the parser stores each occurrence again. Strings sit in
// the buffer in tape order, so one pass over the tape can move every string down to the write
// position (never past what is still to be read) and point repeated short ones at their first
// copy.
class StringPacker {
 public:
  struct Extent {
    std::size_t tapeWords = 0;
    std::size_t packedEnd = 0;  // the strings' end after packing
    std::size_t oldEnd = 0;     // and before
  };

  Extent pack(simdjson::dom::document& dom) {
    std::uint64_t* tape = dom.tape.get();
    std::uint8_t* strings = dom.string_buf.get();
    // The first root word holds the index just past the last one.
    const std::size_t words = tape[0] & simdjson::internal::JSON_VALUE_MASK;
    startDocument();
    std::size_t write = 0;
    std::size_t readEnd = 0;
    for (std::size_t i = 1; i < words; ++i) {
      const auto type = static_cast<tape_type>(tape[i] >> 56);
      if (type == tape_type::INT64 || type == tape_type::UINT64 || type == tape_type::DOUBLE) {
        ++i;  // the number itself fills the next word
        continue;
      }
      if (type != tape_type::STRING) continue;
      const std::size_t read = tape[i] & simdjson::internal::JSON_VALUE_MASK;
      std::uint32_t length;
      std::memcpy(&length, strings + read, sizeof(length));
      const std::size_t size = sizeof(length) + length + 1;  // with its closing NUL
      readEnd = read + size;
      std::size_t at = write;
      if (length <= kShortString) {
        at = intern(strings, read, length, write);
      } else if (read != write) {
        std::memmove(strings + write, strings + read, size);
      }
      if (at == write) write += size;
      tape[i] = (tape[i] & ~simdjson::internal::JSON_VALUE_MASK) | at;
    }
    return {words, write, readEnd};
  }

 private:
  static constexpr std::uint32_t kShortString = 32;
  static constexpr std::size_t kMostRemembered = 16384;
  struct Slot {
    std::uint64_t offset;
    std::uint32_t hash;
    std::uint32_t generation;  // a slot of an earlier document is empty
  };

  void startDocument() {
    if (++generation_ == 0) {  // wrapped: forget every slot for real
      std::fill(slots_.begin(), slots_.end(), Slot{});
      generation_ = 1;
    }
    used_ = 0;
    if (slots_.empty()) slots_.resize(1024);
  }

  // Reads whole words: in the parser's string buffer a string is followed by its NUL and, after
  // the last one, by the buffer's padding, so the last word may reach past the string; its bytes
  // past the end are masked off.
  static std::uint32_t hashOf(const std::uint8_t* bytes, std::uint32_t length) {
    std::uint64_t h = 0x9E3779B97F4A7C15ull ^ length;
    for (std::uint32_t i = 0; i < length; i += 8) {
      std::uint64_t word;
      std::memcpy(&word, bytes + i, 8);
      if (length - i < 8) word &= ~std::uint64_t{0} >> (8 * (8 - (length - i)));
      h = (h ^ word) * 0xFF51AFD7ED558CCDull;
      h ^= h >> 32;
    }
    return static_cast<std::uint32_t>(h);
  }

  // The offset of an earlier copy of the string at `read`; otherwise moves it to `write`,
  // remembers it there and returns `write`.
  std::size_t intern(std::uint8_t* strings, std::size_t read, std::uint32_t length,
                     std::size_t write) {
    const std::uint8_t* bytes = strings + read + sizeof(std::uint32_t);
    const std::uint32_t hash = hashOf(bytes, length);
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
      Slot& slot = slots_[i];
      if (slot.generation != generation_) {
        if (read != write) std::memmove(strings + write, strings + read, length + 5);
        // A full table takes no more strings: the ones that repeat (keys, kinds) came early,
        // and a table past the cache would cost every string a miss.
        if (used_ < kMostRemembered) {
          slot = {write, hash, generation_};
          if (++used_ * 2 > slots_.size()) grow();
        }
        return write;
      }
      if (slot.hash != hash) continue;
      std::uint32_t otherLength;
      std::memcpy(&otherLength, strings + slot.offset, sizeof(otherLength));
      if (otherLength == length &&
          sameShortBytes(strings + slot.offset + sizeof(std::uint32_t), bytes, length)) {
        return slot.offset;
      }
    }
  }

  void grow() {
    std::vector<Slot> old(slots_.size() * 2);
    old.swap(slots_);
    const std::size_t mask = slots_.size() - 1;
    for (const Slot& slot : old) {
      if (slot.generation != generation_) continue;
      std::size_t i = slot.hash & mask;
      while (slots_[i].generation == generation_)
        i = (i + 1) & mask;
      slots_[i] = slot;
    }
  }

  std::vector<Slot> slots_;
  std::size_t used_ = 0;
  std::uint32_t generation_ = 0;
};

// Texts up to this size are parsed into the thread's scratch document and copied out packed;
// larger ones are parsed straight into their own document and packed in place.
constexpr std::size_t kScratchDocumentBytes = std::size_t{4} << 20;

// Hands the whole pages of `strings` between the packed end and the old end back to the system;
// nothing reads them again.
void releaseTail(std::uint8_t* strings, const StringPacker::Extent& extent) {
  constexpr std::uintptr_t kPage = 4096;
  auto from =
      (reinterpret_cast<std::uintptr_t>(strings + extent.packedEnd) + kPage - 1) & ~(kPage - 1);
  auto to = reinterpret_cast<std::uintptr_t>(strings + extent.oldEnd) & ~(kPage - 1);
  if (to > from) ::madvise(reinterpret_cast<void*>(from), to - from, MADV_DONTNEED);
}

// Copies the packed tape and strings of `scratch` into `document`, exactly sized: into one run
// of slab bytes (see slab_memory.h) when they fit, else into two arrays.
simdjson::error_code copyOut(const simdjson::dom::document& scratch,
                             const StringPacker::Extent& extent, Document& document) {
  const std::size_t tapeBytes = extent.tapeWords * sizeof(std::uint64_t);
  const std::size_t stringBytes = std::max<std::size_t>(extent.packedEnd, 1);
  if (tapeBytes + stringBytes <= kLargestSlabPiece) {
    SlabBytes block;
    if (!block.allocate(tapeBytes + stringBytes)) return simdjson::MEMALLOC;
    std::memcpy(block.data(), scratch.tape.get(), tapeBytes);
    std::memcpy(block.data() + tapeBytes, scratch.string_buf.get(), extent.packedEnd);
    DocumentAccess::adopt(document, std::move(block), tapeBytes);
    return simdjson::SUCCESS;
  }
  std::unique_ptr<std::uint64_t[]> tape(new (std::nothrow) std::uint64_t[extent.tapeWords]);
  std::unique_ptr<std::uint8_t[]> strings(new (std::nothrow) std::uint8_t[stringBytes]);
  if (!tape || !strings) return simdjson::MEMALLOC;
  std::memcpy(tape.get(), scratch.tape.get(), tapeBytes);
  std::memcpy(strings.get(), scratch.string_buf.get(), extent.packedEnd);
  DocumentAccess::adopt(document, std::move(tape), std::move(strings));
  return simdjson::SUCCESS;
}

simdjson::error_code parseInto(simdjson::dom::document& dom, const char* data, std::size_t length,
                               bool padded) {
  if (length > kLargeDocumentBytes) {
    simdjson::dom::parser parser;
    return parser.parse_into_document(dom, data, length, !padded).error();
  }
  return threadParser().parse_into_document(dom, data, length, !padded).error();
}

Value parseBytes(const char* data, std::size_t length, bool padded, std::string* error) {
  padded = padded || paddingReadable(data, length);
  auto document = std::make_shared<Document>();
  thread_local StringPacker packer;
  simdjson::error_code code = simdjson::SUCCESS;
  if (length <= kScratchDocumentBytes) {
    // The scratch pages are warm: the parse faults none in, and the copy is exactly sized.
    thread_local simdjson::dom::document scratch;
    if (scratch.capacity() < length)
      code = scratch.allocate(std::max(length, std::size_t{1} << 20));
    if (code == simdjson::SUCCESS) code = parseInto(scratch, data, length, padded);
    if (code == simdjson::SUCCESS) {
      const StringPacker::Extent extent = packer.pack(scratch);
      code = copyOut(scratch, extent, *document);
    }
  } else {
    simdjson::dom::document dom;
    code = prepareDocument(dom, length);
    if (code == simdjson::SUCCESS) code = parseInto(dom, data, length, padded);
    if (code == simdjson::SUCCESS) {
      releaseTail(dom.string_buf.get(), packer.pack(dom));
      DocumentAccess::adopt(*document, std::move(dom.tape), std::move(dom.string_buf));
    }
  }
  if (code != simdjson::SUCCESS) {
    if (error) *error = simdjson::error_message(code);
    return {};
  }
  const Document* raw = document.get();
  View root = Document::view(raw, Document::kRootIndex);
  // Like the platform's decoder, a text must hold an object or an array at its top.
  if (!root.isObject() && !root.isArray()) {
    if (error) *error = "JSON text did not start with array or object";
    return {};
  }
  return Value(std::move(document), root);
}

// A file's bytes followed by the decoder's padding. The document never points into the text,
// so one thread refills the same buffer for every file it parses (a scan reads many large
// files; reusing the pages spares the system clearing fresh ones for each). Files above
// kLargeDocumentBytes get a buffer of their own that goes away after the parse.
class FileText {
 public:
  simdjson::error_code load(const std::string& path) {
    // Only a regular file is opened: a pipe would block and a device never end.
    std::uint64_t size = 0;
    int fd = openBackupFile(path, &size);
    if (fd < 0) return simdjson::IO_ERROR;
    struct Closer {
      int fd;
      ~Closer() { ::close(fd); }
    } closer{fd};
    auto length = static_cast<std::size_t>(size);
    if (!reserve(length)) return simdjson::MEMALLOC;
    std::size_t done = 0;
    while (done < length) {
      ssize_t n = ::read(fd, data_ + done, length - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return simdjson::IO_ERROR;
      done += static_cast<std::size_t>(n);
    }
    std::memset(data_ + length, 0, simdjson::SIMDJSON_PADDING);
    length_ = length;
    return simdjson::SUCCESS;
  }
  const char* data() const { return data_; }
  std::size_t length() const { return length_; }

 private:
  bool reserve(std::size_t length) {
    std::size_t needed = length + simdjson::SIMDJSON_PADDING;
    if (length > kLargeDocumentBytes) {
      own_.reset(new (std::nothrow) char[needed]);
      data_ = own_.get();
      return data_ != nullptr;
    }
    thread_local std::unique_ptr<char[]> shared;
    thread_local std::size_t sharedCapacity = 0;
    if (sharedCapacity < needed) {
      shared.reset();
      sharedCapacity = 0;
      // Grow in large steps so that a series of growing files does not reallocate each time.
      std::size_t capacity = std::max(needed, std::size_t{1} << 20);
      capacity = std::max(capacity,
                          std::min(needed * 2, kLargeDocumentBytes + simdjson::SIMDJSON_PADDING));
      shared.reset(new (std::nothrow) char[capacity]);
      if (!shared) return false;
      sharedCapacity = capacity;
    }
    data_ = shared.get();
    return true;
  }

  std::unique_ptr<char[]> own_;
  char* data_ = nullptr;
  std::size_t length_ = 0;
};

std::int64_t saturate(double value) {
  if (std::isnan(value)) return 0;
  // 2^63 is exactly representable; everything at or above it saturates.
  constexpr double kLimit = 9223372036854775808.0;
  if (value >= kLimit) return std::numeric_limits<std::int64_t>::max();
  if (value <= -kLimit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(value);  // truncates towards zero
}

std::string_view trimLeadingSpace(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i])))
    ++i;
  return text.substr(i);
}

template <class Writer>
void writeElement(const Document* document, std::size_t index, Writer& writer) {
  TapeWord tape = word(document, index);
  switch (tape.tape_ref_type()) {
    case tape_type::START_OBJECT: {
      writer.StartObject();
      std::size_t end = tape.after_element() - 1;
      for (std::size_t i = index + 1; i < end;) {
        std::string_view key = word(document, i).get_string_view();
        writer.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
        writeElement(document, i + 1, writer);
        i = word(document, i + 1).after_element();
      }
      writer.EndObject();
      return;
    }
    case tape_type::START_ARRAY: {
      writer.StartArray();
      std::size_t end = tape.after_element() - 1;
      for (std::size_t i = index + 1; i < end; i = word(document, i).after_element()) {
        writeElement(document, i, writer);
      }
      writer.EndArray();
      return;
    }
    case tape_type::STRING: {
      std::string_view text = tape.get_string_view();
      writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
      return;
    }
    case tape_type::INT64:
      writer.Int64(tape.next_tape_value<std::int64_t>());
      return;
    case tape_type::UINT64:
      writer.Uint64(tape.next_tape_value<std::uint64_t>());
      return;
    case tape_type::DOUBLE:
      writer.Double(tape.next_tape_value<double>());
      return;
    case tape_type::TRUE_VALUE:
      writer.Bool(true);
      return;
    case tape_type::FALSE_VALUE:
      writer.Bool(false);
      return;
    default:
      writer.Null();
      return;
  }
}

}  // namespace

bool View::isNumber() const {
  Type t = type();
  return t == Type::kInteger || t == Type::kUnsigned || t == Type::kDouble;
}

View View::operator[](std::string_view key) const {
  if (!isObject()) return {};
  std::size_t end = word(document_, tapeIndex_).after_element() - 1;
  for (std::size_t i = tapeIndex_ + 1; i < end;) {
    if (sameText(document_->stringAt(i), key)) return Document::view(document_, i + 1);
    i = word(document_, i + 1).after_element();
  }
  return {};
}

void View::findFields(const std::string_view* keys, View* found, std::size_t count) const {
  if (!isObject()) return;
  constexpr std::size_t kSlots = 64;
  constexpr std::size_t kBuckets = 32;
  if (count > kSlots) {
    findFields(keys, found, kSlots);
    findFields(keys + kSlots, found + kSlots, count - kSlots);
    return;
  }
  // The open slots by key length (modulo the bucket count): most members of a record
  // are not asked for, and their length alone tells so; the others meet one or two candidates.
  std::uint64_t byLength[kBuckets] = {};
  std::uint64_t open = 0;
  for (std::size_t k = 0; k < count; ++k) {
    // A slot already filled keeps its value.
    if (found[k].document_ != nullptr) continue;
    byLength[keys[k].size() % kBuckets] |= std::uint64_t{1} << k;
    open |= std::uint64_t{1} << k;
  }
  std::size_t end = word(document_, tapeIndex_).after_element() - 1;
  for (std::size_t i = tapeIndex_ + 1; i < end && open != 0;) {
    std::string_view key = word(document_, i).get_string_view();
    // A slot takes the first member of its name, as operator[] does.
    for (std::uint64_t candidates = byLength[key.size() % kBuckets] & open; candidates != 0;
         candidates &= candidates - 1) {
      const auto k = static_cast<std::size_t>(std::countr_zero(candidates));
      if (sameText(keys[k], key)) {
        found[k] = Document::view(document_, i + 1);
        open &= ~(std::uint64_t{1} << k);
        break;
      }
    }
    i = word(document_, i + 1).after_element();
  }
}

View View::at(std::size_t index) const {
  if (!isArray()) return {};
  std::size_t end = word(document_, tapeIndex_).after_element() - 1;
  std::size_t i = tapeIndex_ + 1;
  for (std::size_t n = 0; i < end; ++n, i = word(document_, i).after_element()) {
    if (n == index) return Document::view(document_, i);
  }
  return {};
}

std::size_t View::size() const {
  Type t = type();
  if (t != Type::kArray && t != Type::kObject) return 0;
  TapeWord tape = word(document_, tapeIndex_);
  std::uint32_t count = tape.scope_count();
  // The tape saturates its element count at 0xFFFFFF; count by walking past that.
  if (count < 0xFFFFFF) return count;
  std::size_t n = 0;
  std::size_t end = tape.after_element() - 1;
  for (std::size_t i = tapeIndex_ + 1; i < end; ++n) {
    if (t == Type::kObject) ++i;  // skip the key
    i = word(document_, i).after_element();
  }
  return n;
}

std::optional<std::string_view> View::optionalString() const {
  if (!isString()) return std::nullopt;
  return word(document_, tapeIndex_).get_string_view();
}

std::int64_t View::integer() const {
  switch (type()) {
    case Type::kInteger:
      return word(document_, tapeIndex_).next_tape_value<std::int64_t>();
    case Type::kUnsigned:
      return std::numeric_limits<std::int64_t>::max();  // only values above INT64_MAX are here
    case Type::kDouble:
      return saturate(word(document_, tapeIndex_).next_tape_value<double>());
    case Type::kBoolean:
      return word(document_, tapeIndex_).is_true() ? 1 : 0;
    default:
      return 0;
  }
}

double View::number() const {
  switch (type()) {
    case Type::kInteger:
      return static_cast<double>(word(document_, tapeIndex_).next_tape_value<std::int64_t>());
    case Type::kUnsigned:
      return static_cast<double>(word(document_, tapeIndex_).next_tape_value<std::uint64_t>());
    case Type::kDouble:
      return word(document_, tapeIndex_).next_tape_value<double>();
    case Type::kBoolean:
      return word(document_, tapeIndex_).is_true() ? 1.0 : 0.0;
    default:
      return 0.0;
  }
}

bool View::boolean() const {
  if (isBoolean()) return word(document_, tapeIndex_).is_true();
  if (isNumber()) return number() != 0.0;
  return false;
}

std::int64_t integerFromText(std::string_view text) {
  text = trimLeadingSpace(text);
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  std::int64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') break;
    int digit = c - '0';
    if (value > (std::numeric_limits<std::int64_t>::max() - digit) / 10) {
      return negative ? std::numeric_limits<std::int64_t>::min()
                      : std::numeric_limits<std::int64_t>::max();
    }
    value = value * 10 + digit;
  }
  return negative ? -value : value;
}

std::int64_t View::integerFromText() const {
  if (!isString()) return integer();
  return json::integerFromText(string());
}

double View::numberFromText() const {
  if (!isString()) return number();
  std::string_view text = trimLeadingSpace(string());
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  double value = 0.0;
  auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    return text.starts_with('-') ? -HUGE_VAL : HUGE_VAL;
  }
  return result.ec == std::errc() ? value : 0.0;
}

ArrayRange View::elements() const {
  ArrayRange range;
  if (isArray()) range.array_ = *this;
  return range;
}

ObjectRange View::members() const {
  ObjectRange range;
  if (isObject()) range.object_ = *this;
  return range;
}

std::string View::toJsonText(bool pretty) const {
  if (document_ == nullptr) return {};
  rapidjson::StringBuffer buffer;
  if (pretty) {
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    writer.SetIndent(' ', 2);
    writeElement(document_, tapeIndex_, writer);
  } else {
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writeElement(document_, tapeIndex_, writer);
  }
  return std::string(buffer.GetString(), buffer.GetSize());
}

bool operator==(const View& a, const View& b) {
  return a.document_ == b.document_ && (a.document_ == nullptr || a.tapeIndex_ == b.tapeIndex_);
}

View ArrayRange::iterator::operator*() const {
  return Document::view(document_, index_);
}

ArrayRange::iterator& ArrayRange::iterator::operator++() {
  index_ = word(document_, index_).after_element();
  return *this;
}

ArrayRange::iterator ArrayRange::begin() const {
  iterator it;
  if (array_.document_ == nullptr) return it;
  it.document_ = array_.document_;
  it.index_ = array_.tapeIndex_ + 1;
  return it;
}

ArrayRange::iterator ArrayRange::end() const {
  iterator it;
  if (array_.document_ == nullptr) return it;
  it.document_ = array_.document_;
  it.index_ = word(array_.document_, array_.tapeIndex_).after_element() - 1;
  return it;
}

Member ObjectRange::iterator::operator*() const {
  return Member{word(document_, index_).get_string_view(), Document::view(document_, index_ + 1)};
}

ObjectRange::iterator& ObjectRange::iterator::operator++() {
  index_ = word(document_, index_ + 1).after_element();
  return *this;
}

ObjectRange::iterator ObjectRange::begin() const {
  iterator it;
  if (object_.document_ == nullptr) return it;
  it.document_ = object_.document_;
  it.index_ = object_.tapeIndex_ + 1;
  return it;
}

ObjectRange::iterator ObjectRange::end() const {
  iterator it;
  if (object_.document_ == nullptr) return it;
  it.document_ = object_.document_;
  it.index_ = word(object_.document_, object_.tapeIndex_).after_element() - 1;
  return it;
}

Value parse(std::string_view text, std::string* error) {
  return parseBytes(text.data(), text.size(), /*padded=*/false, error);
}

Value parse(std::string&& text, std::string* error) {
  std::size_t length = text.size();
  if (text.capacity() - length < simdjson::SIMDJSON_PADDING) {
    return parseBytes(text.data(), length, /*padded=*/false, error);
  }
  // The decoder reads (but ignores) the padding; give it defined bytes.
  text.resize(length + simdjson::SIMDJSON_PADDING);
  text.resize(length);
  return parseBytes(text.data(), length, /*padded=*/true, error);
}

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The code unit of a "\uXXXX" escape starting at `at` (at the backslash), or -1.
int escapedUnit(std::string_view text, std::size_t at) {
  if (at + 6 > text.size() || text[at] != '\\' || text[at + 1] != 'u') return -1;
  int unit = 0;
  for (std::size_t i = at + 2; i < at + 6; ++i) {
    int digit = hexDigit(text[i]);
    if (digit < 0) return -1;
    unit = unit * 16 + digit;
  }
  return unit;
}

}  // namespace

std::string escapedText(std::string_view text) {
  const std::string valid = repairedUtf8(text);
  std::string out;
  out.reserve(valid.size());
  for (char c : valid) {
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          constexpr char kHex[] = "0123456789abcdef";
          out += "\\u00";
          out += kHex[(c >> 4) & 0xF];
          out += kHex[c & 0xF];
        } else {
          out += c;
        }
    }
  }
  return out;
}

std::string mendedText(std::string_view text) {
  std::string mended = repairedUtf8(text);
  // Surrogate escapes that do not form a pair become "\ufffd".
  std::string out;
  out.reserve(mended.size());
  for (std::size_t i = 0; i < mended.size(); ++i) {
    if (mended[i] != '\\' || i + 1 >= mended.size()) {
      out += mended[i];
      continue;
    }
    int unit = escapedUnit(mended, i);
    if (unit < 0xD800 || unit > 0xDFFF) {
      out.append(mended, i, 2);  // any other escape, kept as it is
      ++i;
      continue;
    }
    int next = escapedUnit(mended, i + 6);
    if (unit <= 0xDBFF && next >= 0xDC00 && next <= 0xDFFF) {
      out.append(mended, i, 12);
      i += 11;
    } else {
      out += "\\ufffd";
      i += 5;
    }
  }
  return out;
}

void logMendedFile(const std::string& path) {
  RunLog::write(">>> invalid text mended in {}", path);
}

Value parseFile(const std::string& path, std::string* error, bool* mended) {
  // Every error names its file, so that a log line says which one of many failed.
  auto named = [&path, error](std::string message) {
    if (error) *error = fmt::format("{} ({})", message, path);
  };
  FileText text;
  if (simdjson::error_code code = text.load(path); code != simdjson::SUCCESS) {
    named(simdjson::error_message(code));
    return {};
  }
  std::string firstError;
  Value value = parseBytes(text.data(), text.length(), /*padded=*/true, &firstError);
  if (value.present()) return value;
  // Bad bytes or a lone surrogate in one text must not cost the whole file: mend them and try
  // once more.
  std::string_view bytes(text.data(), text.length());
  std::string repaired = mendedText(bytes);
  if (repaired != bytes) {
    std::string mendedError;
    value = parse(std::move(repaired), &mendedError);
    if (value.present()) {
      if (mended) {
        *mended = true;
      } else {
        logMendedFile(path);
      }
      return value;
    }
    named(std::move(mendedError));
    return {};
  }
  named(std::move(firstError));
  return {};
}

std::size_t paddingBytes() {
  return simdjson::SIMDJSON_PADDING;
}

}  // namespace dataparser::json
