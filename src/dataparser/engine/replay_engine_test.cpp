#include "dataparser/engine/replay_engine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>

#include "dataparser/engine/recording.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/json.h"
#include "dataparser/util/text.h"
#include "tests/scan_support.h"

namespace dataparser {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

// What the engine sent, as "CODE TEXT" ("CODE null" for null text).
struct Sent {
  std::mutex mutex;
  std::vector<std::string> lines;
};
Sent& sent() {
  static Sent instance;
  return instance;
}
std::vector<std::string> sentLines() {
  std::lock_guard lock(sent().mutex);
  return sent().lines;
}

int recordCallback(CallbackTypeExtend type, const char* data, int len) {
  std::lock_guard lock(sent().mutex);
  std::string text = data != nullptr ? std::string(data) : "null";
  EXPECT_EQ(len, data != nullptr ? static_cast<int>(text.size()) : 0);
  sent().lines.push_back(std::to_string(type) + " " + text);
  return 0;
}

class ReplayEngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::lock_guard lock(sent().mutex);
    sent().lines.clear();
  }
  // Runs one scan of `folder` to its end.
  std::vector<std::string> replay(const std::string& folder) {
    engine.InitPackageData("logs", "config", "temp");
    engine.StartPackage(&recordCallback);
    engine.AddBackupFolder(folder);
    engine.AddPackageFileFinish();
    EXPECT_TRUE(engine.waitUntilIdle(10s));
    return sentLines();
  }

  testing::TempDir dir;
  ReplayEngine engine;
};

TEST_F(ReplayEngineTest, AddsBeginProgressAndEndAroundTheRecording) {
  testing::RecordingWriter recording(dir);
  recording.block(56, "{\"path\": \"{{ROOT}}/a\", \"again\": \"{{ROOT}}\"}")
      .nullBlock(57)
      .block(54, "discarded")
      .block(61, "{}");
  dir.write("recording/stream/README", "not a block");
  dir.write("recording/stream/12-56.json", "short sequence: not a block");
  std::string root = recording.path();
  EXPECT_THAT(
      replay(root),
      ElementsAre("90 null", "56 {\"path\": \"" + root + "/a\", \"again\": \"" + root + "\"}",
                  "91 {\"current\": 1, \"total\": 3}", "57 null",
                  "91 {\"current\": 2, \"total\": 3}", "54 discarded", "61 {}",
                  "91 {\"current\": 3, \"total\": 3}", "92 null"));
}

TEST_F(ReplayEngineTest, RecordingsWithTheirOwnControlBlocksKeepThem) {
  testing::RecordingWriter recording(dir);
  recording.block(90, "{}").block(56, "{}").block(91, "{\"current\": 9, \"total\": 9}");
  recording.nullBlock(92);
  EXPECT_THAT(replay(recording.path()),
              ElementsAre("90 {}", "56 {}", "91 {\"current\": 9, \"total\": 9}", "92 null"));
}

TEST_F(ReplayEngineTest, AFailureBlockEndsTheScanWithoutAClosingEnd) {
  testing::RecordingWriter recording(dir);
  recording.block(56, "{}").block(84, "{}");
  EXPECT_THAT(replay(recording.path()),
              ElementsAre("90 null", "56 {}", "91 {\"current\": 1, \"total\": 1}", "84 {}"));
}

TEST_F(ReplayEngineTest, MissingOrEmptyInput) {
  EXPECT_THAT(replay(dir.str() + "/missing"), ElementsAre("90 null", "84 null"));
  SetUp();
  engine.InitPackageData("l", "c", "t");
  engine.StartPackage(&recordCallback);
  engine.AddPackageFileFinish();
  ASSERT_TRUE(engine.waitUntilIdle(10s));
  EXPECT_THAT(sentLines(), ElementsAre("90 null", "92 null"));
}

TEST_F(ReplayEngineTest, StopEndsTheReplayBetweenBlocksAndStillReportsTheEnd) {
  testing::RecordingWriter recording(dir);
  for (int i = 0; i < 50; ++i)
    recording.block(56, "{}");
  engine.setBlockDelay(20ms);
  engine.InitPackageData("l", "c", "t");
  engine.StartPackage(&recordCallback);
  engine.AddBackupFolder(recording.path());
  engine.AddPackageFileFinish();
  engine.AddPackageFileFinish();  // the input is already complete: ignored
  std::this_thread::sleep_for(50ms);
  engine.StopPackage();
  ASSERT_TRUE(engine.waitUntilIdle(10s));
  std::vector<std::string> lines = sentLines();
  EXPECT_LT(lines.size(), 20u);
  EXPECT_EQ(lines.front(), "90 null");
  EXPECT_EQ(lines.back(), "92 null");
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "90 null"), 1);

  // The next scan starts afresh.
  SetUp();
  engine.setBlockDelay(0ms);
  engine.InitPackageData("l", "c", "t");
  engine.AddBackupFolder(recording.path());
  engine.AddPackageFileFinish();
  ASSERT_TRUE(engine.waitUntilIdle(10s));
  EXPECT_EQ(sentLines().size(), 1u + 50u * 2u + 1u);
}

TEST_F(ReplayEngineTest, DeviceFilesOfARecordingAreReplayed) {
  testing::RecordingWriter recording(dir, "backup/UDID");
  recording.block(61, "{\"at\": \"{{ROOT}}\"}");
  recording.block(56, "{}");
  engine.InitPackageData("l", "c", "t");
  engine.StartPackage(&recordCallback);
  auto add = [&](const std::string& relative) {
    std::string text = "{\"files\" : [ {\"relative_fullpath\" : \"" + relative +
                       "\", \"src_fullpath\" : \"" + recording.path() + "/" + relative + "\"} ]}";
    engine.AddPackageFile(text.c_str(), static_cast<int>(text.size()));
  };
  add("stream/000002-56.json");  // arrival order does not matter, names do
  add("Library/other.db");
  add("stream/000001-61.json");
  engine.AddPackageFile("{broken", 7);
  engine.AddPackageFile(nullptr, 0);
  engine.AddPackageFileFinish();
  ASSERT_TRUE(engine.waitUntilIdle(10s));
  EXPECT_THAT(sentLines(), ElementsAre("90 null", "61 {\"at\": \"" + recording.path() + "\"}",
                                       "91 {\"current\": 1, \"total\": 2}", "56 {}",
                                       "91 {\"current\": 2, \"total\": 2}", "92 null"));
  EXPECT_EQ(engine.calls("AddPackageFile").size(), 5u);
  EXPECT_EQ(engine.calls("AddPackageFile")[3].arguments, std::vector<std::string>{"{broken"});
}

TEST_F(ReplayEngineTest, WithoutACallbackAReplaySendsNothingAndStillEnds) {
  engine.InitPackageData("l", "c", "t");
  engine.AddPackageFileFinish();
  EXPECT_TRUE(engine.waitUntilIdle(10s));
  EXPECT_TRUE(sentLines().empty());
}

TEST(ReplayEngineTemplatesTest, TemplatesAreFilledInForTheReplayAndRemovedAfterIt) {
  testing::TempDir dir;
  std::string root = dir.str() + "/rec";
  std::string temp = dir.str() + "/temp";
  dir.write("rec/templates/sms/chats.json", R"({"path": "{{ROOT}}/files/a.jpg"})");
  dir.write("rec/stream/000001-56.json", R"({"file": "{{TEMPLATES}}/sms/chats.json"})");
  static std::mutex mutex;
  static std::vector<std::string> seen;  // what each named template held during the replay
  ReplayEngine engine;
  engine.InitPackageData("logs", "config", temp);
  engine.StartPackage(+[](CallbackTypeExtend type, const char* data, int) {
    if (type != 56 || data == nullptr) return 0;
    json::Value block = json::parse(std::string_view(data));
    std::lock_guard lock(mutex);
    seen.push_back(readFile(std::string(block["file"].string())).value_or("missing"));
    seen.push_back(std::string(block["file"].string()));
    return 0;
  });
  engine.AddBackupFolder(root);
  engine.AddPackageFileFinish();
  ASSERT_TRUE(engine.waitUntilIdle(std::chrono::seconds(10)));
  std::lock_guard lock(mutex);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0], R"({"path": ")" + root + R"(/files/a.jpg"})");
  EXPECT_TRUE(seen[1].starts_with(temp + "/replay-")) << seen[1];
  EXPECT_FALSE(fileExists(seen[1]));  // removed at the end of the replay
  // The recording itself is never written to.
  EXPECT_EQ(readFile(root + "/templates/sms/chats.json"), R"({"path": "{{ROOT}}/files/a.jpg"})");
}

}  // namespace
}  // namespace dataparser

namespace dataparser {
namespace {

// Folder names that JSON cannot hold as they are still give blocks that decode, and the paths
// in them are the folders' own (bytes outside UTF-8 read as U+FFFD).
TEST(RecordingTokensTest, PathsAreEscapedWhereTheyEnterJson) {
  const std::string names[] = {"plain", "with \"quote\"", "back\\slash", "tab\there",
                               std::string("bad\xff"
                                           "byte")};
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    testing::TempDir dir;
    const std::string root = dir.str() + "/" + name;
    testing::TempDir temp;
    const std::string file =
        dir.write(name + "/stream/000001-56.json",
                  R"({"root": "{{ROOT}}/f", "templates": "{{TEMPLATES}}/t.json"})");
    dir.write(name + "/templates/t.json", R"({"path": "{{ROOT}}/g"})");

    const std::string copy = recording::materializeTemplates(root, temp.str(), 1);
    ASSERT_FALSE(copy.empty());
    std::optional<std::string> text =
        recording::blockText(recording::Block{"000001-56.json", file, 56, false}, root, copy);
    ASSERT_TRUE(text.has_value());
    json::Value value = json::parse(*text);
    ASSERT_TRUE(value.isObject()) << *text;
    EXPECT_EQ(value["root"].stringCopy(), repairedUtf8(root) + "/f");
    EXPECT_EQ(value["templates"].stringCopy(), repairedUtf8(copy) + "/t.json");
    json::Value filled = json::parseFile(copy + "/t.json");
    EXPECT_EQ(filled["path"].stringCopy(), repairedUtf8(root) + "/g");
    recording::removeTemplates(copy);
  }
}

}  // namespace
}  // namespace dataparser
