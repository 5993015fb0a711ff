#include "dataparser/parsers/messaging/whatsapp.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "dataparser/model/message_files.h"
#include "dataparser/model/payload.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_kind.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/path.h"
#include "dataparser/util/text.h"

namespace dataparser {
namespace {

constexpr std::string_view kAddressPattern = ".*(?=@|-.*)";
constexpr std::int32_t kLinkKind = 30;
constexpr std::int32_t kNeverShownKind = 31;
constexpr std::int32_t kForcedPictureKind = 6;
constexpr std::uint64_t kRemovedNotice = 32;
constexpr std::uint64_t kCreatedNotice = 25;
constexpr std::int32_t kFailedStatus = 9;

std::int32_t toInt32(json::View value) {
  return static_cast<std::int32_t>(
      std::clamp<std::int64_t>(value.integer(), std::numeric_limits<std::int32_t>::min(),
                               std::numeric_limits<std::int32_t>::max()));
}

int currentLocalOffset() {
  return localUTCOffsetSeconds(
      std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now()));
}

}  // namespace

// The local copy of a media file; for a ".webp" file on the device, the PNG written from it
// (nothing when that fails).
std::string convertedWebp(const std::string& local, const std::string& device,
                          std::string_view imageName) {
  if (!device.ends_with(".webp")) return local;
  return DPHelper::decodedWebpWithPath(local, imageName).value_or(std::string());
}

std::string whatsappAddress(std::string_view address) {
  // The pattern's "." stops at line ends, so the first line that holds a mark decides. Text
  // that is not plain ASCII goes through the pattern itself, which also refuses bad UTF-8.
  if (!isAscii(address)) {
    return matchWithPattern(address, kAddressPattern).value_or(std::string(address));
  }
  // The text before the last mark of the first line that has one.
  std::size_t lineStart = 0;
  while (true) {
    std::size_t lineEnd = address.find('\n', lineStart);
    if (lineEnd == std::string_view::npos) lineEnd = address.size();
    for (std::size_t j = lineEnd; j > lineStart; --j) {
      if (address[j - 1] == '@' || address[j - 1] == '-') {
        return std::string(address.substr(lineStart, j - 1 - lineStart));
      }
    }
    if (lineEnd == address.size()) return std::string(address);
    lineStart = lineEnd + 1;
  }
}

std::string withLeadingPlus(std::string text) {
  if (!text.empty() && !text.starts_with('+')) text.insert(text.begin(), '+');
  return text;
}

std::string_view whatsappNoticeKey(std::uint64_t noticeType) {
  switch (noticeType) {
    case 20:
      return "WhatsApp_GroupNotice_ChangeSubject";
    case 21:
      return "WhatsApp_GroupNotice_AddedIn";
    case 22:
      return "WhatsApp_GroupNotice_OneToOneAddedIn";
    case 23:
      return "WhatsApp_GroupNotice_Left";
    case 24:
      return "WhatsApp_GroupNotice_Broadcast";
    case 25:
      return "WhatsApp_GroupNotice_CreateGroup";
    case 26:
      return "WhatsApp_GroupNotice_AddSelf";
    case 28:
      return "WhatsApp_GroupNotice_ChangeDescription";
    case 29:
      return "WhatsApp_GroupNotice_ChangeIcon";
    case 32:
      return "WhatsApp_GroupNotice_Remove";
    default:
      return "";
  }
}

// --- IOSWhatsappSingleItem ---

void IOSWhatsappSingleItem::initWithDictionary(const json::Value& record) {
  initWithDictionary(record, currentLocalOffset());
}

void IOSWhatsappSingleItem::initWithDictionary(const json::Value& record, int localOffsetSeconds) {
  // Everything the conversation asks of every message is read in this one pass over the record.
  auto [type, fromMe, status, date, sendName, nameId, fromId, text, tag] =
      record.fields({"type", "ZISFROMME", "ZMESSAGESTATUS", "ZMESSAGEDATE", "send_name", "name_id",
                     "from_id", "text", "tag"});
  initWithRecord(record, type);
  primeTag(tag);
  hasRecordText_ = !text.string().empty();
  setIsReceived(fromMe.integer() == 0);
  setIsSendSuccess(status.integer() != kFailedStatus);
  // A missing date counts as 2001-01-01 and sorts first.
  setSendDate(dateWithSecondsSince2001(date.number() + localOffsetSeconds));
  if (!sendName.string().empty()) {
    setFrom(sendName.stringCopy());
  } else {
    std::string_view sender = nameId.string().empty() ? fromId.string() : nameId.string();
    if (!sender.empty()) setFrom(withLeadingPlus(whatsappAddress(whatsappAddress(sender))));
  }
}

const std::string& IOSWhatsappSingleItem::text() const {
  if (!hasTextField(kTextField)) {
    auto [text, nameId] = rawData().fields({"text", "name_id"});
    if (noticeType() == kRemovedNotice) {
      // The removed member's address stands in the text.
      std::string removed =
          nameId.isString() ? whatsappAddress(nameId.string()) : text.stringCopy();
      storeTextField(kTextField, whatsappAddress(removed));
    } else {
      storeTextField(kTextField, text.stringCopy());
    }
  }
  return textField(kTextField);
}

const std::string& IOSWhatsappSingleItem::strNotice() const {
  if (!hasTextField(kStrNoticeField)) {
    storeTextField(kStrNoticeField,
                   isNotice() ? std::string(whatsappNoticeKey(noticeType())) : std::string());
  }
  return textField(kStrNoticeField);
}

const std::string& IOSWhatsappSingleItem::strSendDate() const {
  return sendDateInDisplayFormat();
}

const std::string& IOSWhatsappSingleItem::to() const {
  if (!hasTextField(kToField)) {
    storeTextField(kToField, withLeadingPlus(whatsappAddress(rawData()["to_id"].string())));
  }
  return textField(kToField);
}

// --- IOSWhatsappSessionItem ---

namespace {

// The attachment a message record carries (any kind but a link): its paths, name, kinds and
// payload. No file needs to exist.
AttachmentPtr messageAttachment(const json::Value& record) {
  auto [mediaBackup, mediaPath, author, thumb, text, type, mediaType, vcardName, vcardString,
        duration] =
      record.fields({"media_backup", "media_path", "ZAUTHORNAME", "media_thumb_backup", "text",
                     "type", "media_type", "ZVCARDNAME", "ZVCARDSTRING", "duration"});
  std::string device = mediaPath.stringCopy();
  std::string deviceName = path::lastPathComponent(device);
  std::string name = author.string().empty() ? deviceName : author.stringCopy();
  std::string local = convertedWebp(mediaBackup.stringCopy(), device, name);
  if (name.empty()) name = text.stringCopy();
  if (name.empty()) name = deviceName;

  AttachmentPtr attachment = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(record);
  attachment->setName(std::move(name));
  attachment->setLocalPath(std::move(local));
  attachment->setDevicePath(std::move(device));
  attachment->setThumbPath(thumb.stringCopy());
  attachment->setFlag(toInt32(type));
  attachment->setMediaFlag(toInt32(mediaType));
  switch (attachment->type()) {
    case kAttachmentLocation: {
      auto location = makeItem<LocationItem>();
      location->setLocalInfo(vcardName.stringCopy());
      location->setThumbPath(attachment->thumbPath());
      attachment->setLocation(std::move(location));
      break;
    }
    case kAttachmentContactCard: {
      auto contact = makeItem<ContactItem>();
      contact->setName(vcardName.stringCopy());
      contact->setVcf(vcardString.stringCopy());
      attachment->setContact(std::move(contact));
      break;
    }
    case kAttachmentAudio: {
      auto voice = makeItem<VoiceItem>();
      voice->setDuration(static_cast<float>(duration.number()));
      attachment->setVoice(std::move(voice));
      break;
    }
    default:
      break;
  }
  return attachment;
}

}  // namespace

void IOSWhatsappSessionItem::initWithDictionary(const json::Value& record, bool parseDeleted,
                                                const DocumentHook& eachDocument) {
  IOSBaseSessionItem::initWithDictionary(record);
  auto [sessionType, name, picture, thumb, members, files] =
      record.fields({"session_type", "name", "profile_backup_path", "profile_thumb_backup_path",
                     "members", "msg_file_list"});
  setIsGroup(sessionType.integer() == 1);
  setName(name.stringCopy());
  setImagePath(picture.stringCopy());
  setThumbPath(thumb.stringCopy());
  readMembers(members);

  const int offset = currentLocalOffset();
  MessageFileRules rules;
  rules.factory = [offset](const json::Value& message) -> MessagePtr {
    auto item = makeItem<IOSWhatsappSingleItem>();
    item->initWithDictionary(message, offset);
    return item;
  };
  rules.keep = keepRule<IOSWhatsappSingleItem>(
      [this](IOSWhatsappSingleItem& message) { return finishMessage(message); });
  // A group-created notice stays ahead of messages of the same date.
  rules.front = [](const IOSBaseSingleItem& message) {
    return message.noticeType() == kCreatedNotice;
  };
  rules.parseDeleted = parseDeleted;
  rules.eachDocument = eachDocument;
  readMessageFiles(*this, files, rules);
}

void IOSWhatsappSessionItem::readMembers(json::View members) {
  MemberList list;
  for (json::View entry : members.elements()) {
    if (!entry.isObject()) continue;
    auto [name, jid, picture, thumb] = entry.fields(
        {"member_name", "member_jid", "profile_backup_path", "profile_thumb_backup_path"});
    auto member = makeItem<IOSMemberItem>();
    member->setName(name.stringCopy());
    member->setImagePath(picture.stringCopy());
    member->setThumbPath(thumb.stringCopy());
    if (jid.isString()) {
      member->setIdentifier(whatsappAddress(whatsappAddress(withLeadingPlus(jid.stringCopy()))));
    }
    list.push_back(std::move(member));
  }
  setMembers(std::move(list));
}

bool IOSWhatsappSessionItem::finishMessage(IOSWhatsappSingleItem& message) const {
  if (message.isReceived() && isGroup()) {
    for (const MemberPtr& member : members()) {
      if (member->identifier() != message.from()) continue;
      message.setFrom(member->name());
      message.setImage(member->image());
      break;
    }
  }
  const std::int32_t kind = message.flag();
  if (kind == kNeverShownKind) return false;
  if (kind == kLinkKind) {
    message.setAttachment(IOSWhatsappParser::linkAttachment(message.rawData()));
  } else if (kind != 0) {
    message.setAttachment(messageAttachment(message.rawData()));
  }
  // Only a removed-member notice changes the text; the others keep the record's.
  const bool hasText =
      message.noticeType() == kRemovedNotice ? !message.text().empty() : message.hasRecordText();
  return hasText || message.isAttachment() || (message.isNotice() && message.noticeType() != 0);
}

const std::string& IOSWhatsappSessionItem::identifier() const {
  if (!identifier_) identifier_ = whatsappAddress(whatsappAddress(rawData()["jid"].string()));
  return *identifier_;
}

const ImagePtr& IOSWhatsappSessionItem::image() const {
  if (!image_) {
    for (const std::string* file : {&imagePath(), &thumbPath()}) {
      if (!backupFileExists(*file)) continue;
      image_ = Image::imageWithContentsOfFile(*file);
      if (image_) break;
    }
  }
  return image_;
}

// --- IOSWhatsappParser ---

AttachmentPtr IOSWhatsappParser::linkAttachment(const json::Value& record) {
  auto [thumb, thumbDevice, title, summary, text, url] = record.fields(
      {"media_thumb_backup", "media_thumb_path", "title", "summary", "text", "ZMEDIAURL"});
  AttachmentPtr attachment = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(record);
  attachment->setFlag(kLinkKind);
  attachment->setType(kAttachmentLink);
  attachment->setLocalPath(thumb.stringCopy());
  attachment->setDevicePath(thumbDevice.stringCopy());
  auto link = makeItem<LinkItem>();
  link->setTitle(title.stringCopy());
  link->setSummary(summary.stringCopy());
  link->setText(text.stringCopy());
  link->setUrl(url.stringCopy());
  link->setThumbPath(thumb.stringCopy());
  attachment->setLink(std::move(link));
  return attachment;
}

void IOSWhatsappParser::collectAttachments(const json::Value& document, ItemList& found) const {
  if (!document.isObject()) return;
  for (json::View element : document["messages"].elements()) {
    if (!element.isObject()) continue;
    // Most records are plain texts: their kind, near the front, is all there is to read.
    const std::int64_t kind = element["type"].integer();
    if (kind == 0) continue;
    const json::Value record = document.sub(element);
    auto [mediaBackup, mediaPath, thumb] =
        record.fields({"media_backup", "media_path", "media_thumb_backup"});
    if (kind == kLinkKind) {
      found.push_back(linkAttachment(record));
      continue;
    }
    std::string device = mediaPath.stringCopy();
    std::string local =
        convertedWebp(mediaBackup.stringCopy(), device, path::lastPathComponent(device));
    std::string thumbPath = thumb.stringCopy();
    // From a folder of extracted files only what is on disk counts; a device backup has it all.
    if (!deviceBackup() && !backupFileExists(local) && !backupFileExists(thumbPath)) {
      continue;
    }
    AttachmentPtr attachment = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(record);
    attachment->setLocalPath(std::move(local));
    attachment->setDevicePath(std::move(device));
    attachment->setThumbPath(std::move(thumbPath));
    if (kind == kForcedPictureKind) attachment->setType(kForcedPictureKind);
    found.push_back(std::move(attachment));
  }
}

std::shared_ptr<IOSWhatsappParser> IOSWhatsappParser::parserWithJSONData(JSONData data,
                                                                         bool parseDeleted,
                                                                         bool deviceBackup) {
  auto parser = makeWithJSONData<IOSWhatsappParser>(data, parseDeleted, deviceBackup);
  const json::Value& raw = parser->rawData();
  if (!raw.isObject()) return parser;
  // The Business app writes its own key; the regular one wins when both are there.
  json::View sessions = raw["whatsapp_chatsessions"];
  if (sessions.type() == json::Type::kAbsent) sessions = raw["whatsappBusiness_chatsessions"];

  std::vector<std::string> files;
  messageFilePaths(sessions, files);
  // The attachment lists test each record's media file and thumbnail.
  MessageFileReadAhead readAhead(std::move(files),
                                 {"messages", {"media_backup", "media_thumb_backup"}});
  ItemList collected;
  for (json::View element : sessions.elements()) {
    if (parser->isStopParser()) break;
    if (!element.isObject()) continue;
    ItemList found;
    auto session = makeItem<IOSWhatsappSessionItem>();
    session->initWithDictionary(raw.sub(element), parseDeleted,
                                [&parser, &found](const json::Value& document) {
                                  parser->collectAttachments(document, found);
                                });
    if (!parseDeleted && session->isDeleted() != 0) continue;
    // A conversation without messages still gives its files' attachments.
    if (!session->contents().empty()) parser->items().push_back(session);
    collected.insert(collected.end(), found.begin(), found.end());
  }
  parser->setAttachments(std::move(collected));
  return parser;
}

}  // namespace dataparser
