// LINE: IOSLineParser turns the engine's LINE export into accounts (IOSLineAccountItem) of
// conversations (IOSLineSessionItem) of messages (IOSLineSingleItem), and gathers the media of
// every message for the attachment view.
//
// Input, fed in pieces through addJSONData: {"line_accounts": [{"account_id", "line_chat_sessions":
// [conversation...]}]}; a conversation names its message files in "msg_file_list". Every account
// is listed, with every conversation, even those without messages. Account identifiers are
// shown as "Account1", "Account2", ... numbered across all pieces of one parser.
//
// Messages: "type" is the kind, except that links (30) show as plain text; "send_date" is the
// engine's date text; media messages carry "backup_media", "backup_thumb", "media_path". The
// attachment of a message is built on first read: locations get their tab-separated lines,
// contact cards their name, voice notes their length in seconds ("duration" is in
// milliseconds), calls their "duration" as it stands.
//
// Attachment list of the parser: on a device backup, two entries per message record of every
// conversation whatever its kind (the media and its thumbnail); otherwise one per record whose
// local media file exists. Deletion marks are not consulted there. Each message file is decoded
// once for both the conversation and this list.
//
// Thread safety: a parser is fed on one thread; stopParser() may be called from any thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "dataparser/model/attachment.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/model/conversation.h"
#include "dataparser/model/message_files.h"

namespace dataparser {

class IOSLineSingleItem : public IOSBaseSingleItem {
 public:
  void initWithDictionary(const json::Value& record) override;

  const std::string& text() const override;
  const std::string& strSendDate() const override;
  const AttachmentPtr& attachment() const override;

  const std::string& attachmentPath() const;
  void setAttachmentPath(std::string path) { paths().local = std::move(path); }
  const std::string& attachmentDevPath() const;
  void setAttachmentDevPath(std::string path) { paths().device = std::move(path); }
  const std::string& attachmentThumbPath() const;
  void setAttachmentThumbPath(std::string path) { paths().thumb = std::move(path); }

  std::string_view className() const override { return "IOSLineSingleItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  // Only media messages have paths; the others carry an empty pointer.
  struct Paths {
    std::string local;
    std::string device;
    std::string thumb;
  };
  Paths& paths();
  AttachmentPtr makeAttachment() const;

  std::unique_ptr<Paths> paths_;
};

class IOSLineSessionItem : public IOSBaseSessionItem {
 public:
  void initWithDictionary(const json::Value& record) override { initWithDictionary(record, true); }
  void initWithDictionary(const json::Value& record, bool parseDeleted);
  // The same, handing every decoded message file to `visitDocument` as well.
  void initWithDictionary(const json::Value& record, bool parseDeleted,
                          const std::function<void(const json::Value&)>& visitDocument);

  // "mid".
  const std::string& identifier() const override;
  // LINE conversations have no picture.
  const ImagePtr& image() const override;

  std::string_view className() const override { return "IOSLineSessionItem"; }

 private:
  mutable std::optional<std::string> identifier_;
};

class IOSLineAccountItem : public IOSAccountItem {
 public:
  void initWithDictionary(const json::Value& record) override { initWithDictionary(record, true); }
  void initWithDictionary(const json::Value& record, bool parseDeleted);
  void initWithDictionary(const json::Value& record, bool parseDeleted,
                          const std::function<void(const json::Value&)>& visitDocument);

  std::string_view className() const override { return "IOSLineAccountItem"; }
};

class IOSLineParser : public IOSBaseParser {
 public:
  void addJSONData(JSONData data) override;

  // Account identifier -> alias, for the parser's whole life.
  const AccountAliases& accountDict() const { return accountDict_; }

  std::string_view className() const override { return "IOSLineParser"; }

 private:
  // Adds the attachments of one decoded message file to `found`.
  void collectAttachments(const json::Value& document, ItemList& found) const;

  AccountAliases accountDict_;
};

}  // namespace dataparser
