// A device backup through the backup engine, the callback, the coordinator and the SMS parser
// to the CLI's observer and out as the JSON export.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/json.h"
#include "tests/backup_fixture.h"
#include "tests/test_support.h"
#include "tools/dataparser/scan_command.h"

namespace dataparser::cli {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

std::string contents(std::FILE* file) {
  std::rewind(file);
  std::string text;
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, file)) > 0;)
    text.append(buffer, n);
  std::fclose(file);
  return text;
}

TEST(BackupScanIntegrationTest, SyntheticBackupEndToEnd) {
  TempDir dir;
  const std::string backup = dir.str() + "/backup";
  testing::writeSampleBackup(
      backup,
      readFile(testing::fixturePath("../../samples/sms-demo/files/Attachments/ab/01/IMG_0001.JPG"))
          .value_or(""));

  for (bool deleted : {false, true}) {
    SCOPED_TRACE(deleted ? "with deleted" : "without deleted");
    ScanOptions options;
    options.folder = backup;
    options.deleted = deleted;
    options.jsonPath = dir.str() + "/export.json";
    options.timeoutSeconds = 60;
    std::FILE* out = std::tmpfile();
    std::FILE* err = std::tmpfile();
    const int status = runScan(options, out, err);
    const std::string errors = contents(err);
    contents(out);
    ASSERT_EQ(status, 0) << errors;
    json::Value exported = json::parseFile(options.jsonPath);
    EXPECT_EQ(exported["status"].integer(), 1);
    ASSERT_GE(exported["progress"].size(), 1u);

    json::View sessions = exported["lists"]["524288"];
    ASSERT_EQ(sessions.size(), deleted ? 3u : 2u);
    json::View ann = sessions.at(0);
    EXPECT_EQ(ann["name"].string(), "Ann Lee");
    EXPECT_EQ(ann["identifier"].string(), "+15550101");
    ASSERT_EQ(ann["contents"].size(), deleted ? 6u : 5u);
    EXPECT_EQ(ann["contents"].at(0)["strSendDate"].string(), "06-14-2024 09:12:05");
    EXPECT_DOUBLE_EQ(ann["contents"].at(0)["sendDate"].number(), 1718356325.0);
    json::View photo = ann["contents"].at(2);
    EXPECT_EQ(photo["attachment"]["type"].integer(), 1);
    EXPECT_EQ(photo["attachment"]["name"].string(), "IMG_0001.JPG");
    EXPECT_EQ(photo["attachment"]["size"].integer(), 812);
    EXPECT_EQ(ann["contents"].at(3)["text"].string(), "Saturday\nBring sunscreen.");
    EXPECT_EQ(ann["contents"].at(4)["text"].string(), "Hello from the archive");

    json::View trip = sessions.at(1);
    EXPECT_EQ(trip["name"].string(), "Weekend trip");
    EXPECT_TRUE(trip["isGroup"].boolean());
    EXPECT_EQ(trip["members"].size(), 3u);
    if (deleted) {
      EXPECT_EQ(sessions.at(2)["isDeleted"].integer(), 1);
    }
    EXPECT_EQ(exported["lists"]["1048576"].size(), 1u);
  }
}

}  // namespace
}  // namespace dataparser::cli
