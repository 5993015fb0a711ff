#include "dataparser/model/base_item.h"

namespace dataparser {

void IOSBaseItem::initWithDictionary(const json::Value& dictionary) {
  if (dictionary.isObject()) rawData_ = dictionary;
}

namespace {

const std::string kNoTag;
const std::string kDeletedTag = "deleted";

}  // namespace

const std::string& IOSBaseItem::tag() const {
  if (tagState_ == TagState::kUnread) storeTag(rawData_["tag"].stringCopy());
  switch (tagState_) {
    case TagState::kDeleted:
      return kDeletedTag;
    case TagState::kOther:
      return *otherTag_;
    default:
      return kNoTag;
  }
}

void IOSBaseItem::primeTag(json::View tag) const {
  if (tagState_ == TagState::kUnread) storeTag(std::string(tag.string()));
}

void IOSBaseItem::storeTag(std::string tag) const {
  otherTag_.reset();
  if (tag.empty()) {
    tagState_ = TagState::kEmpty;
  } else if (tag == kDeletedTag) {
    tagState_ = TagState::kDeleted;
  } else {
    otherTag_ = std::make_unique<std::string>(std::move(tag));
    tagState_ = TagState::kOther;
  }
}

void IOSBaseItem::describe(FieldVisitor& visitor) const {
  visitor.field("tag", tag());
  describeIsDeleted(visitor);
  visitor.field("selected", selected_);
  visitor.field("highlighed", highlighed_);
  visitor.field("dragHighlighted", dragHighlighted_);
  visitor.field("visible", visible_);
}

void IOSBaseItem::describeIsDeleted(FieldVisitor& visitor) const {
  visitor.field("isDeleted", isDeleted() != 0);
}

}  // namespace dataparser
