#include "dataparser/model/base_item.h"

namespace dataparser {

void IOSBaseItem::initWithDictionary(const json::Value& dictionary) {
  if (dictionary.isObject()) rawData_ = dictionary;
}

const std::string& IOSBaseItem::tag() const {
  if (!tag_) tag_ = rawData_["tag"].stringCopy();
  return *tag_;
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
  visitor.field("isDeleted", isDeleted());
}

}  // namespace dataparser
