#include "dataparser/parsers/messaging/line.h"

#include <cmath>

#include "dataparser/model/payload.h"
#include "dataparser/parsers/messaging/chat_apps.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/path.h"
#include "dataparser/util/text.h"

namespace dataparser {
namespace {

// LINE stores links as ordinary text messages; their kind is shown as plain text.
constexpr std::int32_t kLinkKind = 30;
constexpr std::int32_t kPlainNoticeKind = 13;

const std::string kNoPath;

}  // namespace

// --- IOSLineSingleItem ---

void IOSLineSingleItem::initWithDictionary(const json::Value& record) {
  auto [type, fromMe, sendStatus, sendDate, fromId, media, devicePath, thumb, tag] =
      record.fields({"type", "is_from_me", "send_status", "send_date", "from_id", "backup_media",
                     "media_path", "backup_thumb", "tag"});
  initWithRecord(record, type);
  if (flag() == kLinkKind) setFlag(0);
  setIsNotice(flag() == kPlainNoticeKind);
  setIsReceived(fromMe.integer() == 0);
  setIsSendSuccess(sendStatus.integer() == 0);
  if (!sendDate.string().empty()) setSendDate(dateWithDateFormatter(sendDate.string()));
  setFrom(fromId.stringCopy());
  if (media.isString() || devicePath.isString() || thumb.isString()) {
    setAttachmentPath(media.stringCopy());
    setAttachmentDevPath(devicePath.stringCopy());
    setAttachmentThumbPath(thumb.stringCopy());
  }
  if (record.isObject()) primeTag(tag);
}

const std::string& IOSLineSingleItem::text() const {
  if (!hasTextField(kTextField)) storeTextField(kTextField, rawData()["text"].stringCopy());
  return textField(kTextField);
}

const std::string& IOSLineSingleItem::strSendDate() const {
  return sendDateInDisplayFormat();
}

IOSLineSingleItem::Paths& IOSLineSingleItem::paths() {
  if (!paths_) paths_ = std::make_unique<Paths>();
  return *paths_;
}

const std::string& IOSLineSingleItem::attachmentPath() const {
  return paths_ ? paths_->local : kNoPath;
}

const std::string& IOSLineSingleItem::attachmentDevPath() const {
  return paths_ ? paths_->device : kNoPath;
}

const std::string& IOSLineSingleItem::attachmentThumbPath() const {
  return paths_ ? paths_->thumb : kNoPath;
}

const AttachmentPtr& IOSLineSingleItem::attachment() const {
  if (!hasAttachment()) storeAttachment(flag() != 0 ? makeAttachment() : nullptr);
  return IOSBaseSingleItem::attachment();
}

AttachmentPtr IOSLineSingleItem::makeAttachment() const {
  auto [textValue, mediaType, duration] = rawData().fields({"text", "media_type", "duration"});
  const std::string_view text = textValue.string();
  AttachmentFields fields;
  fields.localPath = attachmentPath();
  fields.devicePath = attachmentDevPath();
  fields.thumbPath = attachmentThumbPath();
  fields.name = text.empty() ? path::lastPathComponent(attachmentDevPath()) : std::string(text);
  fields.flag = flag();
  fields.mediaFlag = kindCode(mediaType);
  AttachmentPtr attachment = attachmentFromRecord(rawData(), std::move(fields));
  switch (attachment->type()) {
    case kAttachmentLocation: {
      auto location = makeItem<LocationItem>();
      location->setLocalInfo(stringByReplacingOccurrences(text, "\t", "\n"));
      attachment->setLocation(std::move(location));
      break;
    }
    case kAttachmentContactCard: {
      auto contact = makeItem<ContactItem>();
      contact->setName(std::string(text));
      attachment->setContact(std::move(contact));
      break;
    }
    case kAttachmentAudio: {
      // Voice notes are timed in milliseconds.
      auto voice = makeItem<VoiceItem>();
      voice->setDuration(static_cast<float>(std::round(duration.number() / 1000.0)));
      attachment->setVoice(std::move(voice));
      break;
    }
    case kAttachmentVoiceCall: {
      // Calls are not: their duration is taken as it stands.
      auto call = makeItem<CallDurationItem>();
      call->setDuration(static_cast<float>(duration.number()));
      attachment->setCallDuration(std::move(call));
      break;
    }
    default:
      break;
  }
  return attachment;
}

void IOSLineSingleItem::describe(FieldVisitor& visitor) const {
  IOSBaseSingleItem::describe(visitor);
  visitor.field("attachmentPath", attachmentPath());
  visitor.field("attachmentDevPath", attachmentDevPath());
  visitor.field("attachmentThumbPath", attachmentThumbPath());
}

// --- IOSLineSessionItem ---

void IOSLineSessionItem::initWithDictionary(const json::Value& record, bool parseDeleted) {
  initWithDictionary(record, parseDeleted, {});
}

void IOSLineSessionItem::initWithDictionary(
    const json::Value& record, bool parseDeleted,
    const std::function<void(const json::Value&)>& visitDocument) {
  IOSBaseSessionItem::initWithDictionary(record);
  auto [isGroup, contactName, sessionName, members, files] =
      record.fields({"is_group", "contact_name", "session_name", "members", "msg_file_list"});
  setIsGroup(isGroup.integer() == 1);
  setName(contactName.string().empty() ? sessionName.stringCopy() : contactName.stringCopy());
  setMembers(namedMembers(members, "name", /*skipUnnamed=*/false));

  MessageFileRules rules;
  rules.factory = messageFactory<IOSLineSingleItem>();
  rules.parseDeleted = parseDeleted;
  rules.listRequired = false;
  rules.eachDocument = visitDocument;
  readMessageFiles(*this, files, rules);
}

const std::string& IOSLineSessionItem::identifier() const {
  if (!identifier_) identifier_ = rawData()["mid"].stringCopy();
  return *identifier_;
}

const ImagePtr& IOSLineSessionItem::image() const {
  static const ImagePtr kNone;
  return kNone;
}

// --- IOSLineAccountItem ---

void IOSLineAccountItem::initWithDictionary(const json::Value& record, bool parseDeleted) {
  initWithDictionary(record, parseDeleted, {});
}

void IOSLineAccountItem::initWithDictionary(
    const json::Value& record, bool parseDeleted,
    const std::function<void(const json::Value&)>& visitDocument) {
  IOSAccountItem::initWithDictionary(record);
  setAccount(record["account_id"].stringCopy());
  setDisplayAccount(account());
  SessionList sessions;
  for (json::View entry : record["line_chat_sessions"].elements()) {
    if (!entry.isObject()) continue;
    auto session = makeItem<IOSLineSessionItem>();
    session->initWithDictionary(record.sub(entry), parseDeleted, visitDocument);
    sessions.push_back(std::move(session));
  }
  setItems(std::move(sessions));
}

// --- IOSLineParser ---

void IOSLineParser::addJSONData(JSONData data) {
  IOSBaseParser::addJSONData(data);
  const json::Value& root = rawData();
  if (!root.isObject() || !root["line_accounts"].present()) return;
  ItemList found;
  auto collect = [this, &found](const json::Value& document) {
    collectAttachments(document, found);
  };
  std::vector<std::string> files;
  for (json::View entry : root["line_accounts"].elements())
    if (entry.isObject()) messageFilePaths(entry["line_chat_sessions"], files);
  MessageFileReadAhead readAhead(std::move(files));
  for (json::View entry : root["line_accounts"].elements()) {
    if (isStopParser()) break;
    if (!entry.isObject()) continue;
    auto account = makeItem<IOSLineAccountItem>();
    account->initWithDictionary(root.sub(entry), parseDeleted(), collect);
    showAccountAlias(*account, accountDict_);
    // Every account is listed, with or without conversations.
    items().push_back(std::move(account));
  }
  attachments().insert(attachments().end(), found.begin(), found.end());
}

void IOSLineParser::collectAttachments(const json::Value& document, ItemList& found) const {
  forEachMessageRecord(document, [&](const json::Value& record) {
    auto [media, thumb, devicePath, deviceThumb, text, type, mediaType] = record.fields(
        {"backup_media", "backup_thumb", "media_path", "thumb_path", "text", "type", "media_type"});
    std::string name =
        text.isString() ? text.stringCopy() : path::lastPathComponent(devicePath.string());
    AttachmentFields fields;
    fields.localPath = media.stringCopy();
    fields.devicePath = devicePath.stringCopy();
    fields.name = name;
    fields.flag = kindCode(type);
    fields.mediaFlag = kindCode(mediaType);
    if (deviceBackup()) {
      // The files are still arriving: list the media and its thumbnail whatever the kind.
      found.push_back(attachmentFromRecord(record, std::move(fields)));
      AttachmentFields thumbnail;
      thumbnail.devicePath = deviceThumb.stringCopy();
      thumbnail.thumbPath = thumb.stringCopy();
      thumbnail.name = std::move(name);
      found.push_back(attachmentFromRecord(record, std::move(thumbnail)));
    } else if (mediaFileCounts(fields.localPath, false)) {
      fields.thumbPath = thumb.stringCopy();
      found.push_back(attachmentFromRecord(record, std::move(fields)));
    }
  });
}

}  // namespace dataparser
