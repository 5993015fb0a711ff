#include "dataparser/parsers/media/app_file.h"

#include "dataparser/util/byte_count.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/path.h"

namespace dataparser {

void IOSAppFileItem::initWithDictionary(const json::Value& dictionary) {
  IOSBaseItem::initWithDictionary(dictionary);
  size_ = -1;
}

const std::string& IOSAppFileItem::name() const {
  if (name_.empty()) name_ = path::lastPathComponent(devicePath_);
  return name_;
}

const std::string& IOSAppFileItem::extension() const {
  if (extension_.empty()) extension_ = path::pathExtension(devicePath_);
  return extension_;
}

std::int64_t IOSAppFileItem::size() const {
  if (size_ == -1 && !localPath_.empty()) {
    size_ = static_cast<std::int64_t>(backupFileSize(localPath_));
  }
  return size_;
}

const std::string& IOSAppFileItem::strSize() const {
  if (strSize_.empty()) strSize_ = formattedByteCount(size());
  return strSize_;
}

std::string IOSAppFileItem::appDomainOfType(std::string_view type) {
  std::size_t dot = type.rfind('.');
  std::string_view last = dot == std::string_view::npos ? type : type.substr(dot + 1);
  return last.empty() ? std::string("Unknown") : std::string(last);
}

void IOSAppFileItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("name", name());
  visitor.field("extension", extension());
  visitor.field("appDomain", appDomain());
  visitor.field("devicePath", devicePath());
  visitor.field("localPath", localPath());
  visitor.field("strSize", strSize());
  visitor.field("size", size());
  visitor.field("resolvedThumbPath", resolvedThumbPath());
}

void IOSAppFileParser::addJSONData(JSONData data) {
  IOSBaseParser::addJSONData(data);
  const json::Value& batch = rawData();
  if (!batch.isObject()) return;
  json::View entries = batch["media_file"];
  if (!entries.present()) return;
  for (json::View entry : entries.elements()) {
    if (!entry.isObject()) continue;
    auto [backup, relative, type] = entry.fields({"backup_path", "relative_path", "type"});
    auto item = IOSBaseItem::itemWithDictionary<IOSAppFileItem>(json::Value());
    item->setLocalPath(backup.stringCopy());
    item->setDevicePath(relative.stringCopy());
    if (type.isString()) {
      item->setAppDomain(IOSAppFileItem::appDomainOfType(type.string()));
    } else if (type.present()) {
      // A domain that is not text is kept as the value's own JSON text.
      item->setAppDomain(type.toJsonText());
    }
    items().push_back(std::move(item));
  }
}

}  // namespace dataparser
