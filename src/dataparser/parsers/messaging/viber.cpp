#include "dataparser/parsers/messaging/viber.h"

#include "dataparser/model/message_files.h"
#include "dataparser/model/payload.h"
#include "dataparser/parsers/personal/call_history.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/text.h"

namespace dataparser {
namespace {

// Kinds the parser's attachment list leaves out: plain text and calls.
constexpr std::int64_t kTextKind = 0;
constexpr std::int64_t kCallKind = 9;
constexpr std::int64_t kLinkKind = 30;

// The first of two picture candidates at which a file exists; "" when neither does.
std::string existingPicture(json::View first, json::View second) {
  return firstExistingBackupFile({first.string(), second.string()}).value_or(std::string());
}

std::string_view callStateKey(std::int64_t callType) {
  switch (callType) {
    case 1:
      return "ViberCallHistory_Canceled";
    case 2:
      return "ViberCallHistory_Missed";
    default:
      return "ViberCallHistory_OutgoingOrIncoming";
  }
}

}  // namespace

// --- IOSViberSingleItem ---

std::string_view IOSViberSingleItem::noticeKey(std::uint64_t noticeType) {
  switch (noticeType) {
    case 20:
      return "Viber_GroupNotice_ChangeSubject";
    case 21:
      return "Viber_GroupNotice_AddedIn";
    case 23:
      return "WhatsApp_GroupNotice_Left";  // the WhatsApp text says the same
    case 26:
      return "Viber_GroupNotice_AddSelf";
    case 29:
      return "Viber_GroupNotice_ChangeIcon";
    default:
      return "";
  }
}

void IOSViberSingleItem::initWithDictionary(const json::Value& record) {
  auto [type, fromMe, sendState, sendDate, fromId, phone, tag] = record.fields(
      {"type", "is_from_me", "send_state", "send_date", "from_id", "phone_number", "tag"});
  initWithRecord(record, type);
  setIsReceived(!fromMe.boolean());
  setIsSendSuccess(sendState.integer() == 0);
  if (!sendDate.string().empty()) setSendDate(dateWithDateFormatter(sendDate.string()));
  if (!fromId.string().empty()) {
    setFrom(fromId.stringCopy());
  } else if (!phone.string().empty()) {
    setFrom(phone.stringCopy());
  } else {
    setFrom("Viber_GroupNotice_You_KEY");
  }
  if (record.isObject()) primeTag(tag);
}

const std::string& IOSViberSingleItem::text() const {
  if (!hasTextField(kTextField)) storeTextField(kTextField, rawData()["text"].stringCopy());
  return textField(kTextField);
}

const std::string& IOSViberSingleItem::strSendDate() const {
  return sendDateInDisplayFormat();
}

const std::string& IOSViberSingleItem::strNotice() const {
  if (!hasTextField(kStrNoticeField)) {
    storeTextField(kStrNoticeField, isNotice() ? std::string(noticeKey(noticeType())) : "");
  }
  return textField(kStrNoticeField);
}

const AttachmentPtr& IOSViberSingleItem::attachment() const {
  if (!hasAttachment()) storeAttachment(flag() != 0 ? makeAttachment() : nullptr);
  return IOSBaseSingleItem::attachment();
}

AttachmentPtr IOSViberSingleItem::makeAttachment() const {
  auto [media, thumb, other, origin, fileName, devicePath, mediaType, location, title, summary,
        text, contactName, contactNumber, duration, callType] =
      rawData().fields({"backup_media", "thumb_file_path", "other_file_path", "origin_file_path",
                        "file_name", "media_path", "media_type", "location_info", "title",
                        "summary", "text", "contact_name", "contact_number", "duration",
                        "call_type"});
  AttachmentFields fields;
  fields.localPath =
      firstExistingBackupFile({media.string(), thumb.string(), other.string(), origin.string()})
          .value_or(origin.stringCopy());
  fields.devicePath = devicePath.stringCopy();
  fields.name = fileName.stringCopy();
  fields.flag = flag();
  fields.mediaFlag = kindCode(mediaType);
  AttachmentPtr attachment = attachmentFromRecord(rawData(), std::move(fields));
  switch (attachment->type()) {
    case kAttachmentLocation: {
      auto place = makeItem<LocationItem>();
      place->setLocalInfo(location.isString() ? htmlText(location.string()) : "");
      attachment->setLocation(std::move(place));
      break;
    }
    case kAttachmentLink: {
      auto link = makeItem<LinkItem>();
      link->setTitle(title.stringCopy());
      link->setSummary(summary.stringCopy());
      link->setUrl(text.stringCopy());
      attachment->setLink(std::move(link));
      break;
    }
    case kAttachmentContactCard: {
      auto contact = makeItem<ContactItem>();
      contact->setName(contactName.stringCopy());
      contact->setPhone(contactNumber.stringCopy());
      attachment->setContact(std::move(contact));
      break;
    }
    case kAttachmentAudio: {
      auto voice = makeItem<VoiceItem>();
      voice->setDuration(static_cast<float>(duration.number()));
      attachment->setVoice(std::move(voice));
      break;
    }
    case kAttachmentVoiceCall:
    case kAttachmentVideoCall: {
      auto call = makeItem<CallDurationItem>();
      call->setDuration(static_cast<float>(duration.number()));
      call->setCallHistoryType(static_cast<std::uint64_t>(callType.integer()));
      call->setStrCallHistoryType(std::string(callStateKey(callType.integer())));
      attachment->setCallDuration(std::move(call));
      break;
    }
    default:
      break;
  }
  return attachment;
}

// --- IOSViberSessionItem ---

void IOSViberSessionItem::initWithDictionary(const json::Value& record, bool parseDeleted) {
  initWithDictionary(record, parseDeleted, {});
}

void IOSViberSessionItem::initWithDictionary(
    const json::Value& record, bool parseDeleted,
    const std::function<void(const json::Value&)>& visitDocument) {
  IOSBaseSessionItem::initWithDictionary(record);
  auto [group, sessionName, picture, otherPicture, memberList, files] =
      record.fields({"is_group", "session_name", "media_backup", "other_media_backup", "members",
                     "msg_file_list"});
  setIsGroup(group.integer() == 1);
  setName(sessionName.stringCopy());
  if (std::string thumb = existingPicture(picture, otherPicture); !thumb.empty()) {
    setThumbPath(std::move(thumb));
  }
  setMembers(namedMembers(memberList, "member_name", /*skipUnnamed=*/false,
                          [](IOSMemberItem& member, json::View entry) {
                            member.setThumbPath(existingPicture(entry["media_backup"],
                                                                entry["other_media_backup"]));
                          }));

  MessageFileRules rules;
  rules.factory = messageFactory<IOSViberSingleItem>();
  rules.parseDeleted = parseDeleted;
  rules.listRequired = false;
  rules.eachDocument = visitDocument;
  rules.keep = [this](IOSBaseSingleItem& message) {
    if (message.isReceived() && isGroup()) {
      // A group message shows its sender's picture. Viber members carry no identifier, so in
      // practice no member matches and group messages have none.
      for (const MemberPtr& member : members()) {
        if (!member->identifier().empty() && member->identifier() == message.to()) {
          message.setImage(member->image());
          break;
        }
      }
    }
    // Of the notices only the group notices with a display key are shown.
    return !message.isNotice() || !IOSViberSingleItem::noticeKey(message.noticeType()).empty();
  };
  readMessageFiles(*this, files, rules);
}

const ImagePtr& IOSViberSessionItem::image() const {
  return picture_.load({imagePath(), thumbPath()});
}

// --- IOSViberParser ---

std::shared_ptr<IOSViberParser> IOSViberParser::parserWithJSONData(JSONData data, bool parseDeleted,
                                                                   bool deviceBackup) {
  auto parser = makeWithJSONData<IOSViberParser>(data, parseDeleted, deviceBackup);
  if (!parser->rawData().present()) return parser;
  parser->readCalls(parser->rawData()["viber_calls"]);
  parser->readSessions(parser->rawData());
  return parser;
}

void IOSViberParser::readCalls(json::View calls) {
  if (!calls.present()) return;
  ItemList kept;
  for (json::View entry : calls.elements()) {
    if (!entry.isObject()) continue;
    auto call = IOSBaseItem::itemWithDictionary<IOSCallItem>(rawData().sub(entry));
    if (!parseDeleted() && call->isDeleted()) continue;
    auto [duration, time, name, phone, flags, outcome] =
        entry.fields({"duration", "call_time", "name", "phone_number", "flags", "type"});
    call->setDuration(static_cast<float>(duration.number()));
    call->setName(name.string().empty() ? "Unknown" : name.stringCopy());
    call->setPhone(phone.stringCopy());
    call->setDate(dateWithDateFormatter(time.string()));
    // "flags": 0 incoming, 1 outgoing.
    const std::int64_t direction = flags.integer();
    call->setType(direction == 0 ? 2 : direction == 1 ? 1 : 0);
    const std::int64_t answer = outcome.integer();
    call->setAnswerType(answer == 1 || answer == 2 ? static_cast<std::uint64_t>(answer) : 0);
    kept.push_back(std::move(call));
  }
  setCallHistorys(std::move(kept));
}

void IOSViberParser::readSessions(const json::Value& root) {
  ItemList found;
  auto collect = [this, &found](const json::Value& document) {
    collectAttachments(document, found);
  };
  std::vector<std::string> files;
  messageFilePaths(root["viber_chat_session"], files);
  MessageFileReadAhead readAhead(std::move(files));
  for (json::View entry : root["viber_chat_session"].elements()) {
    if (isStopParser()) break;
    if (!entry.isObject()) continue;
    auto session = makeItem<IOSViberSessionItem>();
    session->initWithDictionary(root.sub(entry), parseDeleted(), collect);
    if (!session->contents().empty()) items().push_back(std::move(session));
  }
  setAttachments(std::move(found));
}

void IOSViberParser::collectAttachments(const json::Value& document, ItemList& found) const {
  forEachMessageRecord(document, [&](const json::Value& record) {
    auto [type, media, other, origin, thumb, profile, title, summary, text] =
        record.fields({"type", "backup_media", "other_file_path", "origin_file_path",
                       "thumb_file_path", "profile_path", "title", "summary", "text"});
    const std::int64_t kind = type.integer();
    if (kind == kTextKind || kind == kCallKind) return;
    if (kind == kLinkKind) {
      AttachmentFields fields;
      fields.flag = static_cast<std::int32_t>(kLinkKind);
      AttachmentPtr attachment = attachmentFromRecord(record, std::move(fields));
      attachment->setType(kAttachmentLink);
      auto link = makeItem<LinkItem>();
      link->setTitle(title.stringCopy());
      link->setSummary(summary.stringCopy());
      link->setUrl(text.stringCopy());
      attachment->setLink(std::move(link));
      found.push_back(std::move(attachment));
      return;
    }
    // Every copy of the media that the engine extracted is listed; one message may give four.
    for (json::View candidate : {media, other, origin, thumb}) {
      if (!candidate.isString()) continue;
      std::string local = candidate.stringCopy();
      if (!mediaFileCounts(local, deviceBackup())) continue;
      AttachmentFields fields;
      fields.localPath = std::move(local);
      fields.devicePath = profile.stringCopy();
      found.push_back(attachmentFromRecord(record, std::move(fields)));
    }
  });
}

}  // namespace dataparser
