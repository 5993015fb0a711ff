// Helpers for tests that drive the coordinator: test parsers for the dispatch rows, an observer
// that records every report, and a writer of small recordings for the replay engine.
//
// Test parsers read {"items": [{"name": "a"}, ...], "attachments": [...], "calls": [...],
// "videos": [...]}; an item is identified by its "name", and the same name always gives the same
// shared item (an ItemRegistry), so merging by identity can be checked. The other-attachment
// test parser reads {"media": [{"name": "p"}, ...]} into the list chosen by `attachmentType`.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "dataparser/core/delegate.h"
#include "dataparser/core/dispatch.h"
#include "dataparser/engine/replay_engine.h"
#include "dataparser/model/base_parser.h"
#include "dataparser/model/other_attachment_lists.h"
#include "tests/test_support.h"

namespace dataparser::testing {

// Name -> the one item of that name, for the whole test process.
ItemPtr namedItem(const std::string& name);
std::string itemName(const ItemPtr& item);
std::vector<std::string> itemNames(const ItemList& items);

class TestParser : public IOSBaseParser {
 public:
  static std::shared_ptr<IOSBaseParser> parserWithJSONData(JSONData data, bool parseDeleted,
                                                           bool deviceBackup);
  static std::shared_ptr<IOSBaseParser> parserWithJSONData(JSONData data, bool parseDeleted);
  void addJSONData(JSONData data) override;
  // Every (parseDeleted, deviceBackup) seen when the parser was made or fed.
  std::vector<std::pair<bool, bool>> switches;

 private:
  void take();
};

class TestOtherAttachmentParser : public IOSBaseParser, public IOSOtherAttachmentLists {
 public:
  void addJSONData(JSONData data) override;
  std::int64_t attachmentType() const override { return attachmentType_; }
  void setAttachmentType(std::int64_t type) override { attachmentType_ = type; }
  ItemList& whatsappAttachments() override { return whatsapp_; }
  ItemList& kikAttachments() override { return kik_; }
  ItemList& lineAttachments() override { return line_; }
  ItemList& viberAttachments() override { return viber_; }
  ItemList& wechatAttachments() override { return wechat_; }
  ItemList& noteAttachments() override { return note_; }

 private:
  std::int64_t attachmentType_ = 0;
  ItemList whatsapp_, kik_, line_, viber_, wechat_, note_;
};

// The standard table with TestParser on every made row and every slot, and the test
// other-attachment parser in its slot.
DispatchTable testDispatchTable();

// Records every observer report as a line: "began", "progress 0.5", "fetched 0x80000 a,b",
// "finished 1", "error 3", "backup ready", "backup ready done", "backup begin PATH",
// "backup progress 0.5", "backup finished 1 0".
class RecordingObserver {
 public:
  RecordingObserver();
  std::shared_ptr<IOSDataParserDelegate> delegate() const { return delegate_; }
  std::vector<std::string> events() const;
  // Only the "fetched ..." lines.
  std::vector<std::string> fetched() const;
  // Waits for a "finished" or "error" event.
  bool waitForEnd(std::chrono::milliseconds timeout = std::chrono::seconds(20));
  bool waitFor(const std::string& prefix,
               std::chrono::milliseconds timeout = std::chrono::seconds(20));
  void add(std::string event);

 private:
  std::shared_ptr<IOSDataParserDelegate> delegate_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> events_;
};

// "0x80000" style.
std::string hex(IOSDataType type);

// Writes stream/NNNNNN-CODE.json blocks (or .null for a null text) into a recording folder.
class RecordingWriter {
 public:
  explicit RecordingWriter(const TempDir& dir, std::string folder = "recording");
  RecordingWriter& block(int code, const std::string& text);
  RecordingWriter& nullBlock(int code);
  const std::string& path() const { return path_; }

 private:
  const TempDir& dir_;
  std::string folder_;
  std::string path_;
  int sequence_ = 0;
};

// JSON for a test parser: {"items": [names...], "attachments": [...], ...}.
std::string parserJson(const std::vector<std::string>& items,
                       const std::vector<std::string>& attachments = {},
                       const std::vector<std::string>& calls = {},
                       const std::vector<std::string>& videos = {});
// JSON for the test other-attachment parser: {"media": [names...]}.
std::string mediaJson(const std::vector<std::string>& names);

}  // namespace dataparser::testing
