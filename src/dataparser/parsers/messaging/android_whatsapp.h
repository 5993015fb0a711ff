// WhatsApp and WhatsApp Business extracted from an Android phone: AndroidWhatsAppParser turns the
// Android engine's export into conversations (AndroidWhatsAppSessionItem) of messages
// (AndroidWhatsAppSingleItem) and collects the files of their messages as attachments.
//
// Input: an object whose "chat_sessions" lists conversation objects; each names its message
// files in "msg_file_list" (read through the shared message-file reader: the last file with a
// "messages" list wins). Unlike the iOS export, dates are texts ("MM - dd - yyyy HH:mm : ss",
// UTC), addresses are normalised by a "+" in front and then a cut at their last "@" or "-", and
// media paths are relative to the "Attachments" folder two levels above the backup path.
//
// The parser's `attachments`: the link and media attachments of every record of every message
// file of a kept conversation, deleted messages included; a media file counts only when it is
// on disk, unless the scan reads a device backup. Notices use the iOS display keys, except that
// an added member shows "AndroidWhatsApp_GroupNotice_AddedIn".
//
// Thread safety: a parser is built on one thread; items are then read from one thread at a time.
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

// "+" in front (unless there), then the cut at the last "@" or "-".
std::string androidWhatsappAddress(std::string_view address);
// The display key of an Android notice, "" for a notice without one.
std::string_view androidWhatsappNoticeKey(std::uint64_t noticeType);

class AndroidWhatsAppSingleItem : public IOSBaseSingleItem {
 public:
  void initWithDictionary(const json::Value& record) override;

  // "content"; the named addresses for added and removed members; else the media's name.
  const std::string& text() const override;
  const std::string& strNotice() const override;
  const std::string& strSendDate() const override;
  const std::string& to() const override;

  // The sender of a one-to-one conversation: taken as `from` when the record names none.
  const std::string& singleFrom() const { return singleFrom_; }
  void setSingleFrom(std::string singleFrom);

  std::string_view className() const override { return "AndroidWhatsAppSingleItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  // The addresses of "system_info", each with "+" in front, joined by ", " and then cut.
  std::string systemInfoAddresses() const;

  std::string singleFrom_;
};

class AndroidWhatsAppSessionItem : public IOSBaseSessionItem {
 public:
  using DocumentHook = std::function<void(const json::Value& document)>;

  void initWithDictionary(const json::Value& record) override {
    initWithDictionary(record, true, std::string());
  }
  // `attachmentsFolder` is where "media_path" values start from.
  void initWithDictionary(const json::Value& record, bool parseDeleted,
                          const std::string& attachmentsFolder,
                          const DocumentHook& eachDocument = {});

  // "jid" normalised.
  const std::string& identifier() const override;

  std::string_view className() const override { return "AndroidWhatsAppSessionItem"; }

 private:
  void readMembers(json::View members);

  mutable std::optional<std::string> identifier_;
};

class AndroidWhatsAppParser : public IOSBaseParser {
 public:
  using IOSBaseParser::parserWithJSONData;
  static std::shared_ptr<AndroidWhatsAppParser> parserWithJSONData(JSONData data, bool parseDeleted,
                                                                   bool deviceBackup);
  // The same, with the backup path that locates the attachments folder.
  static std::shared_ptr<AndroidWhatsAppParser> parserWithJSONData(JSONData data, bool parseDeleted,
                                                                   bool deviceBackup,
                                                                   const std::string& backupPath);

  // `backupPath` without its last two components, plus "Attachments".
  static std::string attachmentsFolderFor(const std::string& backupPath);
  // The attachment of one message record, or nothing for kinds without one (31, -1, 35 and
  // above) and for records without a media path.
  static AttachmentPtr attachmentOf(const json::Value& record, const std::string& folder);

  std::string_view className() const override { return "AndroidWhatsAppParser"; }
};

}  // namespace dataparser
