// WeChat: IOSWeChatParser turns the engine's WeChat export into accounts (IOSWeChatAccountItem),
// each with its conversations (IOSWeChatSessionItem) of messages (IOSWeChatSingleItem) and its
// friend list (IOSWeChatContactItem), and collects the files that the messages name.
//
// Input, one feed: an object whose "wechat_users" lists account objects. An account names its
// conversations in "ChatSessions" and "SubscribeSessions" (official accounts) and its friend
// list in the JSON file "friend_list_file". A conversation lists message files in
// "msg_file_list" (each an object whose "content" lists messages) and may carry messages inline
// in "contents". Every file's messages are gathered (unlike the apps where the last file wins)
// and sorted oldest first.
//
// A message's kind is its "content_type" (`flag`): 0 text, 30 a link, every other kind an
// attachment whose display kind decides the payload: money transfer, red packet, emoji (its
// picture fetched from "url" into the working root's "data/thumbnail"), call, location, contact
// card, voice note, video, document or file. Mini-programs, subscription articles and kind 14
// are left out of the conversation. Deleted messages are left out unless `parseDeleted`.
//
// The parser is long-lived: every `addJSONData` appends accounts to `items` and files to
// `attachments`. Account identifiers are shown as "Account1", "Account2", ... numbered across
// all feeds of the parser. The parser's `attachments` are its own items, not the messages'
// attachment objects: one per file that a chat conversation (not a subscription) names and that
// is on disk, deleted messages included: the conversation picture, each message's media file
// (its first place, else its "other_" place) and its thumbnail (a photo's thumbnail only when
// the photo itself is missing). With `deviceBackup`, a named media file that is not there (yet)
// is listed as well.
//
// Thread safety: built and fed on one thread; stopParser() may be called from any thread and
// ends the feed between conversations.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "dataparser/model/attachment.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/model/conversation.h"
#include "dataparser/model/message_files.h"

namespace dataparser {

// What building a feed shares between its accounts, conversations and messages: the emoji
// pictures fetched so far, the parser's attachment list and switches. Defined in wechat.cpp.
class WeChatFeed;

// The display keys of a payment state: money transfers (display kind 13) and red packets (12).
// "" for another kind or a state without a key.
std::string_view weChatPaymentStatusKey(std::uint64_t kind, std::uint64_t status);

class IOSWeChatSingleItem : public IOSBaseSingleItem {
 public:
  // Reads kind, direction, delivery, sender and send time ("data_time") from the record.
  void initWithDictionary(const json::Value& record) override;
  // The same for a message given inline, whose send time is "date_time".
  void initWithInlineDictionary(const json::Value& record);

  // "text" for a text message (`flag` 0), else ""; read on first use.
  const std::string& text() const override;
  // `sendDate` as "yyyy/MM/dd HH:mm:ss"; worked out on first use.
  const std::string& strSendDate() const override;

  // Builds the message's attachment from its record by display kind. False when the kind is
  // one that is not shown in a conversation (mini-program, subscription article, kind 14).
  bool buildAttachment(WeChatFeed& feed);

  std::string_view className() const override { return "IOSWeChatSingleItem"; }

 private:
  void read(const json::Value& record, std::string_view dateKey);
};

class IOSWeChatSessionItem : public IOSBaseSessionItem {
 public:
  void initWithDictionary(const json::Value& record) override { initWithDictionary(record, true); }
  // Reads the conversation, its members and its messages (files, then inline ones).
  void initWithDictionary(const json::Value& record, bool parseDeleted);
  // The same inside a feed; `collect` adds the files the conversation names to the feed's
  // attachments.
  void initWithDictionary(const json::Value& record, WeChatFeed& feed, bool collect);

  // The picture at `imagePath` ("head_backup"), loaded on first use; one attempt.
  const ImagePtr& image() const override;

  std::string_view className() const override { return "IOSWeChatSessionItem"; }

 private:
  mutable bool imageTried_ = false;
};

// One friend of an account's friend list.
class IOSWeChatContactItem : public IOSBaseItem {
 public:
  void initWithDictionary(const json::Value& record) override;

  const std::string& identifier() const { return identifier_; }
  void setIdentifier(std::string identifier) { identifier_ = std::move(identifier); }
  const std::string& name() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }
  const std::string& aliasName() const { return aliasName_; }
  void setAliasName(std::string aliasName) { aliasName_ = std::move(aliasName); }
  const std::string& imagePath() const { return imagePath_; }
  void setImagePath(std::string path) { imagePath_ = std::move(path); }
  // `name`, else `aliasName`, else `identifier`.
  const std::string& displayName() const;
  // The picture at `imagePath`, loaded on first use; a failed load is tried again next time.
  const ImagePtr& image() const;

  std::string_view className() const override { return "IOSWeChatContactItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  std::string identifier_;
  std::string name_;
  std::string aliasName_;
  std::string imagePath_;
  mutable ImagePtr image_;
};

class IOSWeChatAccountItem : public IOSAccountItem {
 public:
  void initWithDictionary(const json::Value& record) override { initWithDictionary(record, true); }
  // Reads the account's texts, conversations and friend list.
  void initWithDictionary(const json::Value& record, bool parseDeleted);
  void initWithDictionary(const json::Value& record, WeChatFeed& feed);

  // `name`-`phoneNumber`, else `name`-`account`, else `name`; without a name the phone number,
  // the account or "user_md5", whichever comes first not empty.
  std::string makeDisplayAccount() const;

  std::string_view className() const override { return "IOSWeChatAccountItem"; }

 private:
  void readFriendList(const std::string& path);
};

class IOSWeChatParser : public IOSBaseParser {
 public:
  IOSWeChatParser();
  ~IOSWeChatParser() override;

  using IOSBaseParser::parserWithJSONData;
  // A parser fed once with `data`.
  static std::shared_ptr<IOSWeChatParser> parserWithJSONData(JSONData data, bool parseDeleted,
                                                             bool deviceBackup);

  // Appends the accounts of one feed and the files their chat conversations name.
  void addJSONData(JSONData data) override;

  const AccountAliases& accountAliases() const { return aliases_; }

  std::string_view className() const override { return "IOSWeChatParser"; }

 private:
  AccountAliases aliases_;
  std::unique_ptr<WeChatFeed> feed_;
};

}  // namespace dataparser
