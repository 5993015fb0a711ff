#include "dataparser/parsers/messaging/android_whatsapp.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "dataparser/model/message_files.h"
#include "dataparser/model/payload.h"
#include "dataparser/parsers/messaging/whatsapp.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/path.h"

namespace dataparser {
namespace {

constexpr std::string_view kDateFormat = "MM - dd - yyyy HH:mm : ss";
constexpr std::int64_t kLinkKind = 30;
constexpr std::int64_t kNoAttachmentKind = 31;
constexpr std::int64_t kLocationKind = 34;
constexpr std::int64_t kFirstUnknownKind = 35;
constexpr std::uint64_t kAddedNotice = 21;
constexpr std::uint64_t kRemovedNotice = 32;

// A path of the export: relative ones start from the attachments folder.
std::string inFolder(const std::string& folder, std::string_view file) {
  if (file.empty() || file.starts_with('/') || folder.empty()) return std::string(file);
  return path::appendingPathComponent(folder, file);
}

}  // namespace

std::string androidWhatsappAddress(std::string_view address) {
  return whatsappAddress(withLeadingPlus(std::string(address)));
}

std::string_view androidWhatsappNoticeKey(std::uint64_t noticeType) {
  if (noticeType == kAddedNotice) return "AndroidWhatsApp_GroupNotice_AddedIn";
  return whatsappNoticeKey(noticeType);
}

// --- AndroidWhatsAppSingleItem ---

void AndroidWhatsAppSingleItem::initWithDictionary(const json::Value& record) {
  auto [kind, fromMe, status, date, sender] =
      record.fields({"universal_type", "is_from_me", "send_status", "send_date", "sender_id"});
  initWithRecord(record, kind);
  setFlag(static_cast<std::int32_t>(
      std::clamp<std::int64_t>(kind.integerFromText(), std::numeric_limits<std::int32_t>::min(),
                               std::numeric_limits<std::int32_t>::max())));
  setIsReceived(fromMe.integerFromText() == 0);
  setIsSendSuccess(status.integerFromText() != 1);
  setSendDate(dateWithDateFormatter(date.string(), kDateFormat));

  std::string from;
  if (isNotice()) {
    from =
        sender.string().empty() ? systemInfoAddresses() : std::string("+").append(sender.string());
  } else {
    from = sender.stringCopy();
  }
  if (!from.empty()) {
    from = whatsappAddress(from);
    if (!isNotice()) from = withLeadingPlus(std::move(from));
  }
  setFrom(std::move(from));
}

void AndroidWhatsAppSingleItem::setSingleFrom(std::string singleFrom) {
  singleFrom_ = std::move(singleFrom);
  if (from().empty()) setFrom(singleFrom_);
}

std::string AndroidWhatsAppSingleItem::systemInfoAddresses() const {
  std::string joined;
  for (json::View address : rawData()["system_info"].elements()) {
    if (!address.isString()) continue;
    if (!joined.empty()) joined.append(", ");
    joined.append(withLeadingPlus(address.stringCopy()));
  }
  return joined.empty() ? joined : whatsappAddress(joined);
}

const std::string& AndroidWhatsAppSingleItem::text() const {
  if (!hasTextField(kTextField)) {
    auto [content, name, caption, media] =
        rawData().fields({"content", "media_name", "media_caption", "media_path"});
    std::string text = noticeType() == kAddedNotice || noticeType() == kRemovedNotice
                           ? systemInfoAddresses()
                           : content.stringCopy();
    if (text.empty()) text = name.stringCopy();
    if (text.empty()) text = caption.stringCopy();
    if (text.empty()) text = path::lastPathComponent(media.string());
    storeTextField(kTextField, std::move(text));
  }
  return textField(kTextField);
}

const std::string& AndroidWhatsAppSingleItem::strNotice() const {
  if (!hasTextField(kStrNoticeField)) {
    storeTextField(kStrNoticeField, isNotice() ? std::string(androidWhatsappNoticeKey(noticeType()))
                                               : std::string());
  }
  return textField(kStrNoticeField);
}

const std::string& AndroidWhatsAppSingleItem::strSendDate() const {
  return sendDateInDisplayFormat();
}

const std::string& AndroidWhatsAppSingleItem::to() const {
  if (!hasTextField(kToField)) {
    std::string_view to = rawData()["to_id"].string();
    storeTextField(kToField, to.empty() ? std::string() : androidWhatsappAddress(to));
  }
  return textField(kToField);
}

void AndroidWhatsAppSingleItem::describe(FieldVisitor& visitor) const {
  IOSBaseSingleItem::describe(visitor);
  visitor.field("singleFrom", singleFrom_);
}

// --- AndroidWhatsAppSessionItem ---

void AndroidWhatsAppSessionItem::initWithDictionary(const json::Value& record, bool parseDeleted,
                                                    const std::string& attachmentsFolder,
                                                    const DocumentHook& eachDocument) {
  IOSBaseSessionItem::initWithDictionary(record);
  auto [sessionType, jid, subject, members, files] =
      record.fields({"session_type", "jid", "subject", "members", "msg_file_list"});
  const std::int64_t kind = sessionType.integerFromText();
  setIsGroup(kind == 1);
  setBroadcast(kind == 2);
  setName(broadcast() ? whatsappAddress(jid.string()) : subject.stringCopy());
  readMembers(members);

  // Every message of a one-to-one conversation without a sender of its own is the partner's.
  std::string single = isGroup() ? std::string() : androidWhatsappAddress(jid.string());
  MessageFileRules rules;
  rules.factory = messageFactory<AndroidWhatsAppSingleItem>();
  rules.keep = keepRule<AndroidWhatsAppSingleItem>(
      [&single, &attachmentsFolder](AndroidWhatsAppSingleItem& message) {
        if (!single.empty()) message.setSingleFrom(single);
        message.setAttachment(
            AndroidWhatsAppParser::attachmentOf(message.rawData(), attachmentsFolder));
        return !message.text().empty() || message.attachment() || message.isNotice();
      });
  rules.parseDeleted = parseDeleted;
  rules.eachDocument = eachDocument;
  readMessageFiles(*this, files, rules);
}

void AndroidWhatsAppSessionItem::readMembers(json::View members) {
  MemberList list;
  for (json::View entry : members.elements()) {
    if (!entry.isObject()) continue;
    std::string_view jid = entry["member_jid"].string();
    auto member = makeItem<IOSMemberItem>();
    member->setName(whatsappAddress(std::string("+").append(jid)));
    if (!jid.empty()) member->setIdentifier(androidWhatsappAddress(jid));
    list.push_back(std::move(member));
  }
  setMembers(std::move(list));
}

const std::string& AndroidWhatsAppSessionItem::identifier() const {
  if (!identifier_) identifier_ = androidWhatsappAddress(rawData()["jid"].string());
  return *identifier_;
}

// --- AndroidWhatsAppParser ---

std::string AndroidWhatsAppParser::attachmentsFolderFor(const std::string& backupPath) {
  if (backupPath.empty()) return {};
  return path::appendingPathComponent(
      path::deletingLastPathComponent(path::deletingLastPathComponent(backupPath)), "Attachments");
}

AttachmentPtr AndroidWhatsAppParser::attachmentOf(const json::Value& record,
                                                  const std::string& folder) {
  auto [kindValue, mediaPath, name, caption, mediaType, duration, thumb, vcard, linkThumb,
        linkTitle, linkSummary, content, links] =
      record.fields({"universal_type", "media_path", "media_name", "media_caption", "media_type",
                     "media_duration", "thumbnail_file", "vCard_file", "url_thumb_image_file",
                     "url_title", "url_summary", "content", "url_links"});
  const std::int64_t kind = kindValue.integerFromText();
  if (kind == kNoAttachmentKind || kind == -1 || kind >= kFirstUnknownKind) return nullptr;

  AttachmentPtr attachment = IOSBaseItem::itemWithDictionary<IOSAttachmentItem>(record);
  attachment->setFlag(static_cast<std::int32_t>(kind));
  if (kind == kLinkKind) {
    attachment->setType(kAttachmentLink);
    std::string picture = inFolder(folder, linkThumb.string());
    attachment->setThumbPath(picture);
    attachment->setLocalPath(picture);
    auto link = makeItem<LinkItem>();
    link->setTitle(linkTitle.stringCopy());
    link->setSummary(linkSummary.stringCopy());
    link->setText(content.stringCopy());
    // The first address of the list is the one the preview stands for.
    for (json::View url : links.elements()) {
      if (!url.isString()) continue;
      link->setUrl(url.stringCopy());
      break;
    }
    link->setThumbPath(std::move(picture));
    attachment->setLink(std::move(link));
    return attachment;
  }
  if (mediaPath.string().empty()) return nullptr;

  std::string fileName = name.string().empty() ? caption.stringCopy() : name.stringCopy();
  std::string file = inFolder(folder, mediaPath.string());
  attachment->setDevicePath(std::string(mediaPath.string()));
  attachment->setLocalPath(
      convertedWebp(file, file, fileName.empty() ? path::lastPathComponent(file) : fileName));
  attachment->setName(std::move(fileName));
  attachment->setThumbPath(inFolder(folder, thumb.string()));
  attachment->setMediaFlag(static_cast<std::int32_t>(mediaType.integerFromText()));
  const std::uint64_t type = attachment->type();
  if (type == kAttachmentLocation || kind == kLocationKind) {
    auto location = makeItem<LocationItem>();
    location->setLocalInfo(name.stringCopy());
    location->setThumbPath(attachment->thumbPath());
    attachment->setLocation(std::move(location));
  } else if (type == kAttachmentContactCard) {
    auto contact = makeItem<ContactItem>();
    contact->setName(name.stringCopy());
    contact->setVcf(inFolder(folder, vcard.string()));
    attachment->setContact(std::move(contact));
  } else if (type == kAttachmentAudio) {
    auto voice = makeItem<VoiceItem>();
    voice->setDuration(static_cast<float>(duration.numberFromText()));
    attachment->setVoice(std::move(voice));
  }
  return attachment;
}

std::shared_ptr<AndroidWhatsAppParser> AndroidWhatsAppParser::parserWithJSONData(
    JSONData data, bool parseDeleted, bool deviceBackup) {
  return parserWithJSONData(data, parseDeleted, deviceBackup, std::string());
}

std::shared_ptr<AndroidWhatsAppParser> AndroidWhatsAppParser::parserWithJSONData(
    JSONData data, bool parseDeleted, bool deviceBackup, const std::string& backupPath) {
  auto parser = makeWithJSONData<AndroidWhatsAppParser>(data, parseDeleted, deviceBackup);
  parser->setBackupPath(backupPath);
  const json::Value& raw = parser->rawData();
  if (!raw.isObject()) return parser;
  const std::string folder = attachmentsFolderFor(backupPath);

  std::vector<std::string> files;
  messageFilePaths(raw["chat_sessions"], files);
  MessageFileReadAhead readAhead(std::move(files));
  ItemList collected;
  for (json::View element : raw["chat_sessions"].elements()) {
    if (parser->isStopParser()) break;
    if (!element.isObject()) continue;
    ItemList found;
    auto collect = [&](const json::Value& document) {
      if (!document.isObject()) return;
      for (json::View record : document["messages"].elements()) {
        if (!record.isObject()) continue;
        AttachmentPtr attachment = attachmentOf(document.sub(record), folder);
        if (!attachment) continue;
        // A link counts by its preview picture; without a device backup only files on disk.
        if (attachment->type() == kAttachmentLink && attachment->localPath().empty()) continue;
        if (!deviceBackup && !backupFileExists(attachment->localPath())) continue;
        found.push_back(std::move(attachment));
      }
    };
    auto session = makeItem<AndroidWhatsAppSessionItem>();
    session->initWithDictionary(raw.sub(element), parseDeleted, folder, collect);
    if (!parseDeleted && session->isDeleted() != 0) continue;
    if (!session->contents().empty()) parser->items().push_back(session);
    collected.insert(collected.end(), found.begin(), found.end());
  }
  parser->setAttachments(std::move(collected));
  return parser;
}

}  // namespace dataparser
