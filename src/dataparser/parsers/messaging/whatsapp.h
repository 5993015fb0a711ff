// WhatsApp and WhatsApp Business for iOS: IOSWhatsappParser turns the engine's export of either
// app into conversations (IOSWhatsappSessionItem) of messages (IOSWhatsappSingleItem), and
// collects every attachment of the conversations' message files for the other-attachment view.
//
// Input: an object whose "whatsapp_chatsessions" (or, when that key is absent,
// "whatsappBusiness_chatsessions") lists conversation records. Each record names its message
// files in "msg_file_list"; they are read through the shared message-file reader, so only the
// last file with a "messages" list survives in a conversation. Addresses are cut at their last
// "@" or "-" (the address pattern, applied twice) and senders get a "+" in front. Dates are
// seconds since 2001-01-01, moved forward by the local zone's current offset from UTC: a local
// wall-clock time kept as if it were UTC, which is what the user interface shows.
//
// The parser's `attachments` are made apart from the messages' own: every non-text record of
// every file of a kept conversation (deleted messages included), with a file on disk unless the
// scan reads a device backup.
//
// Items keep their record as rawData; texts shown, the recipient and pictures are read on first
// use. Thread safety: a parser is built on one thread; items are then read from one thread at a
// time.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "dataparser/model/attachment.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/model/conversation.h"

namespace dataparser {

// The part of a WhatsApp address before its last "@" or "-" (the first line holding either);
// the address itself when it holds neither.
std::string whatsappAddress(std::string_view address);
// `text` with "+" in front, unless it is empty or already starts with "+".
std::string withLeadingPlus(std::string text);

// `local`, or for a `device` path ending in ".webp" the PNG copy written from the file at
// `local` under the name `imageName` ("" when that fails).
std::string convertedWebp(const std::string& local, const std::string& device,
                          std::string_view imageName);

// The display key of a group notice, "" for a notice without one.
std::string_view whatsappNoticeKey(std::uint64_t noticeType);

class IOSWhatsappSingleItem : public IOSBaseSingleItem {
 public:
  // Reads direction, state, kind, date and sender, with the local zone's offset of now.
  void initWithDictionary(const json::Value& record) override;
  // The same with a given offset (seconds east of UTC) added to the date.
  void initWithDictionary(const json::Value& record, int localOffsetSeconds);

  // "text"; for a member-removed notice, the removed member's address.
  const std::string& text() const override;
  // The notice's display key.
  const std::string& strNotice() const override;
  // `sendDate` in the default date-and-time text.
  const std::string& strSendDate() const override;
  // "to_id" cut at its mark, with "+" in front.
  const std::string& to() const override;
  // Whether the record's own "text" is not empty (whatever `text` makes of it).
  bool hasRecordText() const { return hasRecordText_; }

  std::string_view className() const override { return "IOSWhatsappSingleItem"; }

 private:
  bool hasRecordText_ = false;
};

class IOSWhatsappSessionItem : public IOSBaseSessionItem {
 public:
  // Sees every decoded message file of the conversation once.
  using DocumentHook = std::function<void(const json::Value& document)>;

  void initWithDictionary(const json::Value& record) override { initWithDictionary(record, true); }
  void initWithDictionary(const json::Value& record, bool parseDeleted,
                          const DocumentHook& eachDocument = {});

  // "jid" cut at its mark (twice).
  const std::string& identifier() const override;
  // The picture at imagePath when it loads, else the one at thumbPath.
  const ImagePtr& image() const override;

  std::string_view className() const override { return "IOSWhatsappSessionItem"; }

 private:
  void readMembers(json::View members);
  // Finishes one message: the group sender's name and picture, its attachment; says whether it
  // is kept.
  bool finishMessage(IOSWhatsappSingleItem& message) const;

  mutable std::optional<std::string> identifier_;
  mutable ImagePtr image_;
};

class IOSWhatsappParser : public IOSBaseParser {
 public:
  using IOSBaseParser::parserWithJSONData;
  static std::shared_ptr<IOSWhatsappParser> parserWithJSONData(JSONData data, bool parseDeleted,
                                                               bool deviceBackup);

  // The attachment of a shared link (kind 30) built from its message record.
  static AttachmentPtr linkAttachment(const json::Value& record);

  std::string_view className() const override { return "IOSWhatsappParser"; }

 private:
  // Adds the attachments of every record of one message file to `found`.
  void collectAttachments(const json::Value& document, ItemList& found) const;
};

}  // namespace dataparser
