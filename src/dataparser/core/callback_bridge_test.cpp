#include "dataparser/core/callback_bridge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "dataparser/core/ios_data_parser.h"
#include "dataparser/engine/replay_engine.h"
#include "dataparser/util/file_helper.h"
#include "tests/scan_support.h"

namespace dataparser {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

// Every piece handed to a parser, as "TYPE TEXT".
std::vector<std::string>& received() {
  static std::vector<std::string> pieces;
  return pieces;
}

DispatchTable capturingTable() {
  DispatchTable table = testing::testDispatchTable();
  std::vector<DispatchRow> rows(table.rows().begin(), table.rows().end());
  for (const DispatchRow& row : rows) {
    if (row.kind != RowKind::kMade) continue;
    table.setFactory(row.type, [type = row.type](JSONData data, bool, bool) -> ParserPtr {
      received().push_back(testing::hex(type) + " " + std::string(data.value_or("(none)")));
      return nullptr;
    });
  }
  return table;
}

class CallbackBridgeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    received().clear();
    engine = std::make_shared<ReplayEngine>();
    IOSDataParser::shared().setPackageEngine(engine);
    IOSDataParser::shared().setDispatchTable(capturingTable());
    IOSDataParser::shared().setDelegate(observer.delegate());
    IOSDataParser::shared().setupParser();
  }
  void TearDown() override {
    IOSDataParser::shared().resetParser();
    IOSDataParser::shared().setPackageEngine(nullptr);
    IOSDataParser::shared().setDelegate({});
    IOSDataParser::shared().setDispatchTable(DispatchTable::standard());
  }

  testing::LogCapture logs;
  testing::RecordingObserver observer;
  std::shared_ptr<ReplayEngine> engine;
};

TEST_F(CallbackBridgeTest, DataCodesReachTheirParsersInMemory) {
  EXPECT_EQ(CallbackFuction(62, "{}", 2), 0);
  EXPECT_EQ(CallbackFuction(56, "{\"a\": 1}", 999), 0);  // the length is not used
  EXPECT_EQ(CallbackFuction(81, "[]", 2), 0);
  EXPECT_THAT(received(), ElementsAre("0x80000 {\"a\": 1}", "0x400000000 []"));
  // 62 is WeChat, a fed row: the test WeChat parser got it.
  EXPECT_THAT(observer.fetched(), ElementsAre());
  EXPECT_TRUE(IOSDataParser::shared().weChatParser()->rawData().present());
  // Media codes carry negative types.
  CallbackFuction(73, "{\"media\": [\"m\"]}", 0);
  EXPECT_THAT(observer.fetched(), ElementsAre("fetched 0x400000 m"));
  // Nothing is written: the write hook is empty.
  EXPECT_FALSE(fileExists(productDomainPath() + "/data/sms-db-data.json"));
  EXPECT_TRUE(logs.run().lines().empty());
}

TEST_F(CallbackBridgeTest, EveryCodeOfTheTable) {
  struct Case {
    int code;
    const char* expected;  // what reached a parser, or "" for nothing
    bool discardLogged;
  };
  const Case cases[] = {
      {47, "", true},          {48, "", false},         {51, "0x800 {}", false},
      {54, "", true},          {55, "0x400 {}", false}, {60, "0x4000 {}", false},
      {63, "0x200 {}", false}, {65, "0x80 {}", false},  {66, "0x2 {}", false},
      {67, "", true},          {72, "-2 {}", false},    {78, "", true},
      {80, "", true},          {82, "", true},          {83, "", true},
      {85, "", true},          {88, "", true},          {93, "", true},
      {-1, "", true},          {1000, "", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.code);
    received().clear();
    logs.run().clear();
    EXPECT_EQ(CallbackFuction(c.code, "{}", 2), 0);
    EXPECT_EQ(received().empty() ? std::string() : received().at(0), c.expected);
    EXPECT_EQ(logs.run().contains(">>> CallbackFuction Discard!!!"), c.discardLogged);
    // Null text is dropped without a word, whatever the code.
    logs.run().clear();
    received().clear();
    EXPECT_EQ(CallbackFuction(c.code, nullptr, 0), 0);
    EXPECT_TRUE(received().empty());
    EXPECT_TRUE(logs.run().lines().empty());
  }
}

TEST_F(CallbackBridgeTest, BadTextIsDroppedWithALogLine) {
  EXPECT_EQ(CallbackFuction(56, "\xff\xfe{}", 4), 0);
  EXPECT_EQ(CallbackFuction(56, "{\"a\": \"\xc3\"}", 0), 0);  // truncated sequence
  EXPECT_EQ(CallbackFuction(54, "\xff", 1), 0);
  EXPECT_TRUE(received().empty());
  EXPECT_THAT(logs.run().lines(),
              ElementsAre(">>> CallbackFuction Discard!!! invalid UTF-8 in a block of code 56",
                          ">>> CallbackFuction Discard!!! invalid UTF-8 in a block of code 56",
                          ">>> CallbackFuction Discard!!! invalid UTF-8 in a block of code 54"));
  // Malformed JSON still reaches the parser, which decides what it means.
  CallbackFuction(56, "{not json", 0);
  EXPECT_THAT(received(), ElementsAre("0x80000 {not json"));
}

TEST_F(CallbackBridgeTest, SafariHistoryIsCleanedFirst) {
  CallbackFuction(60, "a\\u000b56b", 0);
  CallbackFuction(52, "a\\u000b56b", 0);  // only Safari history is cleaned
  EXPECT_THAT(received(), ElementsAre("0x4000 ab", "0x2000 a\\u000b56b"));
}

TEST_F(CallbackBridgeTest, BeginProgressEndAndFailure) {
  CallbackFuction(90, nullptr, 0);
  CallbackFuction(90, "{}", 0);  // text with the begin code is dropped like a discard code
  EXPECT_TRUE(logs.run().contains(">>> CallbackFuction Discard!!!"));
  CallbackFuction(91, "{\"current\": 5, \"total\": 0}", 0);
  CallbackFuction(91, "{\"current\": 3, \"total\": 4}", 0);
  CallbackFuction(91, nullptr, 0);
  CallbackFuction(84, "{\"error\": 1}", 0);
  CallbackFuction(92, "{\"files\": 1}", 0);
  EXPECT_THAT(observer.events(),
              ElementsAre("began", "began", "progress 0.75", "error 3", "finished 1"));
  EXPECT_TRUE(received().empty());
  EXPECT_TRUE(logs.run().contains("*** Data parse error!!!"));
  EXPECT_TRUE(logs.run().contains("*** Data parse finished!!!"));
}

TEST_F(CallbackBridgeTest, DataFolderIsMadeOnEveryCall) {
  std::string data = productDomainPath() + "/data";
  for (int code : {89, 54, 56}) {
    std::filesystem::remove_all(data);
    CallbackFuction(code, nullptr, 0);
    EXPECT_TRUE(isDirectory(data)) << code;
  }
}

TEST_F(CallbackBridgeTest, CodeEightyNineReleasesTheEngineOneSecondLater) {
  auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(CallbackFuction(89, "{}", 2), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - started, 500ms);
  // The engine is replaced meanwhile: the release still reaches the engine that asked for it.
  std::weak_ptr<ReplayEngine> asked = engine;
  IOSDataParser::shared().setPackageEngine(nullptr);
  engine.reset();
  EXPECT_FALSE(asked.expired());
  EXPECT_FALSE(logs.run().contains("------ UninitPackageData"));
  auto deadline = std::chrono::steady_clock::now() + 10s;
  while (!logs.run().contains("------ UninitPackageData") &&
         std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(20ms);
  }
  EXPECT_GE(std::chrono::steady_clock::now() - started, 900ms);
  EXPECT_TRUE(logs.run().contains("------ UninitPackageData"));
  while (!asked.expired() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(20ms);
  }
  EXPECT_TRUE(asked.expired());  // released once the task is done
  EXPECT_TRUE(received().empty());
}

TEST_F(CallbackBridgeTest, DataAfterStopIsIgnored) {
  IOSDataParser::shared().stopParse();
  CallbackFuction(56, "{}", 2);
  CallbackFuction(91, "{\"current\": 1, \"total\": 2}", 0);
  CallbackFuction(92, nullptr, 0);
  EXPECT_TRUE(received().empty());
  EXPECT_THAT(observer.events(), ElementsAre("finished 2"));
}

TEST(RemoveInvalidCharacterTest, RemovesTheBrokenEscapesInOrder) {
  struct Case {
    const char* input;
    const char* expected;
  };
  const Case cases[] = {
      {"a\\u000b56b", "ab"},  // the longer text goes first, so "56" goes with it
      {"\\udeed\\udd4a\\u038c\\u060aJx", "x"},
      {"\\u060aj", "\\u060aj"},  // case matters
      {"\\u000b\\u000b", ""},
      {"\\\\u000b", "\\"},
      {"\\u00", "\\u00"},
      {"plain", "plain"},
      {"", ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(removeInvalidCharacterText(c.input), c.expected) << c.input;
    char* cleaned = removeInvalidCharacter(c.input);
    ASSERT_NE(cleaned, nullptr);
    EXPECT_STREQ(cleaned, c.expected);
    std::free(cleaned);
  }
  EXPECT_EQ(removeInvalidCharacter(nullptr), nullptr);
  writeJsonData(nullptr, nullptr, 0, nullptr);  // the hook accepts anything and does nothing
}

}  // namespace
}  // namespace dataparser
