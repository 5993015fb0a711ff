// The whole road for the chat apps with message files: the LINE, Kik and Viber sample
// recordings go through the replay engine, the coordinator and their parsers to the CLI's
// export; and a recording full of hostile input still finishes with everything else intact.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "dataparser/core/file_helper.h"
#include "dataparser/parsers/messaging/kik.h"
#include "dataparser/util/json.h"
#include "dataparser/util/text.h"
#include "tests/chat_app_support.h"
#include "tests/integration/cli_scan.h"

namespace dataparser::cli {
namespace {

namespace fs = std::filesystem;
using dataparser::testing::TempDir;
using testing::sampleFolder;
using testing::scan;
using testing::ScanRun;

// "type:count" of every report, in order.
std::vector<std::string> reportsOf(const json::Value& exported) {
  std::vector<std::string> reports;
  for (json::View report : exported["reports"].elements()) {
    reports.push_back(std::to_string(report["type"].integer()) + ":" +
                      std::to_string(report["count"].integer()));
  }
  return reports;
}

std::string codeKey(IOSDataType type) {
  return std::to_string(type);
}

TEST(ChatAppsScanTest, LineSample) {
  TempDir dir;
  ScanRun run = scan(sampleFolder("line-demo"), /*deleted=*/false, dir);
  ASSERT_EQ(run.status, 0) << run.err;
  const json::Value& out = run.exported;
  EXPECT_EQ(out["status"].integer(), 1);
  EXPECT_EQ(reportsOf(out), (std::vector<std::string>{"33554432:2", "67108864:3"}));

  json::View accounts = out["lists"][codeKey(0x2000000)];
  ASSERT_EQ(accounts.size(), 2u);
  EXPECT_EQ(accounts.at(0)["class"].string(), "IOSLineAccountItem");
  EXPECT_EQ(accounts.at(0)["displayAccount"].string(), "Account1");
  EXPECT_EQ(accounts.at(1)["account"].string(), "Account2");
  EXPECT_EQ(accounts.at(1)["items"].size(), 0u);
  json::View sessions = accounts.at(0)["items"];
  ASSERT_EQ(sessions.size(), 3u);

  json::View mika = sessions.at(0);
  EXPECT_EQ(mika["name"].string(), "Mika Sato");
  EXPECT_EQ(mika["identifier"].string(), "u8a1d");
  ASSERT_EQ(mika["contents"].size(), 6u);
  EXPECT_EQ(mika["contents"].at(0)["strSendDate"].string(), "2024/05/03 18:02:11");
  json::View photo = mika["contents"].at(2)["attachment"];
  EXPECT_EQ(photo["type"].integer(), 1);
  EXPECT_EQ(photo["name"].string(), "photo-1.jpg");
  EXPECT_EQ(photo["size"].integer(), 812);
  EXPECT_EQ(photo["thumb"]["width"].integer(), 16);
  json::View link = mika["contents"].at(3);
  EXPECT_EQ(link["flag"].integer(), 0);
  EXPECT_EQ(link["text"].string(), "https://trails.example/mt-takao");
  EXPECT_EQ(mika["contents"].at(4)["attachment"]["location"]["localInfo"].string(),
            "Takaosanguchi Station\nHachioji, Tokyo");
  EXPECT_EQ(mika["contents"].at(5)["attachment"]["voice"]["strDuration"].string(), "0:0:3");
  EXPECT_EQ(mika["recentMessage"].string(), "Social Message Attachment - [a audio]");

  json::View club = sessions.at(1);
  EXPECT_EQ(club["name"].string(), "Hiking club");
  EXPECT_TRUE(club["isGroup"].boolean());
  EXPECT_EQ(club["members"].size(), 3u);
  ASSERT_EQ(club["contents"].size(), 5u);
  EXPECT_TRUE(club["contents"].at(0)["isNotice"].boolean());
  EXPECT_EQ(club["contents"].at(2)["attachment"]["type"].integer(), 15);
  EXPECT_DOUBLE_EQ(club["contents"].at(3)["attachment"]["callDuration"]["duration"].number(), 95);
  EXPECT_EQ(club["recentMessage"].string(), "Social Message Attachment - [contact card]");
  EXPECT_EQ(sessions.at(2)["contents"].size(), 0u);
  EXPECT_EQ(out["lists"][codeKey(0x4000000)].size(), 3u);

  ScanRun all = scan(sampleFolder("line-demo"), /*deleted=*/true, dir);
  EXPECT_EQ(all.exported["lists"][codeKey(0x2000000)].at(0)["items"].at(0)["contents"].size(), 7u);
}

TEST(ChatAppsScanTest, KikSample) {
  TempDir dir;
  dataparser::testing::LocalZone zone("UTC0");
  const fs::path thumbnails = IOSKikThumbParser::thumbnailFolder();
  ScanRun run = scan(sampleFolder("kik-demo"), /*deleted=*/false, dir);
  ASSERT_EQ(run.status, 0) << run.err;
  const json::Value& out = run.exported;
  EXPECT_EQ(out["status"].integer(), 1);
  EXPECT_EQ(reportsOf(out), (std::vector<std::string>{"-1:3", "8388608:1", "16777216:2"}));

  // The thumbnails are written inside their folder, the hostile identifier included.
  EXPECT_EQ(dataparser::testing::filesBelow(thumbnails),
            (std::vector<std::string>{"5f1c7a2e-2b1d-4c55-9d0e-8f3a1b2c3d4e", "outside"}));
  EXPECT_EQ(out["lists"]["-1"].at(0)["class"].string(), "IOSKikThumbItem");
  EXPECT_EQ(out["lists"]["-1"].at(0)["size"].integer(), 145);

  json::View account = out["lists"][codeKey(0x800000)].at(0);
  EXPECT_EQ(account["displayAccount"].string(), "Account1");
  ASSERT_EQ(account["items"].size(), 2u);
  json::View jordan = account["items"].at(0);
  EXPECT_EQ(jordan["name"].string(), "Jordan K");
  EXPECT_EQ(jordan["image"]["width"].integer(), 12);
  ASSERT_EQ(jordan["contents"].size(), 3u);
  EXPECT_EQ(jordan["contents"].at(0)["strSendDate"].string(), "2024/05/04 10:00:00");
  EXPECT_EQ(jordan["contents"].at(0)["image"]["width"].integer(), 12);
  EXPECT_EQ(jordan["contents"].at(2)["attachment"]["type"].integer(), 1);
  json::View band = account["items"].at(1);
  EXPECT_EQ(band["members"].size(), 2u);
  EXPECT_EQ(band["contents"].size(), 3u);
  EXPECT_EQ(band["contents"].at(1)["image"].isNull(), true);  // group messages have no picture

  json::View files = out["lists"][codeKey(0x1000000)];
  EXPECT_EQ(files.at(0)["name"].string(), "5f1c7a2e-2b1d-4c55-9d0e-8f3a1b2c3d4e.jpg");
  EXPECT_EQ(files.at(1)["type"].integer(), 1);
}

TEST(ChatAppsScanTest, ViberSample) {
  TempDir dir;
  ScanRun run = scan(sampleFolder("viber-demo"), /*deleted=*/false, dir);
  ASSERT_EQ(run.status, 0) << run.err;
  const json::Value& out = run.exported;
  EXPECT_EQ(out["status"].integer(), 1);
  EXPECT_EQ(reportsOf(out),
            (std::vector<std::string>{"134217728:2", "536870912:4", "268435456:3"}));

  json::View calls = out["lists"][codeKey(0x10000000)];
  EXPECT_EQ(calls.at(0)["class"].string(), "IOSCallItem");
  EXPECT_EQ(calls.at(0)["strDuration"].string(), "0:5:12");
  EXPECT_EQ(calls.at(0)["strDate"].string(), "2024/04/11 19:20:05");
  EXPECT_EQ(calls.at(1)["name"].string(), "Unknown");
  EXPECT_EQ(calls.at(1)["strDuration"].string(), "CallHistory_Missed");
  EXPECT_EQ(calls.at(2)["strDuration"].string(), "CallHistory_Canceled");

  json::View sessions = out["lists"][codeKey(0x8000000)];
  json::View nina = sessions.at(0);
  EXPECT_EQ(nina["image"]["width"].integer(), 12);
  ASSERT_EQ(nina["contents"].size(), 8u);
  EXPECT_EQ(nina["contents"].at(0)["from"].string(), "+420601555123");
  EXPECT_EQ(nina["contents"].at(1)["from"].string(), "Viber_GroupNotice_You_KEY");
  EXPECT_EQ(nina["contents"].at(3)["attachment"]["link"]["title"].string(), "Menu");
  EXPECT_EQ(nina["contents"].at(6)["attachment"]["callDuration"]["strCallHistoryType"].string(),
            "ViberCallHistory_Missed");
  EXPECT_EQ(nina["recentMessage"].string(), "Social Message Attachment - [contact card]");
  json::View flat = sessions.at(1);
  std::vector<std::string> notices;
  for (json::View message : flat["contents"].elements())
    notices.push_back(std::string(message["strNotice"].string()));
  EXPECT_EQ(notices, (std::vector<std::string>{
                         "Viber_GroupNotice_AddedIn", "Viber_GroupNotice_ChangeSubject", "",
                         "Viber_GroupNotice_ChangeIcon", "WhatsApp_GroupNotice_Left"}));

  ScanRun all = scan(sampleFolder("viber-demo"), /*deleted=*/true, dir);
  EXPECT_EQ(all.exported["lists"][codeKey(0x10000000)].size(), 4u);
}

TEST(ChatAppsScanTest, HostileInputFinishesAndWritesNothingOutside) {
  TempDir dir;
  const std::string png = "\x89PNG\r\n\x1a\n";
  const std::string data = jk_base64EncodedString(png);
  dir.write("recording/files/good.json", R"({"messages": [7, {"type": 0, "text": "still here"}]})");
  dir.write("recording/files/broken.json", R"({"messages": [)");
  dir.write("recording/files/list.json", "[1, 2, 3]");
  dir.write("recording/stream/000001-49.json",
            R"({"media_datas": [{"plist_id": "../../../../escape-1", "data": ")" + data +
                R"("}, {"plist_id": "a/../../escape-2", "data": ")" + data +
                R"("}, {"plist_id": "/tmp/escape-3", "data": ")" + data +
                R"("}, {"plist_id": "..", "data": ")" + data + R"("}, 7, null, "x"]})");
  dir.write("recording/stream/000002-48.json", R"({"kik_accounts": [5, null,
      {"account_id": "../../k", "kik_chat_sessions": [1, {"session_id": "../s",
        "msg_file_list": ["{{ROOT}}/files/broken.json", "{{ROOT}}/files/missing.json",
                          "{{ROOT}}/files/list.json", "{{ROOT}}/files/good.json", 9]}],
       "media_file_info": ["x", {"data_file_path": "{{ROOT}}/../outside", "plist_id": "../p"}]}]})");
  dir.write("recording/stream/000003-50.json", "this is not JSON");
  dir.write("recording/stream/000004-53.json", R"({"line_accounts": [null, 3,
      {"account_id": "a/b", "line_chat_sessions": [{"msg_file_list": ["{{ROOT}}/files/list.json",
       "{{ROOT}}/files/absent.json"]}]}]})");
  dir.write("recording/stream/000005-50.json",
            R"({"viber_calls": [{"name": "x", "flags": 0}], "viber_chat_session": [3]})");
  ScanRun run = scan(dir.str() + "/recording", false, dir);
  ASSERT_EQ(run.status, 0) << run.err;
  const json::Value& out = run.exported;
  EXPECT_EQ(out["status"].integer(), 1);
  EXPECT_EQ(reportsOf(out),
            (std::vector<std::string>{"-1:4", "8388608:1", "33554432:1", "268435456:1"}));
  json::View kik = out["lists"][codeKey(0x800000)].at(0);
  EXPECT_EQ(kik["account"].string(), "Account1");
  EXPECT_EQ(kik["items"].at(0)["contents"].at(0)["text"].string(), "still here");

  // Every file the scan wrote is inside the working root; the thumbnails inside their folder.
  const fs::path thumbnails = IOSKikThumbParser::thumbnailFolder();
  EXPECT_EQ(dataparser::testing::filesBelow(thumbnails),
            (std::vector<std::string>{"_", "escape-1", "escape-2", "escape-3"}));
  const fs::path root = productDomainPath();
  for (const std::string& file :
       dataparser::testing::filesBelow(dataparser::testing::processTempRoot())) {
    if (fs::path(file).filename().string().starts_with("escape")) {
      EXPECT_EQ((dataparser::testing::processTempRoot() / file).parent_path(), thumbnails) << file;
    }
  }
  EXPECT_FALSE(fs::exists(dir.path() / "outside"));
  EXPECT_TRUE(fs::path(thumbnails).string().starts_with(root.string()));
}

}  // namespace
}  // namespace dataparser::cli
