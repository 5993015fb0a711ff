// A device backup through the backup engine, the callback, the coordinator and the SMS parser
// to the CLI's observer and out as the JSON export.
#include <gtest/gtest.h>

#include <string>

#include "dataparser/util/file_helper.h"
#include "tests/backup_fixture.h"
#include "tests/integration/cli_scan.h"

namespace dataparser::cli {
namespace {

using dataparser::testing::TempDir;
using testing::scan;
using testing::ScanRun;

TEST(BackupScanIntegrationTest, SyntheticBackupEndToEnd) {
  TempDir dir;
  const std::string backup = dir.str() + "/backup";
  dataparser::testing::writeSampleBackup(
      backup, readFile(dataparser::testing::fixturePath(
                           "../../samples/sms-demo/files/Attachments/ab/01/IMG_0001.JPG"))
                  .value_or(""));

  for (bool deleted : {false, true}) {
    SCOPED_TRACE(deleted ? "with deleted" : "without deleted");
    ScanRun run = scan(backup, deleted, dir);
    ASSERT_EQ(run.status, 0) << run.err;
    const json::Value& exported = run.exported;
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
    // Contacts and calls reach their parsers with the fields a recording gives.
    json::View contacts = exported["lists"]["1024"];
    ASSERT_EQ(contacts.size(), 2u);
    EXPECT_EQ(contacts.at(0)["displayName"].string(), "Ann Lee");
    EXPECT_EQ(contacts.at(0)["phoneInfos"].at(0)["title"].string(), "Mobile");
    EXPECT_EQ(exported["lists"]["2048"].size(), 4u);
    EXPECT_EQ(exported["lists"]["4096"].size(), 1u);  // the FaceTime call
  }
}

}  // namespace
}  // namespace dataparser::cli
