#include "dataparser/parsers/media/other_attachment.h"

#include "dataparser/model/attachment.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/run_log.h"

namespace dataparser {

ItemList* IOSOtherAttachmentParser::currentList() {
  switch (attachmentType_) {
    case -8:
      return &wechatAttachments_;
    case -7:
      return &viberAttachments_;
    case -6:
      return &lineAttachments_;
    case -5:
      return &kikAttachments_;
    case -4:
      return &whatsappAttachments_;
    case -3:
      return &noteAttachments_;
    default:
      return nullptr;
  }
}

void IOSOtherAttachmentParser::addJSONData(JSONData data) {
  IOSBaseParser::addJSONData(data);
  const json::Value& batch = rawData();
  if (!batch.isObject()) return;
  json::View entries = batch["media_file"];
  if (!entries.present()) return;
  for (json::View entry : entries.elements()) {
    if (!entry.isObject()) continue;
    auto [backup, relative] = entry.fields({"backup_path", "relative_path"});
    std::string_view backupPath = backup.string();
    std::string_view relativePath = relative.string();
    if (backupPath.empty() || relativePath.empty()) continue;
    ItemList* list = currentList();
    if (list == nullptr) continue;
    std::string local(backupPath);
    // A folder or a device at the backup path is no attachment, nor a file outside the backup.
    if (!isBackupFile(local)) continue;
    if (isExistLocalFile(local, relativePath, *list)) continue;
    AttachmentPtr attachment = IOSAttachmentItem::item();
    attachment->setLocalPath(std::move(local));
    attachment->setDevicePath(std::string(relativePath));
    list->push_back(std::move(attachment));
  }
}

bool IOSOtherAttachmentParser::isExistLocalFile(std::string_view /*localPath*/,
                                                std::string_view devicePath, const ItemList& list) {
  for (const ItemPtr& item : list) {
    const auto* attachment = dynamic_cast<const IOSAttachmentItem*>(item.get());
    if (attachment != nullptr && attachment->devicePath() == devicePath) {
      RunLog::write("same filePath:{}", attachment->devicePath());
      return true;
    }
  }
  return false;
}

}  // namespace dataparser
