#include "dataparser/engine/folder_backup_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>

#include "dataparser/util/file_helper.h"
#include "tests/scan_support.h"

namespace dataparser {
namespace {

using ::testing::ElementsAre;

class EventLog final : public BackupManagerObserver {
 public:
  void backupManagerReadyBegined() override { add("ready"); }
  void backupManagerReadyCompleted() override { add("ready done"); }
  void backupManagerBackupBegin(const std::string& path) override { add("begin " + path); }
  void backupManagerBackupProgress(float progress) override {
    add("progress " + std::to_string(static_cast<int>(progress * 100)));
  }
  bool backupManagerShouldBackupFile(const std::string& device, const std::string&) override {
    return device != skip;
  }
  void backupManagerDidCompleteOneFile(const std::string& device,
                                       const std::string& local) override {
    add("done " + device + " -> " + local + (fileExists(local) ? "" : " (missing)"));
    if (stopAfterFirst) manager->stopBackUp();
  }
  void backupManagerResult(bool result, const std::string& path, std::int32_t code) override {
    add("result " + std::to_string(result) + " " + path + " " + std::to_string(code));
  }
  std::vector<std::string> events() {
    std::lock_guard lock(mutex);
    return lines;
  }

  std::string skip;
  bool stopAfterFirst = false;
  FolderBackupManager* manager = nullptr;

 private:
  void add(std::string line) {
    std::lock_guard lock(mutex);
    lines.push_back(std::move(line));
  }
  std::mutex mutex;
  std::vector<std::string> lines;
};

class FolderBackupManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir.write("phone/b.txt", "bb");
    dir.write("phone/a/z.db", "zz");
    dir.write("phone/a/skip.db", "s");
    log.manager = &manager;
    manager.setObserver(&log);
  }
  std::shared_ptr<const BackupDevice> device(std::string location) {
    return std::make_shared<BackupDevice>(BackupDevice{"DEV-1", "phone", std::move(location)});
  }

  testing::TempDir dir;
  EventLog log;
  FolderBackupManager manager;
};

TEST_F(FolderBackupManagerTest, CopiesFileByFileWithTheRealEventOrder) {
  log.skip = "a/skip.db";
  manager.backupDevice(device(dir.str() + "/phone"), dir.str() + "/out", false, 3, false);
  manager.waitUntilDone();
  std::string to = dir.str() + "/out/DEV-1";
  EXPECT_THAT(log.events(), ElementsAre("ready", "ready done", "begin " + to, "progress 33",
                                        "done a/z.db -> " + to + "/a/z.db", "progress 66",
                                        "done b.txt -> " + to + "/b.txt", "progress 100",
                                        "result 1 " + to + " 0"));
  EXPECT_EQ(readFile(to + "/b.txt").value_or(""), "bb");
  EXPECT_FALSE(fileExists(to + "/a/skip.db"));
  EXPECT_TRUE(fileExists(dir.str() + "/phone/b.txt"));  // the source is left alone
  ASSERT_EQ(manager.requests().size(), 1u);
  EXPECT_EQ(manager.requests()[0].backupCategory, 3);
}

TEST_F(FolderBackupManagerTest, StopEndsBetweenFiles) {
  log.stopAfterFirst = true;
  manager.backupDevice(device(dir.str() + "/phone"), dir.str() + "/out", false, 0, false);
  manager.waitUntilDone();
  std::vector<std::string> events = log.events();
  EXPECT_EQ(std::count_if(events.begin(), events.end(),
                          [](const std::string& e) { return e.starts_with("done "); }),
            1);
  EXPECT_EQ(events.back(), "result 0 " + dir.str() + "/out/DEV-1 " +
                               std::to_string(FolderBackupManager::kBackupStopped));
}

TEST_F(FolderBackupManagerTest, MissingSourceOrDevice) {
  manager.backupDevice(device(dir.str() + "/nothing"), dir.str() + "/out", false, 0, false);
  manager.waitUntilDone();
  EXPECT_EQ(log.events().back(), "result 0 " + dir.str() + "/out/DEV-1 " +
                                     std::to_string(FolderBackupManager::kBackupSourceMissing));
  // A device whose UDID would leave the backup folder stays inside it.
  manager.backupDevice(std::make_shared<BackupDevice>(BackupDevice{"../..", "", ""}),
                       dir.str() + "/out", false, 0, false);
  manager.waitUntilDone();
  EXPECT_EQ(log.events().back(), "result 0 " + dir.str() + "/out/_ " +
                                     std::to_string(FolderBackupManager::kBackupSourceMissing));
}

}  // namespace
}  // namespace dataparser
