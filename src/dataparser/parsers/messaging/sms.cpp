#include "dataparser/parsers/messaging/sms.h"

#include "dataparser/core/file_helper.h"
#include "dataparser/model/message_files.h"
#include "dataparser/model/payload.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/image.h"
#include "dataparser/util/run_log.h"

namespace dataparser {
namespace {

// A path field: its string, or "" for null, absent and non-strings.
std::string pathOf(json::View value) {
  return value.stringCopy();
}

ImagePtr loadImage(ImagePtr& cache, const std::string& path) {
  if (!cache && !path.empty()) cache = Image::imageWithContentsOfFile(path);
  return cache;
}

}  // namespace

// --- IOSSMSSingleItem ---

void IOSSMSSingleItem::initWithDictionary(const json::Value& record) {
  IOSBaseSingleItem::initWithDictionary(record);
  readRecord(record);
  attachmentPath_ = pathOf(record["media_backup_path"]);
  attachmentDevPath_ = pathOf(record["media_path"]);
}

void IOSSMSSingleItem::initWithDictionary(const json::Value& record, json::View mediaEntry) {
  IOSBaseSingleItem::initWithDictionary(record);
  readRecord(record);
  attachmentPath_ = pathOf(mediaEntry["media_backup_path"]);
  attachmentDevPath_ = pathOf(mediaEntry["media_path"]);
}

void IOSSMSSingleItem::readRecord(const json::Value& record) {
  setIsReceived(record["is_from_me"].integer() == 0);
  setIsSendSuccess(record["send_status"].integer() == 0);
  setIsiMessage(record["service"].string() == "iMessage");
  setFrom(record["from_id"].stringCopy());
  setSendDate(dateWithDateFormatter(record["send_date"].string()));
  type_ = record["type"].integer();
  duration_ = static_cast<float>(record["duration"].number());
}

bool IOSSMSSingleItem::hasText() const {
  return !rawData()["subject"].string().empty() || !rawData()["text"].string().empty();
}

const std::string& IOSSMSSingleItem::text() const {
  if (!text_) {
    std::string_view subject = rawData()["subject"].string();
    std::string_view body = rawData()["text"].string();
    if (subject.empty()) {
      text_ = std::string(body);
    } else {
      text_ = std::string(subject) + "\n" + std::string(body);
    }
  }
  return *text_;
}

const std::string& IOSSMSSingleItem::strSendDate() const {
  if (!strSendDate_) {
    strSendDate_ = sendDate() ? stringWithDateFormatter(*sendDate(), kDefaultDateFormat) : "";
  }
  return *strSendDate_;
}

const std::string& IOSSMSSingleItem::belong() const {
  if (!belong_) belong_ = rawData()["belong_number"].stringCopy();
  return *belong_;
}

bool IOSSMSSingleItem::isAttachment() const {
  return type_ != 0 || !attachmentPath_.empty() || !attachmentDevPath_.empty();
}

const AttachmentPtr& IOSSMSSingleItem::attachment() const {
  if (!attachment_) {
    AttachmentPtr made;
    if (!attachmentPath_.empty() || !attachmentDevPath_.empty()) {
      made = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(rawData());
      made->setLocalPath(attachmentPath_);
      made->setDevicePath(attachmentDevPath_);
      if (made->type() == kAttachmentAudio) {
        auto voice = std::make_shared<VoiceItem>();
        voice->setDuration(duration_);
        made->setVoice(std::move(voice));
      }
    }
    attachment_ = std::move(made);
  }
  return *attachment_;
}

void IOSSMSSingleItem::describe(FieldVisitor& visitor) const {
  IOSBaseSingleItem::describe(visitor);
  visitor.field("attachmentPath", attachmentPath_);
  visitor.field("attachmentDevPath", attachmentDevPath_);
  visitor.field("duration", duration_);
}

// --- IOSSMSSessionItem ---

void IOSSMSSessionItem::initWithDictionary(const json::Value& record, bool parseDeleted) {
  IOSBaseSessionItem::initWithDictionary(record);
  chatId_ = record["chat_id"].integer();
  // A conversation deleted on the phone says so; otherwise its state comes from its messages.
  if (record["is_deleted"].integer() != 0) setIsDeleted(1);
  setIsGroup(record["is_group"].integer() == 1);
  setImagePath(record["image_path"].stringCopy());
  setThumbPath(record["thumb_path"].stringCopy());
  readMembers(record["members"]);
  readMessages(record, parseDeleted);
  setName(displayName(record.view()));
}

void IOSSMSSessionItem::readMembers(json::View members) {
  MemberList list;
  for (json::View entry : members.elements()) {
    if (!entry.isObject()) continue;
    auto member = std::make_shared<IOSMemberItem>();
    std::string name;
    for (std::string_view part :
         {entry["first"].string(), entry["middle"].string(), entry["last"].string()}) {
      if (part.empty()) continue;
      if (!name.empty()) name.push_back(' ');
      name.append(part);
    }
    member->setName(std::move(name));
    member->setPhone(entry["phone_number"].stringCopy());
    member->setIdentifier(std::to_string(entry["handle_id"].integer()));
    list.push_back(std::move(member));
  }
  setMembers(std::move(list));
}

void IOSSMSSessionItem::readMessages(const json::Value& record, bool parseDeleted) {
  MessageList messages;
  for (json::View element : record["messages"].elements()) {
    if (!element.isObject()) continue;
    json::Value object = record.sub(element);
    json::View mediaInfo = element["media_info"];
    if (mediaInfo.size() == 0) {
      auto message = IOSBaseItem::itemWithDictionary<IOSSMSSingleItem>(object);
      if (!parseDeleted && message->isDeleted()) continue;
      if (message->hasText() || message->attachment()) messages.push_back(std::move(message));
      continue;
    }
    for (json::View entry : mediaInfo.elements()) {
      auto message = std::make_shared<IOSSMSSingleItem>();
      message->initWithDictionary(object, entry);
      if (!parseDeleted && message->isDeleted()) break;  // the whole record is deleted
      if (message->attachment()) messages.push_back(std::move(message));
    }
    if (!element["text"].string().empty()) {
      auto message = IOSBaseItem::itemWithDictionary<IOSSMSSingleItem>(object);
      if (!parseDeleted && message->isDeleted()) continue;
      messages.push_back(std::move(message));
    }
  }
  sortBySendDate(messages);
  setContents(std::move(messages));
}

std::string IOSSMSSessionItem::displayName(json::View record) const {
  if (std::string_view room = record["room_name"].string(); !room.empty()) {
    return std::string(room);
  }
  if (std::string_view display = record["display_name"].string(); !display.empty()) {
    return std::string(display);
  }
  std::string joined;
  for (const MemberPtr& member : members()) {
    const std::string& part = member->name().empty() ? member->phone() : member->name();
    if (part.empty()) continue;
    if (!joined.empty()) joined.push_back(',');
    joined.append(part);
  }
  return joined.empty() ? "Unknown" : joined;
}

const std::string& IOSSMSSessionItem::identifier() const {
  if (!identifier_) identifier_ = rawData()["chat_identifier"].stringCopy();
  return *identifier_;
}

const ImagePtr& IOSSMSSessionItem::image() const {
  loadImage(image_, imagePath());
  return image_;
}

const ImagePtr& IOSSMSSessionItem::thumb() const {
  loadImage(thumb_, thumbPath());
  return thumb_;
}

ItemList IOSSMSSessionItem::attachments() const {
  ItemList list;
  for (const MessagePtr& message : contents()) {
    if (!message->isAttachment()) continue;
    if (const AttachmentPtr& attachment = message->attachment()) list.push_back(attachment);
  }
  return list;
}

void IOSSMSSessionItem::describe(FieldVisitor& visitor) const {
  IOSBaseSessionItem::describe(visitor);
  visitor.field("chatId", chatId_);
  visitor.field("thumb", thumb());
}

// --- IOSSMSParser ---

std::shared_ptr<IOSSMSParser> IOSSMSParser::parserWithJSONData(JSONData data, bool parseDeleted,
                                                               bool deviceBackup) {
  auto parser = makeWithJSONData<IOSSMSParser>(data, parseDeleted, deviceBackup);
  if (!parser->rawData().isObject()) return parser;
  for (json::View path : parser->rawData()["sms_file_path"].elements()) {
    if (parser->isStopParser()) break;
    std::string file = path.stringCopy();
    if (fileExists(file)) parser->parseFile(file);
  }
  return parser;
}

void IOSSMSParser::parseFile(const std::string& path) {
  std::string error;
  json::Value document = json::parseFile(path, &error);
  if (!document.present()) {
    SystemLog::write(">>>SMS Parser ERROR: {}", error);
    return;
  }
  for (json::View element : document["chat_sessions"].elements()) {
    if (isStopParser()) return;
    if (!element.isObject()) continue;
    auto session = std::make_shared<IOSSMSSessionItem>();
    session->initWithDictionary(document.sub(element), parseDeleted());
    if (!parseDeleted() && session->isDeleted() != 0) continue;
    if (session->contents().empty()) continue;
    ItemList found = session->attachments();
    attachments().insert(attachments().end(), found.begin(), found.end());
    items().push_back(std::move(session));
  }
}

}  // namespace dataparser
