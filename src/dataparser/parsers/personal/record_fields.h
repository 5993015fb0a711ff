// Small pieces shared by the personal-data items: a compact store for lazily read text fields,
// the "first middle last" name join, whole seconds of a duration, and the plain-parser loop over
// a list of entry records.
//
// LazyTexts<N> keeps N text fields in one block that is allocated only for the first non-empty
// value, plus one "known" bit per field: an item whose fields are never read, or read as "",
// carries one pointer. A getter reads through `get(i, reader)`; a setter stores with `set`, and
// a stored value always wins over the record.
//
// Thread safety: as for the items (built on one thread, read from one thread at a time).
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "dataparser/model/base_parser.h"
#include "dataparser/util/json.h"

namespace dataparser {

template <std::size_t N>
class LazyTexts {
  static_assert(N <= 64);

 public:
  bool known(std::size_t field) const { return (known_ >> field) & 1U; }

  // The stored value; "" when none is stored.
  const std::string& value(std::size_t field) const {
    static const std::string kEmpty;
    return values_ ? (*values_)[field] : kEmpty;
  }

  void set(std::size_t field, std::string text) const {
    known_ |= std::uint64_t{1} << field;
    if (!values_) {
      if (text.empty()) return;
      values_ = std::make_unique<std::array<std::string, N>>();
    }
    (*values_)[field] = std::move(text);
  }

  // The field, filled by `read()` on first use.
  template <class Reader>
  const std::string& get(std::size_t field, Reader&& read) const {
    if (!known(field)) set(field, read());
    return value(field);
  }

 private:
  mutable std::unique_ptr<std::array<std::string, N>> values_;
  mutable std::uint64_t known_ = 0;
};

// "first middle last" with the empty parts left out and single spaces between the others.
inline std::string joinedName(std::string_view first, std::string_view middle,
                              std::string_view last) {
  std::string name(first);
  for (std::string_view part : {middle, last}) {
    if (part.empty()) continue;
    if (!name.empty()) name.push_back(' ');
    name.append(part);
  }
  return name;
}

// The name parts "first", "middle" and "last" of a record, joined as above.
inline std::string joinedName(json::View record) {
  auto [first, middle, last] = record.fields({"first", "middle", "last"});
  return joinedName(first.string(), middle.string(), last.string());
}

// A duration cut to whole seconds toward zero; values that are not finite or do not fit count
// as 0 or saturate, so hostile numbers never reach an undefined conversion.
inline std::int64_t wholeSeconds(double seconds) {
  if (!std::isfinite(seconds)) return 0;
  constexpr double kLimit = 9.0e18;
  if (seconds >= kLimit) return static_cast<std::int64_t>(kLimit);
  if (seconds <= -kLimit) return -static_cast<std::int64_t>(kLimit);
  return static_cast<std::int64_t>(seconds);
}

// A number read as a 32-bit float, the way the items keep durations; out-of-range values
// saturate instead of overflowing.
inline float floatSeconds(json::View value) {
  double number = value.number();
  constexpr double kMax = std::numeric_limits<float>::max();
  if (number > kMax) return std::numeric_limits<float>::infinity();
  if (number < -kMax) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(number);
}

// The integer of a value truncated to 32 bits, as the platform's `intValue` does.
inline std::int32_t int32Value(json::View value) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(value.integer()));
}

// The loop of the plain list parsers: one item of class Item per element of `list` (an
// element of `document`), in order. Elements that are not objects are skipped when
// `skipNonObjects`; items marked deleted are skipped when `filterDeleted` and the parser does not
// keep deleted data; `keep(item)` may refuse an item; the rest go to the parser's items.
template <class Item, class Keep>
void appendEntries(IOSBaseParser& parser, const json::Value& document, json::View list,
                   bool skipNonObjects, bool filterDeleted, Keep&& keep) {
  for (json::View element : list.elements()) {
    if (skipNonObjects && !element.isObject()) continue;
    auto item = IOSBaseItem::itemWithDictionary<Item>(document.sub(element));
    if (filterDeleted && !parser.parseDeleted() && item->isDeleted()) continue;
    if (!keep(*item)) continue;
    parser.items().push_back(std::move(item));
  }
}

}  // namespace dataparser
