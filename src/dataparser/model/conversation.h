// The conversation model shared by every messaging source: an account (IOSAccountItem) owns
// conversations (IOSBaseSessionItem); a conversation owns its messages (IOSBaseSingleItem,
// oldest first) and, for groups, its members (IOSMemberItem). The chat parsers build app
// subclasses of these four; the classes here carry the shared logic:
//
//   - message classification by the kind code `flag` (record key "type"):
//       isNotice      flag in 20...29, 13 or 32
//       noticeType    flag when it is 32 or in 20...29, else 0 (13 is a notice of type 0)
//       isAttachment  flag != 0 and not a notice
//     The getters always recompute from `flag`; what the setters store is kept but never
//     consulted.
//   - the conversation's deletion state `isDeleted`: 0 none, 1 all, -1 some of its messages
//     deleted; computed once from `contents` (1000 marks "not computed yet").
//   - `filteredContents`: the stored list, or a fresh copy of `contents` while none is stored.
//   - `recentDate`, `strRecentDate`, `recentMessage`: the last message's date, date text and a
//     one-line summary (display keys for attachments), derived on first read and kept.
//   - member pictures loaded on first read; a failed load is retried on the next read.
//
// Getters that an app reads lazily from its record (text, dates shown, attachment, identifier,
// picture) are virtual, so the shared logic sees the app's values.
// Ownership: items and lists hold std::shared_ptr; a message's attachment and picture are shared
// with other lists. Lists are copied in and out by value.
// Thread safety: built on the parsing thread; afterwards read from one thread at a time (lazy
// fields fill without locking). A parser that changes `contents` after they were read must call
// `resetRecentFields` so the derived fields are worked out again.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dataparser/model/attachment.h"
#include "dataparser/model/base_item.h"
#include "dataparser/util/date.h"
#include "dataparser/util/image.h"

namespace dataparser {

using ImagePtr = std::shared_ptr<const Image>;

// While one is held on a thread, the lazy texts of messages (text, strSendDate, to ...) that are
// not worked out yet are worked out for the moment only, not kept in the message: a pass over
// every message of a finished scan (an export, a report) then leaves the model as small as it
// found it. Such a text is valid until the same text of another message is read on the thread;
// read it at once. Texts given to setters are always kept.
class TransientTexts {
 public:
  TransientTexts();
  ~TransientTexts();
  TransientTexts(const TransientTexts&) = delete;
  TransientTexts& operator=(const TransientTexts&) = delete;

 private:
  bool outer_;
};

class IOSBaseSingleItem : public IOSBaseItem {
 public:
  // Keeps the record as rawData and sets `flag` from its "type" (absent or not a number: 0).
  void initWithDictionary(const json::Value& dictionary) override;

  // --- classification, always computed from `flag` ---
  bool isNotice() const;
  void setIsNotice(bool isNotice) { isNotice_ = isNotice; }
  std::uint64_t noticeType() const;
  void setNoticeType(std::uint64_t noticeType) { noticeType_ = noticeType; }
  virtual bool isAttachment() const;
  void setIsAttachment(bool isAttachment) { isAttachment_ = isAttachment; }
  // The record's "text" for a notice, read on first use and then kept. Apps with display keys
  // of their own override it.
  virtual const std::string& strNotice() const;
  void setStrNotice(std::string strNotice) { keepTextField(kStrNoticeField, std::move(strNotice)); }

  virtual const std::string& belong() const { return textField(kBelongField); }
  void setBelong(std::string belong) { keepTextField(kBelongField, std::move(belong)); }
  virtual const std::string& text() const { return textField(kTextField); }
  void setText(std::string text) { keepTextField(kTextField, std::move(text)); }
  OptionalDate sendDate() const {
    if (sendDate_ == kNoDate) return std::nullopt;
    return Date(std::chrono::microseconds(sendDate_));
  }
  void setSendDate(OptionalDate sendDate) {
    sendDate_ = sendDate ? sendDate->time_since_epoch().count() : kNoDate;
  }
  virtual const std::string& strSendDate() const { return textField(kStrSendDateField); }
  void setStrSendDate(std::string strSendDate) {
    keepTextField(kStrSendDateField, std::move(strSendDate));
  }
  const std::string& from() const { return from_; }
  void setFrom(std::string from) { from_ = std::move(from); }
  virtual const std::string& to() const { return textField(kToField); }
  void setTo(std::string to) { keepTextField(kToField, std::move(to)); }
  virtual const AttachmentPtr& attachment() const { return attachment_; }
  void setAttachment(AttachmentPtr attachment) { storeAttachment(std::move(attachment)); }
  bool isReceived() const { return isReceived_; }
  void setIsReceived(bool isReceived) { isReceived_ = isReceived; }
  bool isSendSuccess() const { return isSendSuccess_; }
  void setIsSendSuccess(bool isSendSuccess) { isSendSuccess_ = isSendSuccess; }
  bool isiMessage() const { return isiMessage_; }
  void setIsiMessage(bool isiMessage) { isiMessage_ = isiMessage; }
  std::int32_t flag() const { return flag_; }
  void setFlag(std::int32_t flag) { flag_ = flag; }
  const ImagePtr& image() const { return image_; }
  void setImage(ImagePtr image) { image_ = std::move(image); }

  std::string_view className() const override { return "IOSBaseSingleItem"; }
  void describe(FieldVisitor& visitor) const override;

 protected:
  // Keeps the record as rawData and sets `flag` from `type`, the record's "type" member that a
  // subclass already found (initWithDictionary looks it up itself).
  void initWithRecord(const json::Value& record, json::View type);

  // The text fields that most messages never fill, or that an app works out only when they are
  // first read. They share one block allocated for the first non-empty value, so a message
  // without them carries one pointer instead of five strings. An app's lazy getter asks
  // `hasTextField` whether the value is known (worked out before, or given to the setter, which
  // always wins) and otherwise fills it with `storeTextField`:
  //   if (!hasTextField(kTextField)) storeTextField(kTextField, readTextFromRecord());
  //   return textField(kTextField);
  enum TextField : std::uint8_t {
    kBelongField,
    kTextField,
    kStrSendDateField,
    kToField,
    kStrNoticeField,
    kTextFieldCount,
  };
  bool hasTextField(TextField field) const { return (knownFields_ >> field) & 1U; }
  // The lazy `strSendDate` of the apps whose records hold a date value: `sendDate` in the display
  // format ("" without a date), worked out on first read; the setter wins.
  const std::string& sendDateInDisplayFormat() const;
  // The stored value; "" when none is stored.
  const std::string& textField(TextField field) const;
  // Stores a value worked out from the record (under TransientTexts, only for the moment).
  void storeTextField(TextField field, std::string value) const;
  // Stores a value given to a setter, always.
  void keepTextField(TextField field, std::string value) const;

  // The same for `attachment`, which apps may build on first read.
  bool hasAttachment() const { return (knownFields_ >> kTextFieldCount) & 1U; }
  void storeAttachment(AttachmentPtr attachment) const;

 private:
  struct TextFields {
    std::string values[kTextFieldCount];
  };

  mutable SlabUniquePtr<TextFields> texts_;
  // Microseconds since 1970, kNoDate for none: a million messages carry one word, not an optional.
  static constexpr std::int64_t kNoDate = std::numeric_limits<std::int64_t>::min();
  std::int64_t sendDate_ = kNoDate;
  std::string from_;
  mutable AttachmentPtr attachment_;
  ImagePtr image_;
  std::uint64_t noticeType_ = 0;
  std::int32_t flag_ = 0;
  // One bit per TextField, then one for the attachment: the value is known.
  mutable std::uint8_t knownFields_ = 0;
  bool isNotice_ = false;
  bool isAttachment_ = false;
  bool isReceived_ = false;
  bool isSendSuccess_ = false;
  bool isiMessage_ = false;
};

using MessagePtr = std::shared_ptr<IOSBaseSingleItem>;
using MessageList = std::vector<MessagePtr>;

class IOSMemberItem : public IOSBaseItem {
 public:
  // The picture at imagePath, else at thumbPath, whichever file exists; loaded once it loads.
  const ImagePtr& image() const;
  void setImage(ImagePtr image) { image_ = std::move(image); }
  // The picture at thumbPath; loaded once it loads.
  const ImagePtr& thumb() const;
  void setThumb(ImagePtr thumb) { thumb_ = std::move(thumb); }

  const std::string& identifier() const { return identifier_; }
  void setIdentifier(std::string identifier) { identifier_ = std::move(identifier); }
  const std::string& name() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }
  const std::string& phone() const { return phone_; }
  void setPhone(std::string phone) { phone_ = std::move(phone); }
  const std::string& imagePath() const { return imagePath_; }
  void setImagePath(std::string path) { imagePath_ = std::move(path); }
  const std::string& thumbPath() const { return thumbPath_; }
  void setThumbPath(std::string path) { thumbPath_ = std::move(path); }

  std::string_view className() const override { return "IOSMemberItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  std::string identifier_;
  std::string name_;
  std::string phone_;
  std::string imagePath_;
  std::string thumbPath_;
  mutable ImagePtr image_;
  mutable ImagePtr thumb_;
};

using MemberPtr = std::shared_ptr<IOSMemberItem>;
using MemberList = std::vector<MemberPtr>;

class IOSBaseSessionItem : public IOSBaseItem {
 public:
  // The mark of a deletion state not computed yet.
  static constexpr std::int64_t kDeletionNotComputed = 1000;

  // Keeps the record as rawData and marks the deletion state as not computed.
  void initWithDictionary(const json::Value& dictionary) override;

  // The conversation's own deletion state: 0 no message deleted (or none at all), 1 every
  // message deleted, -1 some. Worked out from `contents` on the first call and then kept.
  // It replaces IOSBaseItem's tag test (a conversation has no "tag" of its own that matters),
  // also for code holding an IOSBaseItem reference.
  std::int64_t isDeleted() const override;
  void setIsDeleted(std::int64_t isDeleted) { isDeleted_ = isDeleted; }

  // The stored filter list, or, while none is stored, a new copy of `contents` on every call.
  MessageList filteredContents() const;
  void setFilteredContents(std::optional<MessageList> list) { filteredContents_ = std::move(list); }

  // The last message's sendDate / strSendDate / summary, derived on first read once `contents`
  // is not empty, then kept.
  const OptionalDate& recentDate() const;
  void setRecentDate(OptionalDate date) { recentDate_ = date; }
  const std::string& strRecentDate() const;
  void setStrRecentDate(std::string text) { strRecentDate_ = std::move(text); }
  const std::string& recentMessage() const;
  void setRecentMessage(std::string text) { recentMessage_ = std::move(text); }
  // Forgets the derived fields (deletion state, recent date, texts) after `contents` changed.
  void resetRecentFields();

  virtual const std::string& identifier() const { return identifier_; }
  void setIdentifier(std::string identifier) { identifier_ = std::move(identifier); }
  const std::string& name() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }
  bool isGroup() const { return isGroup_; }
  void setIsGroup(bool isGroup) { isGroup_ = isGroup; }
  bool broadcast() const { return broadcast_; }
  void setBroadcast(bool broadcast) { broadcast_ = broadcast; }
  const MemberList& members() const { return members_; }
  MemberList& members() { return members_; }
  void setMembers(MemberList members) { members_ = std::move(members); }
  // All messages, oldest first.
  const MessageList& contents() const { return contents_; }
  MessageList& contents() { return contents_; }
  void setContents(MessageList contents) { contents_ = std::move(contents); }
  const MessageList& selectedContents() const { return selectedContents_; }
  void setSelectedContents(MessageList list) { selectedContents_ = std::move(list); }
  const std::string& imagePath() const { return imagePath_; }
  void setImagePath(std::string path) { imagePath_ = std::move(path); }
  const std::string& thumbPath() const { return thumbPath_; }
  void setThumbPath(std::string path) { thumbPath_ = std::move(path); }
  virtual const ImagePtr& image() const { return image_; }
  void setImage(ImagePtr image) { image_ = std::move(image); }

  std::string_view className() const override { return "IOSBaseSessionItem"; }
  void describe(FieldVisitor& visitor) const override;

 protected:
  void describeIsDeleted(FieldVisitor& visitor) const override;
  // The picture `setImage` stores; a subclass that loads its picture lazily fills this same
  // place, so that a picture set by `setImage` wins.
  ImagePtr& imageStorage() const { return image_; }

 private:
  mutable std::int64_t isDeleted_ = kDeletionNotComputed;
  std::string identifier_;
  std::string name_;
  bool isGroup_ = false;
  bool broadcast_ = false;
  MemberList members_;
  MessageList contents_;
  MessageList selectedContents_;
  std::optional<MessageList> filteredContents_;
  std::string imagePath_;
  std::string thumbPath_;
  mutable ImagePtr image_;
  mutable OptionalDate recentDate_;
  mutable std::string strRecentDate_;
  mutable std::string recentMessage_;
};

using SessionPtr = std::shared_ptr<IOSBaseSessionItem>;
using SessionList = std::vector<SessionPtr>;

// The one-line summary of a message whose attachment has display kind `type`: the key that the
// user interface translates, or "" for a kind without a label. Links (5) are summarised by
// their title and are not covered here.
std::string_view attachmentSummaryKey(std::uint64_t type);

class IOSAccountItem : public IOSBaseItem {
 public:
  const std::string& displayAccount() const { return displayAccount_; }
  void setDisplayAccount(std::string text) { displayAccount_ = std::move(text); }
  const std::string& account() const { return account_; }
  void setAccount(std::string account) { account_ = std::move(account); }
  const std::string& name() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }
  const std::string& phoneNumber() const { return phoneNumber_; }
  void setPhoneNumber(std::string phoneNumber) { phoneNumber_ = std::move(phoneNumber); }
  // The account's conversations.
  const SessionList& items() const { return items_; }
  SessionList& items() { return items_; }
  void setItems(SessionList items) { items_ = std::move(items); }
  // The account's contacts or friends (item classes of the app).
  const ItemList& contacts() const { return contacts_; }
  ItemList& contacts() { return contacts_; }
  void setContacts(ItemList contacts) { contacts_ = std::move(contacts); }
  const SessionList& selectedItems() const { return selectedItems_; }
  void setSelectedItems(SessionList items) { selectedItems_ = std::move(items); }
  const SessionList& filteredItems() const { return filteredItems_; }
  void setFilteredItems(SessionList items) { filteredItems_ = std::move(items); }
  std::int64_t sessionSelectedIndex() const { return sessionSelectedIndex_; }
  void setSessionSelectedIndex(std::int64_t index) { sessionSelectedIndex_ = index; }
  std::int64_t contactsSelectedIndex() const { return contactsSelectedIndex_; }
  void setContactsSelectedIndex(std::int64_t index) { contactsSelectedIndex_ = index; }

  std::string_view className() const override { return "IOSAccountItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  std::string displayAccount_;
  std::string account_;
  std::string name_;
  std::string phoneNumber_;
  SessionList items_;
  ItemList contacts_;
  SessionList selectedItems_;
  SessionList filteredItems_;
  std::int64_t sessionSelectedIndex_ = 0;
  std::int64_t contactsSelectedIndex_ = 0;
};

using AccountPtr = std::shared_ptr<IOSAccountItem>;

}  // namespace dataparser
