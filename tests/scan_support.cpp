#include "tests/scan_support.h"

#include <fmt/format.h>

#include <algorithm>

#include "dataparser/util/json.h"

namespace dataparser::testing {
namespace {

ItemList namedItems(json::View names) {
  ItemList items;
  for (json::View entry : names.elements())
    items.push_back(namedItem(std::string(entry.string())));
  return items;
}

void append(ItemList& list, const ItemList& more) {
  list.insert(list.end(), more.begin(), more.end());
}

std::string nameArray(const std::vector<std::string>& names) {
  std::string text = "[";
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += ", ";
    text += "\"" + names[i] + "\"";
  }
  return text + "]";
}

}  // namespace

ItemPtr namedItem(const std::string& name) {
  static std::mutex mutex;
  static std::map<std::string, ItemPtr> items;
  std::lock_guard lock(mutex);
  ItemPtr& item = items[name];
  if (!item) {
    item = IOSBaseItem::itemWithDictionary(json::parse("{\"name\": \"" + name + "\"}"));
  }
  return item;
}

std::string itemName(const ItemPtr& item) {
  return std::string(item->rawData()["name"].string());
}

std::vector<std::string> itemNames(const ItemList& items) {
  std::vector<std::string> names;
  for (const ItemPtr& item : items)
    names.push_back(itemName(item));
  return names;
}

std::shared_ptr<IOSBaseParser> TestParser::parserWithJSONData(JSONData data, bool parseDeleted,
                                                              bool deviceBackup) {
  auto parser = makeWithJSONData<TestParser>(data, parseDeleted, deviceBackup);
  parser->take();
  return parser;
}

std::shared_ptr<IOSBaseParser> TestParser::parserWithJSONData(JSONData data, bool parseDeleted) {
  auto parser = makeWithJSONData<TestParser>(data, parseDeleted, false);
  parser->take();
  return parser;
}

void TestParser::addJSONData(JSONData data) {
  IOSBaseParser::addJSONData(data);
  take();
}

void TestParser::take() {
  switches.emplace_back(parseDeleted(), deviceBackup());
  const json::Value& raw = rawData();
  append(items(), namedItems(raw["items"]));
  append(attachments(), namedItems(raw["attachments"]));
  append(callHistorys(), namedItems(raw["calls"]));
  append(photoVideos(), namedItems(raw["videos"]));
}

void TestOtherAttachmentParser::addJSONData(JSONData data) {
  IOSBaseParser::addJSONData(data);
  ItemList* list = nullptr;
  switch (attachmentType_) {
    case -8:
      list = &wechat_;
      break;
    case -7:
      list = &viber_;
      break;
    case -6:
      list = &line_;
      break;
    case -5:
      list = &kik_;
      break;
    case -4:
      list = &whatsapp_;
      break;
    case -3:
      list = &note_;
      break;
    default:
      return;
  }
  for (const ItemPtr& item : namedItems(rawData()["media"])) {
    if (std::find(list->begin(), list->end(), item) == list->end()) list->push_back(item);
  }
}

DispatchTable testDispatchTable() {
  DispatchTable table = DispatchTable::standard();
  std::vector<DispatchRow> rows(table.rows().begin(), table.rows().end());
  for (const DispatchRow& row : rows) {
    if (row.kind != RowKind::kMade) continue;
    table.setFactory(row.type, row.arity == FactoryArity::kThree ? factory3<TestParser>()
                                                                 : factory2<TestParser>());
  }
  for (std::size_t slot = 0; slot < kParserSlotCount; ++slot) {
    table.setSlotMaker(static_cast<ParserSlot>(slot), plainConstructor<TestParser>());
  }
  table.setSlotMaker(ParserSlot::kOtherAttachment, plainConstructor<TestOtherAttachmentParser>());
  return table;
}

std::string hex(IOSDataType type) {
  return type < 0 ? std::to_string(type) : fmt::format("{:#x}", type);
}

RecordingObserver::RecordingObserver() : delegate_(std::make_shared<IOSDataParserDelegate>()) {
  IOSDataParserDelegate& d = *delegate_;
  d.dataParseDidBegined = [this](IOSDataParser&) { add("began"); };
  d.parseProgress = [this](IOSDataParser&, float p) { add(fmt::format("progress {}", p)); };
  d.didFetchedData = [this](IOSDataParser&, ItemList items, IOSDataType type) {
    std::string names;
    for (const std::string& name : itemNames(items))
      names += (names.empty() ? "" : ",") + name;
    add(fmt::format("fetched {} {}", hex(type), names));
  };
  d.didParseFinished = [this](IOSDataParser&, int status) {
    add(fmt::format("finished {}", status));
  };
  d.didParseError = [this](IOSDataParser&, int status) { add(fmt::format("error {}", status)); };
  d.backupDidReadyBegined = [this](IOSDataParser&) { add("backup ready"); };
  d.backupDidReadyCompleted = [this](IOSDataParser&) { add("backup ready done"); };
  d.backupBegin = [this](IOSDataParser&, const std::string& path) { add("backup begin " + path); };
  d.backupProgress = [this](IOSDataParser&, float p) { add(fmt::format("backup progress {}", p)); };
  d.backupFinished = [this](IOSDataParser&, bool result, std::int32_t code) {
    add(fmt::format("backup finished {} {}", result ? 1 : 0, code));
  };
}

void RecordingObserver::add(std::string event) {
  {
    std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
  }
  changed_.notify_all();
}

std::vector<std::string> RecordingObserver::events() const {
  std::lock_guard lock(mutex_);
  return events_;
}

std::vector<std::string> RecordingObserver::fetched() const {
  std::vector<std::string> lines;
  for (const std::string& event : events()) {
    if (event.starts_with("fetched ")) lines.push_back(event);
  }
  return lines;
}

bool RecordingObserver::waitFor(const std::string& prefix, std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] {
    return std::any_of(events_.begin(), events_.end(),
                       [&](const std::string& event) { return event.starts_with(prefix); });
  });
}

bool RecordingObserver::waitForEnd(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] {
    return std::any_of(events_.begin(), events_.end(), [](const std::string& event) {
      return event.starts_with("finished ") || event.starts_with("error ");
    });
  });
}

RecordingWriter::RecordingWriter(const TempDir& dir, std::string folder)
    : dir_(dir), folder_(std::move(folder)), path_(dir.str() + "/" + folder_) {
  std::filesystem::create_directories(path_ + "/stream");
}

RecordingWriter& RecordingWriter::block(int code, const std::string& text) {
  dir_.write(fmt::format("{}/stream/{:06}-{}.json", folder_, ++sequence_, code), text);
  return *this;
}

RecordingWriter& RecordingWriter::nullBlock(int code) {
  dir_.write(fmt::format("{}/stream/{:06}-{}.null", folder_, ++sequence_, code), "");
  return *this;
}

std::string parserJson(const std::vector<std::string>& items,
                       const std::vector<std::string>& attachments,
                       const std::vector<std::string>& calls,
                       const std::vector<std::string>& videos) {
  return fmt::format("{{\"items\": {}, \"attachments\": {}, \"calls\": {}, \"videos\": {}}}",
                     nameArray(items), nameArray(attachments), nameArray(calls), nameArray(videos));
}

std::string mediaJson(const std::vector<std::string>& names) {
  return fmt::format("{{\"media\": {}}}", nameArray(names));
}

}  // namespace dataparser::testing
