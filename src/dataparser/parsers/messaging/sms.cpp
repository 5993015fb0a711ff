#include "dataparser/parsers/messaging/sms.h"

#include <array>

#include "dataparser/model/message_files.h"
#include "dataparser/model/payload.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/image.h"
#include "dataparser/util/json_files.h"
#include "dataparser/util/run_log.h"

namespace dataparser {
namespace {

const ImagePtr& loadImage(ImagePtr& cache, const std::string& path) {
  if (!cache && !path.empty()) cache = Image::imageWithContentsOfFile(path);
  return cache;
}

const std::string kNoPath;

}  // namespace

// --- IOSSMSSingleItem ---

class IOSSMSSingleItem::Record {
 public:
  // In the order in which the engine writes them, which makes the walk fastest.
  enum Key {
    kText,
    kSubject,
    kSendDate,
    kIsFromMe,
    kSendStatus,
    kService,
    kFromId,
    kType,
    kDuration,
    kMediaInfo,
    kMediaBackupPath,
    kMediaPath,
    kTag,
  };

  explicit Record(json::View record)
      : members_(record.fields({"text", "subject", "send_date", "is_from_me", "send_status",
                                "service", "from_id", "type", "duration", "media_info",
                                "media_backup_path", "media_path", "tag"})) {}

  json::View operator[](Key key) const { return members_[key]; }
  bool hasText() const {
    return !members_[kSubject].string().empty() || !members_[kText].string().empty();
  }

 private:
  std::array<json::View, 13> members_;
};

void IOSSMSSingleItem::initWithDictionary(const json::Value& record) {
  readRecord(record, Record(record.view()), record.view());
}

void IOSSMSSingleItem::initWithDictionary(const json::Value& record, json::View mediaEntry) {
  readRecord(record, Record(record.view()), mediaEntry);
}

// `mediaEntry` holds the attachment paths: the record itself, or one of its "media_info" entries.
void IOSSMSSingleItem::readRecord(const json::Value& record, const Record& members,
                                  json::View mediaEntry) {
  initWithRecord(record, members[Record::kType]);
  setIsReceived(members[Record::kIsFromMe].integer() == 0);
  setIsSendSuccess(members[Record::kSendStatus].integer() == 0);
  setIsiMessage(members[Record::kService].string() == "iMessage");
  setFrom(members[Record::kFromId].stringCopy());
  setSendDate(dateWithDateFormatter(members[Record::kSendDate].string()));
  duration_ = static_cast<float>(members[Record::kDuration].number());
  json::View local = members[Record::kMediaBackupPath];
  json::View device = members[Record::kMediaPath];
  if (mediaEntry != record.view()) {
    auto [entryLocal, entryDevice] = mediaEntry.fields({"media_backup_path", "media_path"});
    local = entryLocal;
    device = entryDevice;
  }
  setAttachmentPath(local.stringCopy());
  setAttachmentDevPath(device.stringCopy());
}

void IOSSMSSingleItem::appendMessagesOfRecord(const json::Value& record, bool parseDeleted,
                                              MessageList& messages) {
  Record members(record.view());
  auto make = [&](json::View mediaEntry) {
    auto message = makeItem<IOSSMSSingleItem>();
    message->readRecord(record, members, mediaEntry);
    return message;
  };
  // Every message of a record shares the record's tag.
  auto dropped = [&](const IOSSMSSingleItem& message) {
    if (parseDeleted) return false;
    message.primeTag(members[Record::kTag]);
    return message.isDeleted() != 0;
  };
  json::View mediaInfo = members[Record::kMediaInfo];
  if (!mediaInfo.isArray() || mediaInfo.size() == 0) {  // an object is the wrong type: no entries
    auto message = make(record.view());
    if (dropped(*message)) return;
    if (members.hasText() || message->attachment()) messages.push_back(std::move(message));
    return;
  }
  for (json::View entry : mediaInfo.elements()) {
    auto message = make(entry);
    if (dropped(*message)) break;  // the whole record is deleted
    if (message->attachment()) messages.push_back(std::move(message));
  }
  if (!members[Record::kText].string().empty()) {
    auto message = make(record.view());
    if (dropped(*message)) return;
    messages.push_back(std::move(message));
  }
}

bool IOSSMSSingleItem::hasText() const {
  return Record(rawData().view()).hasText();
}

const std::string& IOSSMSSingleItem::text() const {
  if (!hasTextField(kTextField)) {
    auto [subject, body] = rawData().fields({"subject", "text"});
    if (subject.string().empty()) {
      storeTextField(kTextField, body.stringCopy());
    } else {
      storeTextField(kTextField, std::string(subject.string()) + "\n" + std::string(body.string()));
    }
  }
  return textField(kTextField);
}

const std::string& IOSSMSSingleItem::strSendDate() const {
  if (!hasTextField(kStrSendDateField)) {
    storeTextField(kStrSendDateField,
                   sendDate() ? stringWithDateFormatter(*sendDate(), kDefaultDateFormat) : "");
  }
  return textField(kStrSendDateField);
}

const std::string& IOSSMSSingleItem::belong() const {
  if (!hasTextField(kBelongField)) {
    storeTextField(kBelongField, rawData()["belong_number"].stringCopy());
  }
  return textField(kBelongField);
}

IOSSMSSingleItem::AttachmentPaths& IOSSMSSingleItem::paths() {
  if (!paths_) paths_ = std::make_unique<AttachmentPaths>();
  return *paths_;
}

const std::string& IOSSMSSingleItem::attachmentPath() const {
  return paths_ ? paths_->local : kNoPath;
}

void IOSSMSSingleItem::setAttachmentPath(std::string path) {
  if (paths_ || !path.empty()) paths().local = std::move(path);
}

const std::string& IOSSMSSingleItem::attachmentDevPath() const {
  return paths_ ? paths_->device : kNoPath;
}

void IOSSMSSingleItem::setAttachmentDevPath(std::string path) {
  if (paths_ || !path.empty()) paths().device = std::move(path);
}

bool IOSSMSSingleItem::isAttachment() const {
  return flag() != 0 || !attachmentPath().empty() || !attachmentDevPath().empty();
}

const AttachmentPtr& IOSSMSSingleItem::attachment() const {
  if (!hasAttachment()) {
    AttachmentPtr made;
    if (!attachmentPath().empty() || !attachmentDevPath().empty()) {
      made = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(rawData());
      made->setLocalPath(attachmentPath());
      made->setDevicePath(attachmentDevPath());
      if (made->type() == kAttachmentAudio) {
        auto voice = makeItem<VoiceItem>();
        voice->setDuration(duration_);
        made->setVoice(std::move(voice));
      }
    }
    storeAttachment(std::move(made));
  }
  return IOSBaseSingleItem::attachment();
}

void IOSSMSSingleItem::describe(FieldVisitor& visitor) const {
  IOSBaseSingleItem::describe(visitor);
  visitor.field("attachmentPath", attachmentPath());
  visitor.field("attachmentDevPath", attachmentDevPath());
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
    auto member = makeItem<IOSMemberItem>();
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
    IOSSMSSingleItem::appendMessagesOfRecord(record.sub(element), parseDeleted, messages);
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
  return loadImage(imageStorage(), imagePath());
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
  std::vector<std::string> files;
  for (json::View path : parser->rawData()["sms_file_path"].elements()) {
    std::string file = path.stringCopy();
    if (backupFileExists(file)) files.push_back(std::move(file));
  }
  // The next file decodes while the conversations of this one are built.
  json::forEachJsonFile(
      files, [&parser](const std::string&, json::Value document, const std::string& error) {
        if (parser->isStopParser()) return false;
        parser->addSessionsOf(document, error);
        return true;
      });
  return parser;
}

void IOSSMSParser::addSessionsOf(const json::Value& document, const std::string& error) {
  if (!document.present()) {
    SystemLog::write(">>>SMS Parser ERROR: {}", error);
    return;
  }
  for (json::View element : document["chat_sessions"].elements()) {
    if (isStopParser()) return;
    if (!element.isObject()) continue;
    auto session = makeItem<IOSSMSSessionItem>();
    session->initWithDictionary(document.sub(element), parseDeleted());
    if (!parseDeleted() && session->isDeleted() != 0) continue;
    if (session->contents().empty()) continue;
    ItemList found = session->attachments();
    attachments().insert(attachments().end(), found.begin(), found.end());
    items().push_back(std::move(session));
  }
}

}  // namespace dataparser
