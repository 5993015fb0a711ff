#include "dataparser/model/conversation.h"

#include <algorithm>
#include <array>
#include <limits>

#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"

namespace dataparser {

namespace {

// Notices are the system lines of a chat (joined, left, changed the subject, ...).
constexpr std::int32_t kFirstNoticeFlag = 20;
constexpr std::int32_t kLastNoticeFlag = 29;
constexpr std::int32_t kPlainNoticeFlag = 13;  // a notice without a notice code of its own
constexpr std::int32_t kExtraNoticeFlag = 32;

bool isNoticeCode(std::int32_t flag) {
  return flag == kExtraNoticeFlag || (flag >= kFirstNoticeFlag && flag <= kLastNoticeFlag);
}

std::int32_t clampToInt32(std::int64_t value) {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(
      value, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

// Loads the picture at `path` when a file exists there; nothing otherwise.
ImagePtr loadPicture(const std::string& path) {
  if (!backupFileExists(path)) return nullptr;
  return Image::imageWithContentsOfFile(path);
}

}  // namespace

// --- IOSBaseSingleItem ---

void IOSBaseSingleItem::initWithDictionary(const json::Value& dictionary) {
  initWithRecord(dictionary, dictionary["type"]);
}

void IOSBaseSingleItem::initWithRecord(const json::Value& record, json::View type) {
  IOSBaseItem::initWithDictionary(record);
  // Only an object's member counts (rawData is kept for objects only).
  flag_ = record.isObject() ? clampToInt32(type.integer()) : 0;
}

namespace {

// The texts worked out under TransientTexts: one slot per kind of text, with the message it
// belongs to.
struct TransientText {
  const IOSBaseSingleItem* owner = nullptr;
  std::string value;
};
thread_local bool transientTexts = false;
thread_local std::array<TransientText, 5> transientSlots;

}  // namespace

TransientTexts::TransientTexts() : outer_(transientTexts) {
  transientTexts = true;
}

TransientTexts::~TransientTexts() {
  transientTexts = outer_;
  if (!outer_) transientSlots = {};
}

const std::string& IOSBaseSingleItem::textField(TextField field) const {
  static_assert(kTextFieldCount == std::tuple_size_v<decltype(transientSlots)>);
  static const std::string kEmpty;
  if (transientTexts && !hasTextField(field) && transientSlots[field].owner == this) {
    return transientSlots[field].value;
  }
  return texts_ ? texts_->values[field] : kEmpty;
}

void IOSBaseSingleItem::storeTextField(TextField field, std::string value) const {
  if (transientTexts) {
    transientSlots[field] = {this, std::move(value)};
    return;
  }
  keepTextField(field, std::move(value));
}

void IOSBaseSingleItem::keepTextField(TextField field, std::string value) const {
  knownFields_ |= static_cast<std::uint8_t>(1U << field);
  if (!texts_) {
    if (value.empty()) return;
    texts_ = makeSlabUnique<TextFields>();
  }
  texts_->values[field] = std::move(value);
}

void IOSBaseSingleItem::storeAttachment(AttachmentPtr attachment) const {
  knownFields_ |= static_cast<std::uint8_t>(1U << kTextFieldCount);
  attachment_ = std::move(attachment);
}

bool IOSBaseSingleItem::isNotice() const {
  return flag_ == kPlainNoticeFlag || isNoticeCode(flag_);
}

std::uint64_t IOSBaseSingleItem::noticeType() const {
  return isNoticeCode(flag_) ? static_cast<std::uint64_t>(flag_) : 0;
}

bool IOSBaseSingleItem::isAttachment() const {
  return flag_ != 0 && !isNotice();
}

const std::string& IOSBaseSingleItem::strNotice() const {
  if (textField(kStrNoticeField).empty() && isNotice()) {
    storeTextField(kStrNoticeField, rawData()["text"].stringCopy());
  }
  return textField(kStrNoticeField);
}

void IOSBaseSingleItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("belong", belong());
  visitor.field("text", text());
  visitor.field("sendDate", sendDate());
  visitor.field("strSendDate", strSendDate());
  visitor.field("from", from());
  visitor.field("to", to());
  visitor.field("isNotice", isNotice());
  visitor.field("noticeType", noticeType());
  visitor.field("strNotice", strNotice());
  visitor.field("attachment", attachment());
  visitor.field("isAttachment", isAttachment());
  visitor.field("isReceived", isReceived());
  visitor.field("isSendSuccess", isSendSuccess());
  visitor.field("isiMessage", isiMessage());
  visitor.field("flag", flag());
  visitor.field("image", image());
}

// --- IOSMemberItem ---

const ImagePtr& IOSMemberItem::thumb() const {
  if (!thumb_) thumb_ = loadPicture(thumbPath_);
  return thumb_;
}

const ImagePtr& IOSMemberItem::image() const {
  if (!image_) {
    // The full picture when its file exists, else the thumbnail's file.
    std::optional<std::string> file = firstExistingBackupFile({imagePath_, thumbPath_});
    if (file) image_ = Image::imageWithContentsOfFile(*file);
  }
  return image_;
}

void IOSMemberItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("identifier", identifier());
  visitor.field("name", name());
  visitor.field("phone", phone());
  visitor.field("imagePath", imagePath());
  visitor.field("thumbPath", thumbPath());
  visitor.field("image", image());
  visitor.field("thumb", thumb());
}

// --- IOSBaseSessionItem ---

void IOSBaseSessionItem::initWithDictionary(const json::Value& dictionary) {
  IOSBaseItem::initWithDictionary(dictionary);
  isDeleted_ = kDeletionNotComputed;
}

std::int64_t IOSBaseSessionItem::isDeleted() const {
  if (isDeleted_ != kDeletionNotComputed) return isDeleted_;
  const auto deleted = std::count_if(contents_.begin(), contents_.end(),
                                     [](const MessagePtr& m) { return m && m->isDeleted(); });
  if (deleted == 0) {
    isDeleted_ = 0;
  } else if (static_cast<std::size_t>(deleted) == contents_.size()) {
    isDeleted_ = 1;
  } else {
    isDeleted_ = -1;
  }
  return isDeleted_;
}

MessageList IOSBaseSessionItem::filteredContents() const {
  return filteredContents_ ? *filteredContents_ : contents_;
}

const OptionalDate& IOSBaseSessionItem::recentDate() const {
  if (!recentDate_ && !contents_.empty() && contents_.back()) {
    recentDate_ = contents_.back()->sendDate();
  }
  return recentDate_;
}

const std::string& IOSBaseSessionItem::strRecentDate() const {
  if (strRecentDate_.empty() && !contents_.empty() && contents_.back()) {
    strRecentDate_ = contents_.back()->strSendDate();
  }
  return strRecentDate_;
}

std::string_view attachmentSummaryKey(std::uint64_t type) {
  // Keys the user interface translates; spelled exactly so ("a audio", "samll app").
  switch (type) {
    case kAttachmentPhoto:
      return "Social Message Attachment - [a photo]";
    case kAttachmentVideo:
      return "Social Message Attachment - [a video]";
    case kAttachmentAudio:
      return "Social Message Attachment - [a audio]";
    case kAttachmentDocument:
    case kAttachmentOther:
      return "Social Message Attachment - [a attachment]";
    case kAttachmentContactCard:
      return "Social Message Attachment - [contact card]";
    case kAttachmentLocation:
      return "Social Message Attachment - [location]";
    case kAttachmentVoiceCall:
      return "Social Message Attachment - [voice call]";
    case kAttachmentVideoCall:
      return "Social Message Attachment - [video call]";
    case kAttachmentRedPacket:
      return "Social Message Attachment - [redpacket]";
    case kAttachmentMoneyTransfer:
      return "Social Message Attachment - [money transfer]";
    case kAttachmentEmoji:
      return "Social Message Attachment - [emoji]";
    case kAttachmentMiniProgram:
      return "Social Message Attachment - [samll app]";
    case kAttachmentSubscribeNews:
      return "Social Message Attachment - [subscribenews]";
    default:
      return "";
  }
}

const std::string& IOSBaseSessionItem::recentMessage() const {
  if (!recentMessage_.empty() || contents_.empty() || !contents_.back()) return recentMessage_;
  const IOSBaseSingleItem& last = *contents_.back();
  if (last.isAttachment()) {
    // A payload message without its attachment object has no kind, so no summary.
    const std::uint64_t type = last.attachment() ? last.attachment()->type() : 0;
    if (type == kAttachmentLink) {
      const auto& link = last.attachment()->link();
      recentMessage_ = link ? link->title() : std::string();
    } else {
      recentMessage_ = attachmentSummaryKey(type);
    }
  } else {
    // Line feeds are dropped, not turned into spaces.
    recentMessage_ = last.text();
    std::erase(recentMessage_, '\n');
  }
  return recentMessage_;
}

void IOSBaseSessionItem::resetRecentFields() {
  isDeleted_ = kDeletionNotComputed;
  recentDate_.reset();
  strRecentDate_.clear();
  recentMessage_.clear();
}

void IOSBaseSessionItem::describeIsDeleted(FieldVisitor& visitor) const {
  visitor.field("isDeleted", isDeleted());
}

void IOSBaseSessionItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);  // "isDeleted" comes out as this class's -1/0/1
  visitor.field("identifier", identifier());
  visitor.field("name", name());
  visitor.field("isGroup", isGroup());
  visitor.field("broadcast", broadcast());
  visitor.field("members", members());
  visitor.field("contents", contents());
  visitor.field("selectedContents", selectedContents());
  visitor.field("filteredContents", filteredContents());
  visitor.field("imagePath", imagePath());
  visitor.field("thumbPath", thumbPath());
  visitor.field("image", image());
  visitor.field("recentDate", recentDate());
  visitor.field("strRecentDate", strRecentDate());
  visitor.field("recentMessage", recentMessage());
}

// --- IOSAccountItem ---

void IOSAccountItem::describe(FieldVisitor& visitor) const {
  IOSBaseItem::describe(visitor);
  visitor.field("displayAccount", displayAccount());
  visitor.field("account", account());
  visitor.field("name", name());
  visitor.field("phoneNumber", phoneNumber());
  visitor.field("items", items());
  visitor.field("contacts", contacts());
  visitor.field("selectedItems", selectedItems());
  visitor.field("filteredItems", filteredItems());
  visitor.field("sessionSelectedIndex", sessionSelectedIndex());
  visitor.field("contactsSelectedIndex", contactsSelectedIndex());
}

const std::string& IOSBaseSingleItem::sendDateInDisplayFormat() const {
  if (!hasTextField(kStrSendDateField)) {
    storeTextField(kStrSendDateField, sendDate() ? stringWithDateFormatter(*sendDate()) : "");
  }
  return textField(kStrSendDateField);
}

}  // namespace dataparser
