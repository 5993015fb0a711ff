// SMS and iMessage: IOSSMSParser turns the engine's message export into conversations
// (IOSSMSSessionItem) of messages (IOSSMSSingleItem) and collects their attachments.
//
// Input: an object whose "sms_file_path" lists JSON files; each file's "chat_sessions" lists
// conversation objects with their members and messages inline. A message with a "media_info"
// list becomes one message per media entry (each with that entry's attachment paths), followed by
// one text message when it also has words. Conversations without any kept message are dropped,
// and so are deleted ones unless deleted data is asked for.
//
// Items keep their record as rawData; texts, dates shown and pictures are read on first use.
//
// Thread safety: a parser is built on one thread; stopParser() may be called from any thread and
// ends the parse between conversations.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "dataparser/model/attachment.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/model/conversation.h"

namespace dataparser {

class IOSSMSSingleItem : public IOSBaseSingleItem {
 public:
  // Reads the message's flags, paths, sender and date from `record`.
  void initWithDictionary(const json::Value& record) override;
  // The same record with the attachment paths of one "media_info" entry.
  void initWithDictionary(const json::Value& record, json::View mediaEntry);

  // Appends the messages that one element of a conversation's "messages" becomes: without
  // "media_info" entries one message, kept when it has words or an attachment; otherwise one
  // message per entry that has an attachment, then one for the words when "text" is not empty.
  // Deleted records are left out unless `parseDeleted`. The record is read in one walk.
  static void appendMessagesOfRecord(const json::Value& record, bool parseDeleted,
                                     MessageList& messages);

  // "%@\n%@" of a non-empty "subject" and "text", else "text"; read on first use.
  const std::string& text() const override;
  const std::string& strSendDate() const override;
  const std::string& belong() const override;
  // A non-zero "type", or any attachment path.
  bool isAttachment() const override;
  // Built on first use when one of the attachment paths is set.
  const AttachmentPtr& attachment() const override;

  const std::string& attachmentPath() const;
  void setAttachmentPath(std::string path);
  const std::string& attachmentDevPath() const;
  void setAttachmentDevPath(std::string path);
  float duration() const { return duration_; }
  void setDuration(float duration) { duration_ = duration; }

  // True when the message has words: a non-empty subject or text.
  bool hasText() const;

  std::string_view className() const override { return "IOSSMSSingleItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  // The members of a message record that a message reads, found in one walk of the record.
  class Record;
  void readRecord(const json::Value& record, const Record& members, json::View mediaEntry);

  // Only attachment messages have paths; the others carry an empty pointer.
  struct AttachmentPaths {
    std::string local;
    std::string device;
  };
  AttachmentPaths& paths();

  // First, so that it fills the base's tail padding.
  float duration_ = 0;
  std::unique_ptr<AttachmentPaths> paths_;
};

class IOSSMSSessionItem : public IOSBaseSessionItem {
 public:
  void initWithDictionary(const json::Value& record) override { initWithDictionary(record, true); }
  // Builds members and messages; messages marked deleted are left out unless `parseDeleted`.
  void initWithDictionary(const json::Value& record, bool parseDeleted);

  // "chat_identifier", read on first use.
  const std::string& identifier() const override;
  // The pictures named by "image_path" and "thumb_path", loaded on first use; a picture given
  // to setImage wins over "image_path".
  const ImagePtr& image() const override;
  const ImagePtr& thumb() const;

  std::int64_t chatId() const { return chatId_; }
  // The "attachment" of every message in `contents` that is an attachment message.
  ItemList attachments() const;

  std::string_view className() const override { return "IOSSMSSessionItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  void readMembers(json::View members);
  void readMessages(const json::Value& record, bool parseDeleted);
  std::string displayName(json::View record) const;

  std::int64_t chatId_ = 0;
  mutable std::optional<std::string> identifier_;
  // Loaded pictures; a failed load is tried again on the next read.
  mutable ImagePtr thumb_;
};

class IOSSMSParser : public IOSBaseParser {
 public:
  using IOSBaseParser::parserWithJSONData;
  static std::shared_ptr<IOSSMSParser> parserWithJSONData(JSONData data, bool parseDeleted,
                                                          bool deviceBackup);

  std::string_view className() const override { return "IOSSMSParser"; }

 private:
  // Adds the conversations of one decoded message file; logs a file that did not decode.
  void addSessionsOf(const json::Value& document, const std::string& error);
};

}  // namespace dataparser
