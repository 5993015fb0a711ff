// Fuzzes the package-engine callback bridge: sequences of engine callbacks with any code and any
// text, through CallbackFuction into the coordinator, its dispatch table, the parsers and an
// observer, as a scan would deliver them.
//
// Input: records separated by the byte 0x1E. A record is
//   CODE[n]:TEXT   a callback with code CODE (a decimal int32, saturated; "n" sends null text);
//                  every "{{ROOT}}" in TEXT becomes the fuzz folder
//   fK:TEXT        writes TEXT to the fuzz folder's files/K.json (K one character), so that a
//                  block can name a message file ("{{ROOT}}/files/1.json")
//   s              the user stops the scan
//   r              a new scan (fresh parsers) with the opposite parseDeleted and deviceBackup
// for example "90:\x1E" "f1:{...}\x1E" "56:{\"sms_file_path\":[\"{{ROOT}}/files/1.json\"]}\x1E"
// "91:{\"current\":1,\"total\":2}\x1E" "92:".
//
// The coordinator runs with an engine that does nothing, so no input starts a scan thread; code
// 89 (release the engine one second later) is sent only while no earlier release is pending, so
// releases never pile up however fast inputs run. Each input starts with fresh parsers and ends by
// dropping them, so inputs do not influence each other.
//
// Checked on every input:
//   - CallbackFuction always answers 0 and the data folder exists after every call;
//   - the observer gets only non-empty lists of items, and every field of every item reads;
//   - finished reports status 1 or 2, failed 3 or 2 (2 after the user stopped the scan).
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "dataparser/core/callback_bridge.h"
#include "dataparser/core/ios_data_parser.h"
#include "dataparser/core/package_engine.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/text.h"
#include "fuzz/harness.h"

namespace {

using dataparser::fuzz::check;
using dataparser::fuzz::FuzzEnvironment;
namespace dp = dataparser;

constexpr char kRecordSeparator = '\x1e';

// An engine that never runs a scan. It only counts the releases that code 89 schedules.
class IdleEngine final : public dp::PackageEngine {
 public:
  std::atomic<int> pendingReleases = 0;

  void InitPackageData(const std::string&, const std::string&, const std::string&) override {}
  void StartPackage(dp::PackageCallback) override {}
  void StopPackage() override {}
  void UninitPackageData() override { pendingReleases.fetch_sub(1); }
  void AddBackupFolder(const std::string&) override {}
  void AddTypeBackupFolder(const std::string&) override {}
  void AddPhotoBackupFolder(const std::string&) override {}
  void AddVoiceMemosBackupFolder(const std::string&) override {}
  void AddTypeNeedScan(dp::ScanType) override {}
  void AddPackageFile(const char*, int) override {}
  void AddPackageFileFinish() override {}
};

struct Setup {
  std::shared_ptr<IdleEngine> engine = std::make_shared<IdleEngine>();
  std::shared_ptr<dp::IOSDataParserDelegate> observer =
      std::make_shared<dp::IOSDataParserDelegate>();
  std::string dataFolder;
  bool parseDeleted = false;
};

Setup& setup() {
  static Setup instance;
  return instance;
}

void installObserver(dp::IOSDataParserDelegate& observer) {
  observer.dataParseDidBegined = [](dp::IOSDataParser&) {};
  observer.parseProgress = [](dp::IOSDataParser&, float) {};
  observer.didFetchedData = [](dp::IOSDataParser&, dp::ItemList items, dp::IOSDataType) {
    check(!items.empty(), "reported lists are never empty");
    for (const dp::ItemPtr& item : items) {
      check(item != nullptr, "reported items exist");
      dp::fuzz::describeAll(*item);
    }
  };
  observer.didParseFinished = [](dp::IOSDataParser&, int status) {
    check(status == 1 || status == 2, "a finished scan reports 1 or 2");
  };
  observer.didParseError = [](dp::IOSDataParser&, int status) {
    check(status == 3 || status == 2, "a failed scan reports 3 or 2");
  };
}

// Leading decimal integer (optional '-'), saturated to int32; `rest` gets what follows.
dp::CallbackTypeExtend readCode(std::string_view record, std::string_view& rest) {
  std::size_t i = 0;
  bool negative = false;
  if (i < record.size() && record[i] == '-') {
    negative = true;
    ++i;
  }
  std::int64_t value = 0;
  for (; i < record.size() && record[i] >= '0' && record[i] <= '9'; ++i) {
    if (value < std::numeric_limits<std::int32_t>::max()) value = value * 10 + (record[i] - '0');
  }
  rest = record.substr(i);
  value = negative ? -value : value;
  if (value > std::numeric_limits<std::int32_t>::max()) {
    return std::numeric_limits<std::int32_t>::max();
  }
  if (value < std::numeric_limits<std::int32_t>::min()) {
    return std::numeric_limits<std::int32_t>::min();
  }
  return static_cast<dp::CallbackTypeExtend>(value);
}

// What follows the first ':' of `rest` (or nothing).
std::string_view textOf(std::string_view rest) {
  std::size_t colon = rest.find(':');
  return colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
}

void newScan(bool parseDeleted) {
  dp::IOSDataParser& coordinator = dp::IOSDataParser::shared();
  coordinator.setParseDeleted(parseDeleted);
  coordinator.setDeviceBackup(!parseDeleted);
  coordinator.setupParser();
}

void callback(std::string_view record) {
  std::string_view rest;
  const dp::CallbackTypeExtend code = readCode(record, rest);
  const bool nullText = rest.starts_with('n');
  const std::string text = dp::stringByReplacingOccurrences(textOf(rest), "{{ROOT}}",
                                                            FuzzEnvironment::instance().root());

  if (code == 89) {
    // At most one delayed release at a time.
    int idle = 0;
    if (!setup().engine->pendingReleases.compare_exchange_strong(idle, 1)) return;
  }
  const int answer =
      CallbackFuction(code, nullText ? nullptr : text.c_str(), static_cast<int>(text.size()));
  check(answer == 0, "CallbackFuction answers 0");
  check(dp::isDirectory(setup().dataFolder), "the data folder exists after every call");
}

void runRecord(std::string_view record) {
  if (record.empty()) return;
  switch (record.front()) {
    case 'f': {
      const char name = record.size() > 1 ? record[1] : '0';
      const std::string file = std::string("files/") + (name == '/' ? '_' : name) + ".json";
      FuzzEnvironment::instance().writeFile(
          file, dp::stringByReplacingOccurrences(textOf(record), "{{ROOT}}",
                                                 FuzzEnvironment::instance().root()));
      return;
    }
    case 's':
      dp::IOSDataParser::shared().stopParse();
      return;
    case 'r':
      setup().parseDeleted = !setup().parseDeleted;
      newScan(setup().parseDeleted);
      return;
    default:
      callback(record);
      return;
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  FuzzEnvironment::instance();
  Setup& state = setup();
  installObserver(*state.observer);
  dp::IOSDataParser& coordinator = dp::IOSDataParser::shared();
  coordinator.setPackageEngine(state.engine);
  coordinator.setDelegate(state.observer);
  state.dataFolder = dp::productDomainPath() + "/data";
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view input = dataparser::fuzz::asText(data, size);
  setup().parseDeleted = false;
  newScan(false);
  while (!input.empty()) {
    std::size_t end = input.find(kRecordSeparator);
    runRecord(input.substr(0, end));
    if (end == std::string_view::npos) break;
    input.remove_prefix(end + 1);
  }
  dp::IOSDataParser::shared().resetParser();
  return 0;
}
