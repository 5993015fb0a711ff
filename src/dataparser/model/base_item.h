// IOSBaseItem: base of every model item.
//
// An item keeps the JSON object it was built from (`rawData`, a shared handle into the parsed
// document; never a copy), reads its displayed fields from it lazily, and carries the display
// flags that the user interface sets. `tag` is read from "tag" once and cached; `isDeleted` is
// `tag() == "deleted"`.
//
// Items are shared (std::shared_ptr): one attachment may sit in a message and in several lists.
// Make them with the factory, which runs `initWithDictionary` on the new object:
//
//   auto item = IOSBaseItem::itemWithDictionary<IOSSMSSingleItem>(record);
//
// Thread safety: an item is built on one thread; afterwards its getters may be called from one
// thread at a time (lazy fields fill without locking).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "dataparser/model/describable.h"
#include "dataparser/util/json.h"
#include "dataparser/util/slab_memory.h"

namespace dataparser {

// Makes an item (or payload) of class T from `args`. The items of a scan live and go together,
// so they come from slab memory (slab_memory.h) rather than one allocation each.
template <class T, class... Args>
std::shared_ptr<T> makeItem(Args&&... args) {
  return std::allocate_shared<T>(SlabAllocator<T>(), std::forward<Args>(args)...);
}

class IOSBaseItem : public Describable {
 public:
  IOSBaseItem() = default;
  ~IOSBaseItem() override = default;

  // Constructs an item of class T and runs `initWithDictionary(dictionary)` on it.
  template <class T = IOSBaseItem>
  static std::shared_ptr<T> itemWithDictionary(const json::Value& dictionary) {
    auto item = makeItem<T>();
    item->initWithDictionary(dictionary);
    return item;
  }

  // Keeps `dictionary` as `rawData` when it is a JSON object; any other value is ignored and
  // the item has no `rawData`. Subclasses that read more call this first.
  virtual void initWithDictionary(const json::Value& dictionary);

  const json::Value& rawData() const { return rawData_; }
  void setRawData(json::Value rawData) { rawData_ = std::move(rawData); }

  // "tag" of `rawData` when it is a string, else ""; read once, then cached.
  const std::string& tag() const;
  void setTag(std::string tag) { storeTag(std::move(tag)); }
  // 1 when `tag()` is "deleted", else 0. Subclasses with their own deletion rule override it
  // (a conversation answers -1/0/1), so code holding an IOSBaseItem gets the subclass's rule;
  // any non-zero value counts as deleted.
  virtual std::int64_t isDeleted() const { return tag() == "deleted" ? 1 : 0; }

  std::int64_t isSelected() const { return selected_; }
  std::int64_t selected() const { return selected_; }
  void setSelected(std::int64_t selected) { selected_ = selected; }
  bool isHighlighed() const { return highlighed_; }
  void setHighlighed(bool value) { highlighed_ = value; }
  bool isDragHighlighted() const { return dragHighlighted_; }
  void setDragHighlighted(bool value) { dragHighlighted_ = value; }
  bool isVisible() const { return visible_; }
  void setVisible(bool value) { visible_ = value; }

  std::string_view className() const override { return "IOSBaseItem"; }
  void describe(FieldVisitor& visitor) const override;

 protected:
  // Writes the "isDeleted" field of `describe`. A subclass that keeps its own deletion state
  // under that name (a conversation's -1/0/1) overrides this so the field is listed once.
  virtual void describeIsDeleted(FieldVisitor& visitor) const;

  // Fills the tag cache from the record's "tag" member when a subclass already found it while
  // reading the record in one walk; the same as the first tag() call reading it. Does nothing
  // once the tag is known.
  void primeTag(json::View tag) const;

 private:
  // Almost every tag is "" or "deleted"; those need no storage of their own.
  enum class TagState : std::uint8_t { kUnread, kEmpty, kDeleted, kOther };
  void storeTag(std::string tag) const;

  json::Value rawData_;
  // The text of a tag that is neither "" nor "deleted".
  mutable std::unique_ptr<std::string> otherTag_;
  std::int64_t selected_ = 0;
  mutable TagState tagState_ = TagState::kUnread;
  bool highlighed_ = false;
  bool dragHighlighted_ = false;
  bool visible_ = false;
};

using ItemPtr = std::shared_ptr<IOSBaseItem>;
using ItemList = std::vector<ItemPtr>;

}  // namespace dataparser
