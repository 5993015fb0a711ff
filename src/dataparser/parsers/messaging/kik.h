// Kik: IOSKikParser turns the engine's Kik export into accounts (IOSKikAccountItem) of
// conversations (IOSKikSessionItem) of messages (IOSKikSingleItem) and lists the media files of
// each account; IOSKikThumbParser stores the thumbnails that the engine sends inline
// (IOSKikThumbItem) under {working root}/data/thumbnail.
//
// Input of IOSKikParser, fed in pieces through addJSONData: {"kik_accounts": [{"account_id",
// "kik_chat_sessions": [conversation...], "media_file_info": [{"data_file_path", "data_suffix",
// "plist_id"}]}]}. An account is listed only when it has a conversation with messages; a
// conversation only when it has messages. Account identifiers are shown as "Account1",
// "Account2", ... in order of first appearance, numbered afresh in every piece. Media files are
// listed when they exist (on a device backup, always) and are named "plist_id" + "data_suffix".
//
// Messages: "send_date" counts seconds since 2001-01-01 and is shown as local wall-clock time;
// a message is kept when it has text, an attachment or is a notice (kind 13). Received messages
// of one-to-one conversations show the conversation's picture.
//
// Input of IOSKikThumbParser: {"media_datas": [{"plist_id", "data_size", "data" (base64)}]}.
// Every record becomes an item; its bytes are written under a file name made from "plist_id"
// by the library's safe-name rule, so a hostile identifier cannot leave the thumbnail folder.
//
// Thread safety: parsers are fed on one thread; stopParser() may be called from any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "dataparser/model/attachment.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/model/conversation.h"
#include "dataparser/parsers/messaging/chat_apps.h"

namespace dataparser {

class IOSKikSingleItem : public IOSBaseSingleItem {
 public:
  void initWithDictionary(const json::Value& record) override;

  const std::string& text() const override;
  const std::string& strSendDate() const override;
  const AttachmentPtr& attachment() const override;

  // "media_backup" and its last path component.
  const std::string& attachmentPath() const;
  void setAttachmentPath(std::string path) { paths().local = std::move(path); }
  const std::string& attachmentName() const;
  void setAttachmentName(std::string name) { paths().name = std::move(name); }

  std::string_view className() const override { return "IOSKikSingleItem"; }
  void describe(FieldVisitor& visitor) const override;

 private:
  // Only media messages have a path; the others carry an empty pointer.
  struct Paths {
    std::string local;
    std::string name;
  };
  Paths& paths();

  std::unique_ptr<Paths> paths_;
};

class IOSKikSessionItem : public IOSBaseSessionItem {
 public:
  void initWithDictionary(const json::Value& record) override { initWithDictionary(record, true); }
  void initWithDictionary(const json::Value& record, bool parseDeleted);

  // "session_id".
  const std::string& identifier() const override;
  // The picture at `imagePath` ("thumb_file"), when it loads.
  const ImagePtr& image() const override;

  std::string_view className() const override { return "IOSKikSessionItem"; }

 private:
  mutable std::optional<std::string> identifier_;
  LazyPicture picture_;
};

class IOSKikAccountItem : public IOSAccountItem {
 public:
  void initWithDictionary(const json::Value& record) override { initWithDictionary(record, true); }
  void initWithDictionary(const json::Value& record, bool parseDeleted);

  std::string_view className() const override { return "IOSKikAccountItem"; }
};

class IOSKikParser : public IOSBaseParser {
 public:
  void addJSONData(JSONData data) override;

  std::string_view className() const override { return "IOSKikParser"; }

 private:
  // The listed media files of one account record.
  void collectMediaFiles(const json::Value& account, ItemList& found) const;
};

class IOSKikThumbItem : public IOSBaseItem {
 public:
  void initWithDictionary(const json::Value& record) override;

  // "plist_id".
  const std::string& name() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }
  // The decoded "data"; nothing when it is missing or not base64.
  const std::optional<std::string>& thumbData() const { return thumbData_; }
  void setThumbData(std::optional<std::string> data) { thumbData_ = std::move(data); }
  // "data_size".
  std::int32_t size() const { return size_; }
  void setSize(std::int32_t size) { size_ = size; }

  std::string_view className() const override { return "IOSKikThumbItem"; }
  // thumbData is listed as base64 text.
  void describe(FieldVisitor& visitor) const override;

 private:
  std::string name_;
  std::optional<std::string> thumbData_;
  std::int32_t size_ = 0;
};

class IOSKikThumbParser : public IOSBaseParser {
 public:
  void addJSONData(JSONData data) override;

  // {working root}/data/thumbnail.
  static std::string thumbnailFolder();

  std::string_view className() const override { return "IOSKikThumbParser"; }
};

}  // namespace dataparser
