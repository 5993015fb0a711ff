// The whole road for the chat apps with message files: the LINE, Kik and Viber sample
// recordings go through the replay engine, the coordinator and their parsers to the CLI's
// export; a recording full of hostile input still finishes with everything else intact.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "dataparser/core/data_type.h"
#include "dataparser/parsers/messaging/kik.h"
#include "dataparser/util/text.h"
#include "tests/chat_app_support.h"
#include "tests/integration/cli_scan.h"

namespace dataparser::cli {
namespace {

namespace fs = std::filesystem;
using dataparser::testing::filesBelow;
using dataparser::testing::TempDir;
using dataparser::testing::WorkingRootIn;
using testing::reportsOf;
using testing::sampleFolder;
using testing::scan;
using testing::ScanRun;

json::View list(const ScanRun& run, IOSDataType type) {
  return run.exported["lists"][std::to_string(type)];
}

std::string report(IOSDataType type, int count) {
  return fmt::format("{}:{}", type, count);
}

TEST(ChatAppsScanTest, SampleRecordings) {
  TempDir dir;
  WorkingRootIn root(dir);
  dataparser::testing::LocalZone zone("UTC0");

  ScanRun line = scan(sampleFolder("line-demo"), /*deleted=*/false, dir);
  ASSERT_EQ(line.status, 0) << line.err;
  EXPECT_EQ(
      reportsOf(line.exported),
      (std::vector<std::string>{report(IOSDataTypeLine, 2), report(kResultLineAttachments, 3)}));
  json::View sessions = list(line, IOSDataTypeLine).at(0)["items"];
  EXPECT_EQ(list(line, IOSDataTypeLine).at(1)["displayAccount"].string(), "Account2");
  ASSERT_EQ(sessions.size(), 3u);
  json::View mika = sessions.at(0)["contents"];
  ASSERT_EQ(mika.size(), 6u);
  EXPECT_EQ(mika.at(0)["strSendDate"].string(), "2024/05/03 18:02:11");
  EXPECT_EQ(mika.at(2)["attachment"]["size"].integer(), 812);
  EXPECT_EQ(mika.at(2)["attachment"]["thumb"]["width"].integer(), 16);
  EXPECT_EQ(mika.at(4)["attachment"]["location"]["localInfo"].string(),
            "Takaosanguchi Station\nHachioji, Tokyo");
  EXPECT_EQ(mika.at(5)["attachment"]["voice"]["strDuration"].string(), "0:0:3");
  EXPECT_EQ(sessions.at(1)["recentMessage"].string(), "Social Message Attachment - [contact card]");

  // Kik: thumbnails are written inside their folder, the hostile identifier included.
  ScanRun kik = scan(sampleFolder("kik-demo"), false, dir);
  ASSERT_EQ(kik.status, 0) << kik.err;
  EXPECT_EQ(reportsOf(kik.exported),
            (std::vector<std::string>{report(IOSDataTypeKikMedia, 3), report(IOSDataTypeKik, 1),
                                      report(kResultKikAttachments, 2)}));
  EXPECT_EQ(filesBelow(IOSKikThumbParser::thumbnailFolder()),
            (std::vector<std::string>{"5f1c7a2e-2b1d-4c55-9d0e-8f3a1b2c3d4e", "outside"}));
  json::View jordan = list(kik, IOSDataTypeKik).at(0)["items"].at(0);
  ASSERT_EQ(jordan["contents"].size(), 3u);
  EXPECT_EQ(jordan["contents"].at(0)["strSendDate"].string(), "2024/05/04 10:00:00");
  EXPECT_EQ(jordan["contents"].at(0)["image"]["width"].integer(), 12);
  EXPECT_EQ(list(kik, kResultKikAttachments).at(0)["name"].string(),
            "5f1c7a2e-2b1d-4c55-9d0e-8f3a1b2c3d4e.jpg");

  // Viber: calls next to the conversations and attachments; group notices with their keys.
  ScanRun viber = scan(sampleFolder("viber-demo"), false, dir);
  ASSERT_EQ(viber.status, 0) << viber.err;
  EXPECT_EQ(reportsOf(viber.exported), (std::vector<std::string>{report(IOSDataTypeViber, 2),
                                                                 report(kResultViberAttachments, 4),
                                                                 report(kResultViberCalls, 3)}));
  json::View calls = list(viber, kResultViberCalls);
  EXPECT_EQ(calls.at(0)["strDuration"].string(), "0:5:12");
  EXPECT_EQ(calls.at(1)["name"].string(), "Unknown");
  EXPECT_EQ(calls.at(1)["strDuration"].string(), "CallHistory_Missed");
  json::View nina = list(viber, IOSDataTypeViber).at(0);
  EXPECT_EQ(nina["image"]["width"].integer(), 12);
  EXPECT_EQ(nina["contents"].at(1)["from"].string(), "Viber_GroupNotice_You_KEY");
  std::vector<std::string> notices;
  for (json::View message : list(viber, IOSDataTypeViber).at(1)["contents"].elements())
    notices.emplace_back(message["strNotice"].string());
  EXPECT_EQ(notices, (std::vector<std::string>{
                         "Viber_GroupNotice_AddedIn", "Viber_GroupNotice_ChangeSubject", "",
                         "Viber_GroupNotice_ChangeIcon", "WhatsApp_GroupNotice_Left"}));

  ScanRun all = scan(sampleFolder("viber-demo"), /*deleted=*/true, dir);
  EXPECT_EQ(list(all, kResultViberCalls).size(), 4u);
}

TEST(ChatAppsScanTest, HostileInputFinishesAndWritesNothingOutside) {
  TempDir dir;
  WorkingRootIn root(dir);
  const std::string data = jk_base64EncodedString("\x89PNG");
  std::string thumbs;
  for (const char* id : {"../../../../escape-1", "a/../../escape-2", "/tmp/escape-3", ".."})
    thumbs += fmt::format(R"({{"plist_id": "{}", "data": "{}"}},)", id, data);
  dir.write("recording/files/good.json", R"({"messages": [7, {"type": 0, "text": "kept"}]})");
  dir.write("recording/files/broken.json", R"({"messages": [)");
  dir.write("recording/files/list.json", "[1, 2, 3]");
  dir.write("recording/stream/000001-49.json", R"({"media_datas": [)" + thumbs + R"(7, null]})");
  dir.write("recording/stream/000002-48.json", R"({"kik_accounts": [5, null,
      {"account_id": "../../k", "kik_chat_sessions": [1, {"session_id": "../s",
        "msg_file_list": ["{{ROOT}}/files/broken.json", "{{ROOT}}/files/missing.json",
                          "{{ROOT}}/files/list.json", "{{ROOT}}/files/good.json", 9]}],
       "media_file_info": ["x", {"data_file_path": "{{ROOT}}/../outside", "plist_id": "../p"},
         {"data_file_path": "{{ROOT}}/files/kept.jpg", "data_suffix": ".jpg", "plist_id": "kept"},
         {"data_file_path": "{{ROOT}}/../outside.jpg", "plist_id": "up"},
         {"data_file_path": "{{ROOT}}/files/../../outside.jpg", "plist_id": "dots"},
         {"data_file_path": "{{ROOT}}/files/link.jpg", "plist_id": "link"},
         {"data_file_path": "/etc/passwd", "plist_id": "passwd"},
         {"data_file_path": "files/kept.jpg", "plist_id": "relative"},
         {"data_file_path": "{{ROOT}}/files/kept.jpg\u0000x", "plist_id": "nul"}]}]})");
  // Files outside the recording that its paths reach by "..", a link or the current folder.
  const std::string outside = dir.write("outside.jpg", "\xff\xd8\xff");
  dir.write("recording/files/kept.jpg", "\xff\xd8\xff");
  fs::create_symlink(outside, dir.path() / "recording/files/link.jpg");
  dir.write("recording/stream/000003-50.json", "this is not JSON");
  dir.write("recording/stream/000004-53.json", R"({"line_accounts": [null, 3,
      {"account_id": "a/b", "line_chat_sessions": [{"msg_file_list": ["{{ROOT}}/files/list.json",
       "{{ROOT}}/files/absent.json"]}]}]})");
  dir.write("recording/stream/000005-50.json",
            R"({"viber_calls": [{"name": "x", "flags": 0}], "viber_chat_session": [3]})");
  const fs::path cwd = fs::current_path();
  fs::current_path(dir.path() / "recording");  // where "files/kept.jpg" would be found
  ScanRun run = scan(dir.str() + "/recording", false, dir);
  fs::current_path(cwd);
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.exported["status"].integer(), 1);
  EXPECT_EQ(reportsOf(run.exported),
            (std::vector<std::string>{report(IOSDataTypeKikMedia, 4), report(IOSDataTypeKik, 1),
                                      report(kResultKikAttachments, 1), report(IOSDataTypeLine, 1),
                                      report(kResultViberCalls, 1)}));
  // Only the file inside the recording is an attachment; no path outside it is reported.
  EXPECT_EQ(list(run, kResultKikAttachments).at(0)["name"].string(), "kept.jpg");
  const std::string inside = dir.str() + "/recording";
  const std::string working = dir.str() + "/support";
  // Every file path field (localPath, thumbPath, ...; a device path names no local file).
  std::function<void(json::View)> walk = [&](json::View value) {
    for (json::View element : value.elements())
      walk(element);
    for (const json::Member& member : value.members()) {
      const std::string_view path = member.value.string();
      if (member.key.ends_with("Path") && member.key != "devicePath" && !path.empty()) {
        EXPECT_TRUE(path.starts_with(inside) || path.starts_with(working))
            << member.key << ": " << path;
      }
      walk(member.value);
    }
  };
  walk(run.exported.view());
  json::View kik = list(run, IOSDataTypeKik).at(0);
  EXPECT_EQ(kik["account"].string(), "Account1");
  EXPECT_EQ(kik["items"].at(0)["contents"].at(0)["text"].string(), "kept");

  // Every thumbnail is one name inside its folder; no "escape" file exists anywhere else.
  const fs::path thumbnails = IOSKikThumbParser::thumbnailFolder();
  EXPECT_EQ(filesBelow(thumbnails),
            (std::vector<std::string>{"_", "escape-1", "escape-2", "escape-3"}));
  const fs::path& everything = dataparser::testing::processTempRoot();
  for (const std::string& file : filesBelow(everything)) {
    if (fs::path(file).filename().string().starts_with("escape")) {
      EXPECT_EQ((everything / file).parent_path(), thumbnails) << file;
    }
  }
}

}  // namespace
}  // namespace dataparser::cli
