#include "dataparser/parsers/messaging/kik.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "dataparser/model/message_files.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/path.h"
#include "dataparser/util/text.h"

namespace dataparser {
namespace {

constexpr std::int32_t kPlainNoticeKind = 13;

const std::string kNoPath;

// Kik dates count seconds since 2001-01-01 UTC; they are shown as the phone's wall-clock time,
// so the local zone's present offset is added on purpose.
OptionalDate kikDate(json::View seconds) {
  OptionalDate date = dateWithSecondsSince2001(seconds.number());
  if (!date) return date;
  const Date now =
      std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
  return *date + std::chrono::seconds(localUTCOffsetSeconds(now));
}

}  // namespace

// --- IOSKikSingleItem ---

void IOSKikSingleItem::initWithDictionary(const json::Value& record) {
  auto [type, fromMe, sendState, sendDate, fromId, media, tag] = record.fields(
      {"type", "is_from_me", "send_state", "send_date", "from_id", "media_backup", "tag"});
  initWithRecord(record, type);
  setIsNotice(flag() == kPlainNoticeKind);
  setIsReceived(fromMe.integer() == 0);
  setIsSendSuccess(sendState.integer() == 0);
  setSendDate(kikDate(sendDate));
  setFrom(fromId.stringCopy());
  if (!media.string().empty()) {
    setAttachmentName(path::lastPathComponent(media.string()));
    setAttachmentPath(media.stringCopy());
  }
  if (record.isObject()) primeTag(tag);
}

IOSKikSingleItem::Paths& IOSKikSingleItem::paths() {
  if (!paths_) paths_ = std::make_unique<Paths>();
  return *paths_;
}

const std::string& IOSKikSingleItem::attachmentPath() const {
  return paths_ ? paths_->local : kNoPath;
}

const std::string& IOSKikSingleItem::attachmentName() const {
  return paths_ ? paths_->name : kNoPath;
}

const std::string& IOSKikSingleItem::text() const {
  if (!hasTextField(kTextField)) storeTextField(kTextField, rawData()["text"].stringCopy());
  return textField(kTextField);
}

const std::string& IOSKikSingleItem::strSendDate() const {
  return sendDateInDisplayFormat();
}

const AttachmentPtr& IOSKikSingleItem::attachment() const {
  if (!hasAttachment()) {
    AttachmentPtr made;
    if (flag() != 0) {
      // The thumbnail is looked for in the working root's "temp" folder, under the media's name.
      std::string thumb = path::appendingPathComponent(productDomainPath(), "temp");
      if (!attachmentName().empty()) {
        thumb = path::appendingPathComponent(thumb, path::safeComponent(attachmentName()));
      }
      AttachmentFields fields;
      fields.localPath = attachmentPath();
      fields.thumbPath = std::move(thumb);
      fields.flag = flag();
      made = attachmentFromRecord(rawData(), std::move(fields));
    }
    storeAttachment(std::move(made));
  }
  return IOSBaseSingleItem::attachment();
}

void IOSKikSingleItem::describe(FieldVisitor& visitor) const {
  IOSBaseSingleItem::describe(visitor);
  visitor.field("attachmentPath", attachmentPath());
  visitor.field("attachmentName", attachmentName());
}

// --- IOSKikSessionItem ---

void IOSKikSessionItem::initWithDictionary(const json::Value& record, bool parseDeleted) {
  IOSBaseSessionItem::initWithDictionary(record);
  auto [isGroup, thumbFile, sessionName, members, files] =
      record.fields({"is_group", "thumb_file", "session_name", "members", "msg_file_list"});
  setIsGroup(isGroup.integer() == 1);
  setImagePath(thumbFile.stringCopy());
  setName(sessionName.stringCopy());

  MessageFileRules rules;
  rules.factory = messageFactory<IOSKikSingleItem>();
  rules.parseDeleted = parseDeleted;
  rules.listRequired = false;
  // Empty lines are left out: a message needs words, an attachment or a notice.
  rules.keep = [](IOSBaseSingleItem& message) {
    return !message.text().empty() || message.isAttachment() || message.isNotice();
  };
  readMessageFiles(*this, files, rules);

  if (members.present()) setMembers(namedMembers(members, "member_name", /*skipUnnamed=*/true));
}

const std::string& IOSKikSessionItem::identifier() const {
  if (!identifier_) identifier_ = rawData()["session_id"].stringCopy();
  return *identifier_;
}

const ImagePtr& IOSKikSessionItem::image() const {
  return picture_.load({imagePath()});
}

// --- IOSKikAccountItem ---

void IOSKikAccountItem::initWithDictionary(const json::Value& record, bool parseDeleted) {
  IOSAccountItem::initWithDictionary(record);
  setAccount(record["account_id"].stringCopy());
  setDisplayAccount(account());
  SessionList sessions;
  for (json::View entry : record["kik_chat_sessions"].elements()) {
    if (!entry.isObject()) continue;
    auto session = makeItem<IOSKikSessionItem>();
    session->initWithDictionary(record.sub(entry), parseDeleted);
    if (!session->contents().empty()) sessions.push_back(std::move(session));
  }
  setItems(std::move(sessions));
}

// --- IOSKikParser ---

void IOSKikParser::addJSONData(JSONData data) {
  IOSBaseParser::addJSONData(data);
  const json::Value& root = rawData();
  if (!root.isObject() || !root["kik_accounts"].present()) return;
  // Aliases are numbered afresh for every piece.
  AccountAliases aliases;
  ItemList found;
  std::vector<std::string> files;
  for (json::View entry : root["kik_accounts"].elements())
    if (entry.isObject()) messageFilePaths(entry["kik_chat_sessions"], files);
  MessageFileReadAhead readAhead(std::move(files));
  for (json::View entry : root["kik_accounts"].elements()) {
    if (isStopParser()) break;
    if (!entry.isObject()) continue;
    const json::Value record = root.sub(entry);
    auto account = makeItem<IOSKikAccountItem>();
    account->initWithDictionary(record, parseDeleted());
    showAccountAlias(*account, aliases);
    if (!account->items().empty()) items().push_back(std::move(account));
    // Media files are listed even when the account has nothing to show.
    collectMediaFiles(record, found);
  }
  attachments().insert(attachments().end(), found.begin(), found.end());
}

void IOSKikParser::collectMediaFiles(const json::Value& account, ItemList& found) const {
  for (json::View entry : account["media_file_info"].elements()) {
    if (!entry.isObject()) continue;
    auto [file, suffix, plistId] = entry.fields({"data_file_path", "data_suffix", "plist_id"});
    std::string local = file.stringCopy();
    if (!mediaFileCounts(local, deviceBackup())) continue;
    AttachmentFields fields;
    // The suffix goes on the device path too, so that the kind test sees the extension.
    fields.devicePath = local + std::string(suffix.string());
    fields.name = std::string(plistId.string()) + std::string(suffix.string());
    fields.localPath = std::move(local);
    found.push_back(attachmentFromRecord(account.sub(entry), std::move(fields)));
  }
}

// --- IOSKikThumbItem ---

void IOSKikThumbItem::initWithDictionary(const json::Value& record) {
  IOSBaseItem::initWithDictionary(record);
  auto [plistId, size, data] = record.fields({"plist_id", "data_size", "data"});
  name_ = plistId.stringCopy();
  size_ = static_cast<std::int32_t>(
      std::clamp<std::int64_t>(size.integer(), std::numeric_limits<std::int32_t>::min(),
                               std::numeric_limits<std::int32_t>::max()));
  if (data.isString()) thumbData_ = jk_dataWithBase64EncodedString(data.string());
}

void IOSKikThumbItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("name", name());
  if (thumbData_) {
    visitor.field("thumbData", jk_base64EncodedString(*thumbData_));
  } else {
    visitor.field("thumbData", std::optional<std::string>());
  }
  visitor.field("size", size());
}

// --- IOSKikThumbParser ---

std::string IOSKikThumbParser::thumbnailFolder() {
  return path::appendingPathComponent(productDomainPath(), "data/thumbnail");
}

void IOSKikThumbParser::addJSONData(JSONData data) {
  IOSBaseParser::addJSONData(data);
  const json::Value& root = rawData();
  if (!root.isObject() || !root["media_datas"].present()) return;
  const std::string folder = thumbnailFolder();
  for (json::View entry : root["media_datas"].elements()) {
    if (isStopParser()) break;
    if (!entry.isObject()) continue;
    auto item = IOSBaseItem::itemWithDictionary<IOSKikThumbItem>(root.sub(entry));
    createDirectories(folder);
    if (!item->name().empty() && item->thumbData()) {
      // The identifier comes from the backup: it names one file inside the folder, nothing else.
      writeFileAtomically(path::appendingPathComponent(folder, path::safeComponent(item->name())),
                          *item->thumbData());
    }
    items().push_back(std::move(item));
  }
}

}  // namespace dataparser
