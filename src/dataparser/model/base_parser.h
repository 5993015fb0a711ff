// IOSBaseParser: base of every data-type parser.
//
// A parser is made from one piece of JSON text with two switches (`parseDeleted`,
// `deviceBackup`), or is long-lived and fed further pieces through `addJSONData`. It exposes its
// results in fixed lists: `items`, `attachments`, `callHistorys`, `photoVideos`. An empty list
// stands for "none". `stopParser` asks a running parse to stop between records. A parser made
// while a ParseStopScope lives on its thread also stops when the scope's flag is raised, so a stop
// reaches a parser that its factory is still building.
//
// Factories: a subclass's three-argument `parserWithJSONData` calls
// `makeWithJSONData<Subclass>(...)` first and then builds its items from `rawData`. The
// two-argument factory always builds a plain IOSBaseParser unless a subclass redeclares it; a
// subclass that wants the base's keeps it visible with `using IOSBaseParser::parserWithJSONData`.
//
// Malformed JSON never raises: the parser has no `rawData` and empty results, and the error goes
// to the system log (">>> %@" from initWithJSONData, "JSONWithData ERROR:%@" from JSONWithData,
// nothing from addJSONData).
//
// Thread safety: a parser is built and fed on one thread. `stopParser` may be called from any
// thread.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "dataparser/model/base_item.h"
#include "dataparser/util/json.h"

namespace dataparser {

// JSON text as UTF-8 bytes, or none.
using JSONData = std::optional<std::string_view>;

class IOSBaseParser {
 public:
  IOSBaseParser() = default;
  virtual ~IOSBaseParser() = default;
  IOSBaseParser(const IOSBaseParser&) = delete;
  IOSBaseParser& operator=(const IOSBaseParser&) = delete;

  virtual std::string_view className() const { return "IOSBaseParser"; }

  // Decodes `data` into `rawData` (nothing when `data` is none; no `rawData` and a system-log
  // line ">>> {error}" when it does not decode).
  void initWithJSONData(JSONData data);

  // Constructs a T, runs initWithJSONData, then sets deviceBackup and then parseDeleted.
  template <class T>
  static std::shared_ptr<T> makeWithJSONData(JSONData data, bool parseDeleted, bool deviceBackup) {
    auto parser = std::make_shared<T>();
    parser->initWithJSONData(data);
    parser->setDeviceBackup(deviceBackup);
    parser->setParseDeleted(parseDeleted);
    return parser;
  }

  static std::shared_ptr<IOSBaseParser> parserWithJSONData(JSONData data, bool parseDeleted,
                                                           bool deviceBackup);
  // Forwards to the base three-argument factory with deviceBackup false.
  static std::shared_ptr<IOSBaseParser> parserWithJSONData(JSONData data, bool parseDeleted);

  // One more piece of JSON. The base replaces `rawData` (errors are not reported); subclasses
  // add the piece's items to the lists they already hold.
  virtual void addJSONData(JSONData data);

  // Decodes JSON; on error logs "JSONWithData ERROR:{error}" to the system log and gives an
  // absent value.
  static json::Value JSONWithData(JSONData data);

  void stopParser() { isStopParser_.store(true, std::memory_order_relaxed); }
  bool isStopParser() const {
    return isStopParser_.load(std::memory_order_relaxed) ||
           (sharedStop_ != nullptr && sharedStop_->load(std::memory_order_relaxed));
  }

  const json::Value& rawData() const { return rawData_; }
  void setRawData(json::Value rawData) { rawData_ = std::move(rawData); }

  ItemList& items() { return items_; }
  const ItemList& items() const { return items_; }
  void setItems(ItemList items) { items_ = std::move(items); }
  ItemList& attachments() { return attachments_; }
  const ItemList& attachments() const { return attachments_; }
  void setAttachments(ItemList attachments) { attachments_ = std::move(attachments); }
  ItemList& callHistorys() { return callHistorys_; }
  const ItemList& callHistorys() const { return callHistorys_; }
  void setCallHistorys(ItemList calls) { callHistorys_ = std::move(calls); }
  ItemList& photoVideos() { return photoVideos_; }
  const ItemList& photoVideos() const { return photoVideos_; }
  void setPhotoVideos(ItemList photoVideos) { photoVideos_ = std::move(photoVideos); }

  const std::string& backupPath() const { return backupPath_; }
  void setBackupPath(std::string path) { backupPath_ = std::move(path); }
  bool parseDeleted() const { return parseDeleted_; }
  void setParseDeleted(bool value) { parseDeleted_ = value; }
  bool deviceBackup() const { return deviceBackup_; }
  void setDeviceBackup(bool value) { deviceBackup_ = value; }

 private:
  json::Value rawData_;
  ItemList items_;
  ItemList attachments_;
  ItemList callHistorys_;
  ItemList photoVideos_;
  std::string backupPath_;
  bool parseDeleted_ = true;
  bool deviceBackup_ = false;
  std::atomic<bool> isStopParser_ = false;
  // The stop flag of the scope this parser was made in; it outlives the parser.
  const std::atomic<bool>* sharedStop_ = currentStopFlag();

  friend class ParseStopScope;
  static const std::atomic<bool>* currentStopFlag();
};

// While alive, parsers made on this thread also stop once `flag` is raised. Scopes nest; the
// flag must outlive every parser made inside.
class ParseStopScope {
 public:
  explicit ParseStopScope(const std::atomic<bool>& flag);
  ~ParseStopScope();
  ParseStopScope(const ParseStopScope&) = delete;
  ParseStopScope& operator=(const ParseStopScope&) = delete;

 private:
  const std::atomic<bool>* previous_;
};

using ParserPtr = std::shared_ptr<IOSBaseParser>;

}  // namespace dataparser
