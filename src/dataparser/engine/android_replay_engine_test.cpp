#include "dataparser/engine/android_replay_engine.h"

#include <gtest/gtest.h>

#include <mutex>

#include "tests/test_support.h"

namespace dataparser {
namespace {

using namespace std::chrono_literals;
using testing::TempDir;

std::mutex gMutex;
std::vector<std::string> gSent;

std::int32_t recordCallback(std::int32_t type, const char* data, int) {
  std::lock_guard lock(gMutex);
  gSent.push_back(std::to_string(type) + " " + (data != nullptr ? data : "null"));
  return 0;
}

// Replays with a parameter object naming `path` and gives what was sent.
std::vector<std::string> replay(const std::string& path, const std::string& temp,
                                int packageType = 0) {
  {
    std::lock_guard lock(gMutex);
    gSent.clear();
  }
  AndroidReplayEngine engine;
  engine.InitQMDataPackage("/logs", "/config");
  std::string filter = "{\"package_type\": " + std::to_string(packageType) +
                       ", \"temp_folder\": \"" + temp +
                       "\", \"primary_file_object\": {\"msg_file_path\": \"" + path + "\"}}";
  engine.QMDataFilter(filter.c_str(), static_cast<int>(filter.size()));
  engine.QMDataPackage(&recordCallback);
  EXPECT_TRUE(engine.waitUntilIdle(10s));
  EXPECT_EQ(engine.calls().size(), 3u);
  std::lock_guard lock(gMutex);
  return gSent;
}

TEST(AndroidReplayEngineTest, RepliesBlocksThenTheEndSignal) {
  TempDir dir;
  dir.write("rec/stream/000001-20.json", "{\"root\": \"{{ROOT}}\", \"t\": \"{{TEMPLATES}}\"}");
  dir.write("rec/templates/a.json", "x");
  dir.write("rec/stream/000002-5.json", "{}");
  const std::string root = dir.str() + "/rec";
  const std::vector<std::string> sent = replay(root + "/Databases/msgstore.db", dir.str());
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_TRUE(
      sent[0].starts_with("20 {\"root\": \"" + root + "\", \"t\": \"" + dir.str() + "/replay-"))
      << sent[0];
  EXPECT_EQ(sent[1], "5 {}");
  EXPECT_EQ(sent[2], "20 null");
  EXPECT_EQ(replay(root, dir.str(), 25).back(), "21 null");

  // A recording that ends with its own null block gets no second end.
  dir.write("rec/stream/000003-7.null", "");
  std::vector<std::string> own = replay(root, dir.str());
  ASSERT_EQ(own.size(), 3u);
  EXPECT_EQ(own.back(), "7 null");
  // No recording anywhere above the path: an engine error only.
  EXPECT_EQ(replay(dir.str() + "/elsewhere/x.db", dir.str()), std::vector<std::string>{"0 null"});
}

}  // namespace
}  // namespace dataparser
