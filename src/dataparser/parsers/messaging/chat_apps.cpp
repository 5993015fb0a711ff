#include "dataparser/parsers/messaging/chat_apps.h"

#include <algorithm>
#include <limits>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/image.h"

namespace dataparser {

bool mediaFileCounts(const std::string& path, bool deviceBackup) {
  return deviceBackup || backupFileExists(path);
}

AttachmentPtr attachmentFromRecord(const json::Value& record, AttachmentFields fields) {
  AttachmentPtr attachment = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(record);
  if (!fields.localPath.empty()) attachment->setLocalPath(std::move(fields.localPath));
  if (!fields.devicePath.empty()) attachment->setDevicePath(std::move(fields.devicePath));
  if (!fields.thumbPath.empty()) attachment->setThumbPath(std::move(fields.thumbPath));
  if (!fields.name.empty()) attachment->setName(std::move(fields.name));
  attachment->setFlag(fields.flag);
  attachment->setMediaFlag(fields.mediaFlag);
  return attachment;
}

void forEachMessageRecord(const json::Value& document,
                          const std::function<void(const json::Value& record)>& visit) {
  if (!document.isObject()) return;
  for (json::View record : document["messages"].elements()) {
    if (record.isObject()) visit(document.sub(record));
  }
}

std::int32_t kindCode(json::View value) {
  return static_cast<std::int32_t>(
      std::clamp<std::int64_t>(value.integer(), std::numeric_limits<std::int32_t>::min(),
                               std::numeric_limits<std::int32_t>::max()));
}

void showAccountAlias(IOSAccountItem& account, AccountAliases& aliases) {
  aliases.apply(account);
  account.setDisplayAccount(account.account());
}

MemberList namedMembers(json::View records, std::string_view nameKey, bool skipUnnamed,
                        const std::function<void(IOSMemberItem&, json::View record)>& finish) {
  MemberList members;
  for (json::View record : records.elements()) {
    if (!record.isObject()) continue;
    json::View name = record[nameKey];
    if (skipUnnamed && !name.present()) continue;
    auto member = makeItem<IOSMemberItem>();
    member->setName(name.stringCopy());
    if (finish) finish(*member, record);
    members.push_back(std::move(member));
  }
  return members;
}

const ImagePtr& LazyPicture::load(std::initializer_list<std::string_view> candidates) const {
  if (tried_) return image_;
  tried_ = true;
  for (std::string_view candidate : candidates) {
    if (candidate.empty()) continue;
    image_ = Image::imageWithContentsOfFile(std::string(candidate));
    if (image_) break;
  }
  return image_;
}

}  // namespace dataparser
