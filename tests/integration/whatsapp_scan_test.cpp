// The whole road for WhatsApp: the sample recordings of both apps, iOS and Android, through the
// replay engines, the callbacks, the coordinator and the parsers to the CLI's export; and bad
// input that must cost only itself.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/integration/cli_scan.h"

namespace dataparser::cli {
namespace {

using dataparser::testing::LocalZone;
using dataparser::testing::TempDir;
using testing::sampleFolder;
using testing::scan;
using testing::ScanRun;

std::vector<std::int64_t> reportedTypes(const json::Value& exported) {
  std::vector<std::int64_t> types;
  for (json::View report : exported["reports"].elements())
    types.push_back(report["type"].integer());
  return types;
}

TEST(WhatsappScanTest, IOSSampleOfBothApps) {
  LocalZone zone("UTC");
  TempDir dir;
  ScanRun run = scan(sampleFolder("whatsapp-demo"), /*deleted=*/false, dir);
  const json::Value& out = run.exported;
  ASSERT_TRUE(out.isObject());
  EXPECT_EQ(out["status"].integer(), 1);
  EXPECT_EQ(reportedTypes(out),
            (std::vector<std::int64_t>{0x200000, 0x400000, 0x400000000, 0x800000000}));
  json::View chats = out["lists"]["2097152"];
  ASSERT_EQ(chats.size(), 2u);
  json::View ann = chats.at(0);
  EXPECT_EQ(ann["class"].string(), "IOSWhatsappSessionItem");
  EXPECT_EQ(ann["identifier"].string(), "4915112345678");
  ASSERT_EQ(ann["contents"].size(), 4u);  // the deleted message and kind 31 are left out
  EXPECT_EQ(ann["contents"].at(0)["strSendDate"].string(), "2024/06/13 19:33:20");
  EXPECT_EQ(ann["contents"].at(2)["attachment"]["size"].integer(), 812);
  EXPECT_DOUBLE_EQ(ann["contents"].at(3)["attachment"]["voice"]["duration"].number(), 7.5);
  json::View crew = chats.at(1);
  EXPECT_EQ(crew["contents"].at(0)["strNotice"].string(), "WhatsApp_GroupNotice_CreateGroup");
  EXPECT_EQ(crew["contents"].at(2)["strNotice"].string(), "WhatsApp_GroupNotice_Left");
  EXPECT_EQ(crew["contents"].at(2)["from"].string(), "Ben");
  EXPECT_EQ(out["lists"]["4194304"].size(), 2u);
  json::View business = out["lists"]["17179869184"];
  ASSERT_EQ(business.size(), 2u);
  EXPECT_EQ(business.at(0)["name"].string(), "Corner Bakery");
  EXPECT_EQ(business.at(1)["contents"].at(1)["text"].string(), "4930888888");
  // WhatsApp and WhatsApp Business share one attachment list: Business reports both apps' files.
  EXPECT_EQ(out["lists"]["34359738368"].size(), 4u);

  ScanRun all = scan(sampleFolder("whatsapp-demo"), /*deleted=*/true, dir);
  EXPECT_EQ(all.exported["lists"]["2097152"].at(0)["contents"].size(), 5u);
}

TEST(WhatsappScanTest, AndroidSampleOfBothApps) {
  TempDir dir;
  ScanRun run = scan(sampleFolder("android-whatsapp-demo"), /*deleted=*/false, dir,
                     /*android=*/true);
  EXPECT_EQ(run.status, 0) << run.err;
  const json::Value& out = run.exported;
  EXPECT_EQ(out["status"].integer(), 1);
  EXPECT_EQ(reportedTypes(out),
            (std::vector<std::int64_t>{0x1000000000, 0x2000000000, 0x4000000000}));
  json::View chats = out["lists"]["68719476736"];
  ASSERT_EQ(chats.size(), 2u);
  EXPECT_EQ(chats.at(0)["identifier"].string(), "+4915112345678");
  ASSERT_EQ(chats.at(0)["contents"].size(), 4u);
  EXPECT_EQ(chats.at(0)["contents"].at(1)["attachment"]["size"].integer(), 260);
  EXPECT_EQ(chats.at(1)["contents"].at(2)["strNotice"].string(),
            "AndroidWhatsApp_GroupNotice_AddedIn");
  EXPECT_EQ(out["lists"]["137438953472"].size(), 3u);
  EXPECT_TRUE(out["lists"]["274877906944"].at(0)["broadcast"].boolean());
}

TEST(WhatsappScanTest, BadInputCostsOnlyItself) {
  TempDir dir;
  dir.write("rec/files/broken.json", "{\"messages\": [");
  dir.write("rec/files/list.json", "[\"not an object\"]");
  dir.write("rec/files/good.json",
            R"({"messages": [7, null, {"type": 0, "ZMESSAGEDATE": null, "text": "kept"},
                {"type": 99, "ZMESSAGEDATE": 5, "text": "unknown kind"},
                {"type": 22, "ZMESSAGEDATE": "soon", "text": "notice"}]})");
  dir.write("rec/stream/000001-61.json",
            R"({"whatsapp_chatsessions": [3, {"jid": "1@x", "msg_file_list": [
                "{{ROOT}}/files/good.json", "{{ROOT}}/files/broken.json",
                "{{ROOT}}/files/absent.json", "{{ROOT}}/files/list.json"]}]})");
  dir.write("rec/stream/000002-81.json", "not JSON at all");
  ScanRun run = scan(dir.str() + "/rec", /*deleted=*/false, dir);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.exported["status"].integer(), 1);
  json::View contents = run.exported["lists"]["2097152"].at(0)["contents"];
  ASSERT_EQ(contents.size(), 3u);
  EXPECT_EQ(contents.at(0)["text"].string(), "kept");

  // An Android engine error fails the scan.
  dir.write("android/stream/000001-0.null", "");
  ScanRun failed = scan(dir.str() + "/android", /*deleted=*/false, dir, /*android=*/true);
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(failed.exported["status"].integer(), 3);
}

}  // namespace
}  // namespace dataparser::cli
