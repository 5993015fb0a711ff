// Viber: IOSViberParser turns the engine's Viber export into the app's call list (IOSCallItem),
// conversations (IOSViberSessionItem) of messages (IOSViberSingleItem), and the media of every
// message for the attachment view. Viber has no account level.
//
// Input: {"viber_calls": [call...], "viber_chat_session": [conversation...]}; a conversation
// names its message files in "msg_file_list" and its picture in "media_backup" or
// "other_media_backup" (the first that exists).
//
//   calls       name ("Unknown" when empty), phone, date, duration; "flags" 0 incoming (2),
//               1 outgoing (1), else 0; "type" 1 and 2 are the outcome codes, else 0
//   messages    every message is kept except notices other than the group notices 20
//               (subject changed), 21 (added), 23 (left), 26 (joined), 29 (icon changed), which
//               carry the display keys "Viber_GroupNotice_ChangeSubject", "..._AddedIn",
//               "WhatsApp_GroupNotice_Left", "..._AddSelf", "..._ChangeIcon"; a message without
//               sender is from "Viber_GroupNotice_You_KEY"
//   attachment  the first existing of "backup_media", "thumb_file_path", "other_file_path",
//               "origin_file_path" (else the last as it stands), with the payload of its kind:
//               location (plain text of "location_info"), link, contact card, voice note, call
//               ("ViberCallHistory_Canceled" / "_Missed" / "_OutgoingOrIncoming")
//
// Attachment list of the parser, per message record whose kind is neither 0 nor 9: a link entry
// for kind 30; otherwise one entry per candidate path that exists (on a device backup, per
// candidate that is a string), so one message may give up to four. Each message file is decoded
// once for both the conversation and this list.
//
// Thread safety: a parser is built on one thread; stopParser() may be called from any thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "dataparser/model/attachment.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/model/conversation.h"
#include "dataparser/parsers/messaging/chat_apps.h"

namespace dataparser {

class IOSViberSingleItem : public IOSBaseSingleItem {
 public:
  void initWithDictionary(const json::Value& record) override;

  const std::string& text() const override;
  const std::string& strSendDate() const override;
  // The display key of a group notice; "" for other messages and other notices.
  const std::string& strNotice() const override;
  const AttachmentPtr& attachment() const override;

  // The display key of a group notice code; "" for codes without one.
  static std::string_view noticeKey(std::uint64_t noticeType);

  std::string_view className() const override { return "IOSViberSingleItem"; }

 private:
  AttachmentPtr makeAttachment() const;
};

class IOSViberSessionItem : public IOSBaseSessionItem {
 public:
  void initWithDictionary(const json::Value& record) override { initWithDictionary(record, true); }
  void initWithDictionary(const json::Value& record, bool parseDeleted);
  // The same, handing every decoded message file to `visitDocument` as well.
  void initWithDictionary(const json::Value& record, bool parseDeleted,
                          const std::function<void(const json::Value&)>& visitDocument);

  // The picture at `imagePath` when that loads, else at `thumbPath`.
  const ImagePtr& image() const override;

  std::string_view className() const override { return "IOSViberSessionItem"; }

 private:
  LazyPicture picture_;
};

class IOSViberParser : public IOSBaseParser {
 public:
  using IOSBaseParser::parserWithJSONData;
  static std::shared_ptr<IOSViberParser> parserWithJSONData(JSONData data, bool parseDeleted,
                                                            bool deviceBackup);

  std::string_view className() const override { return "IOSViberParser"; }

 private:
  void readCalls(json::View calls);
  void readSessions(const json::Value& sessions);
  // Adds the attachments of one decoded message file to `found`.
  void collectAttachments(const json::Value& document, ItemList& found) const;
};

}  // namespace dataparser
