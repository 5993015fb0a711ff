// The whole road: a recorded scan goes through the replay engine, the callback, the coordinator
// and the SMS parser to the CLI's observer and out as the JSON export.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "dataparser/util/json.h"
#include "tests/integration/cli_scan.h"
#include "tests/test_support.h"
#include "tools/dataparser/scan_command.h"

namespace dataparser::cli {
namespace {

using dataparser::testing::TempDir;
using testing::contents;
using testing::scan;
using testing::ScanRun;

std::string sampleFolder() {
  return testing::sampleFolder("sms-demo");
}

TEST(ScanIntegrationTest, SampleRecordingEndToEnd) {
  TempDir dir;
  ScanRun run = scan(sampleFolder(), /*deleted=*/false, dir);
  ASSERT_EQ(run.status, 0) << run.err;
  const json::Value& out = run.exported;
  ASSERT_TRUE(out.isObject());
  EXPECT_EQ(out["status"].integer(), 1);
  EXPECT_TRUE(out["began"].boolean());
  ASSERT_GE(out["progress"].size(), 1u);
  EXPECT_FLOAT_EQ(static_cast<float>(out["progress"].at(out["progress"].size() - 1).number()),
                  1.0f);
  ASSERT_EQ(out["reports"].size(), 2u);
  EXPECT_EQ(out["reports"].at(0)["type"].integer(), 0x80000);
  EXPECT_EQ(out["reports"].at(0)["count"].integer(), 3);
  EXPECT_EQ(out["reports"].at(1)["type"].integer(), 0x100000);
  EXPECT_EQ(out["reports"].at(1)["count"].integer(), 5);

  json::View sessions = out["lists"]["524288"];
  ASSERT_EQ(sessions.size(), 3u);
  json::View ann = sessions.at(0);
  EXPECT_EQ(ann["class"].string(), "IOSSMSSessionItem");
  EXPECT_EQ(ann["name"].string(), "Ann Lee");
  EXPECT_EQ(ann["identifier"].string(), "+15550101");
  EXPECT_EQ(ann["thumb"]["width"].integer(), 12);
  ASSERT_EQ(ann["contents"].size(), 4u);  // the message deleted on the phone is left out
  json::View photo = ann["contents"].at(2);
  EXPECT_EQ(photo["class"].string(), "IOSSMSSingleItem");
  EXPECT_EQ(photo["attachment"]["class"].string(), "IOSAttachmentItem");
  EXPECT_EQ(photo["attachment"]["type"].integer(), 1);
  EXPECT_EQ(photo["attachment"]["name"].string(), "IMG_0001.JPG");
  EXPECT_EQ(photo["attachment"]["size"].integer(), 812);
  EXPECT_EQ(ann["contents"].at(3)["text"].string(), "Saturday\nBring sunscreen.");
  EXPECT_DOUBLE_EQ(ann["contents"].at(0)["sendDate"].number(), 1718356325.0);
  EXPECT_EQ(ann["contents"].at(0)["strSendDate"].string(), "06-14-2024 09:12:05");
  EXPECT_FALSE(ann["rawData"].present());

  json::View trip = sessions.at(1);
  EXPECT_EQ(trip["name"].string(), "Weekend trip");
  EXPECT_TRUE(trip["isGroup"].boolean());
  EXPECT_EQ(trip["members"].size(), 3u);
  EXPECT_EQ(trip["contents"].size(), 5u);  // two pictures and their words, a text, a card
  EXPECT_EQ(sessions.at(2)["name"].string(), "Dentist");
  EXPECT_EQ(sessions.at(2)["recentMessage"].string(), "Social Message Attachment - [a audio]");
  EXPECT_EQ(out["lists"]["1048576"].size(), 5u);

  EXPECT_NE(run.out.find("IOSDataTypeSMS"), std::string::npos);
  EXPECT_NE(run.out.find("scan finished"), std::string::npos);

  // With deleted data, the deleted message and the deleted conversation come back.
  ScanRun withDeleted = scan(sampleFolder(), /*deleted=*/true, dir);
  ASSERT_EQ(withDeleted.status, 0) << withDeleted.err;
  json::View all = withDeleted.exported["lists"]["524288"];
  ASSERT_EQ(all.size(), 4u);
  EXPECT_EQ(all.at(0)["contents"].size(), 5u);
  EXPECT_EQ(all.at(3)["isDeleted"].integer(), 1);
}

TEST(ScanIntegrationTest, BadInputStillFinishes) {
  TempDir dir;
  std::string root = dir.str() + "/recording";
  dir.write("recording/files/broken.json", "{\"chat_sessions\": [{\"messages\": ");
  std::string huge(2 << 20, 'x');
  dir.write("recording/files/good.json",
            R"({"chat_sessions": [7, "text", [1], null,
               {"chat_id": 1, "messages": [{"text": ")" +
                huge + R"(", "type": 0}]},
               {"chat_id": 2, "messages": [{"text": "short", "type": 0}]}]})");
  dir.write("recording/stream/000001-56.json",
            R"({"sms_file_path": ["{{ROOT}}/files/broken.json", "{{ROOT}}/files/absent.json",
                                  "{{ROOT}}/files/good.json"]})");
  dir.write("recording/stream/000002-56.json", "this is not JSON");
  dir.write("recording/stream/000003-47.json", "{\"unknown\": true}");
  dir.write("recording/stream/000004-56.null", "");
  ScanRun run = scan(root, false, dir);
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.exported["status"].integer(), 1);
  json::View sessions = run.exported["lists"]["524288"];
  ASSERT_EQ(sessions.size(), 2u);
  EXPECT_EQ(sessions.at(0)["contents"].at(0)["text"].string().size(), huge.size());
  EXPECT_EQ(sessions.at(1)["recentMessage"].string(), "short");
}

TEST(ScanIntegrationTest, FoldersThatCannotBeScanned) {
  TempDir dir;
  ScanOptions options;
  for (std::string folder : {dir.str() + "/absent", dir.write("file", "x"), dir.str()}) {
    options.folder = folder;
    std::FILE* out = std::tmpfile();
    std::FILE* err = std::tmpfile();
    EXPECT_EQ(runScan(options, out, err), 1) << folder;
    EXPECT_NE(contents(err).find("dataparser: "), std::string::npos) << folder;
    std::fclose(out);
  }
}

}  // namespace
}  // namespace dataparser::cli
