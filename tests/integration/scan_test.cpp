// The whole road: a recorded scan goes through the replay engine, the callback, the coordinator
// and the SMS parser to the CLI's observer and out as the JSON export.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/integration/cli_scan.h"

namespace dataparser::cli {
namespace {

using dataparser::testing::TempDir;
using testing::contents;
using testing::scan;
using testing::ScanRun;

std::string sampleFolder(const std::string& name = "sms-demo") {
  return testing::sampleFolder(name);
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

  EXPECT_NE(run.out.find("SMS attachments"), std::string::npos);
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

TEST(ScanIntegrationTest, UnwritableExportStopsBeforeTheScan) {
  TempDir dir;
  ScanOptions options;
  options.folder = sampleFolder();
  options.jsonPath = dir.str() + "/missing/export.json";
  std::FILE* out = std::tmpfile();
  std::FILE* err = std::tmpfile();
  EXPECT_EQ(runScan(options, out, err), 1);
  EXPECT_EQ(contents(out), "");  // no summary: the scan never ran
  EXPECT_NE(contents(err).find("dataparser: cannot write the JSON export to " + options.jsonPath),
            std::string::npos);
}

// The personal data types of one recording, each reported under its code with its display texts.
TEST(ScanIntegrationTest, PersonalSampleEndToEnd) {
  dataparser::testing::LocalZone zone("UTC");
  TempDir dir;
  ScanRun run = scan(sampleFolder("personal-demo"), /*deleted=*/false, dir);
  ASSERT_EQ(run.status, 0) << run.err;
  const json::Value& out = run.exported;
  EXPECT_EQ(out["status"].integer(), 1);
  std::vector<std::pair<std::int64_t, std::int64_t>> reports;
  for (json::View report : out["reports"].elements()) {
    reports.emplace_back(report["type"].integer(), report["count"].integer());
  }
  const std::vector<std::pair<std::int64_t, std::int64_t>> expected = {
      {0x400, 5}, {0x800, 5},  {0x1000, 1}, {0x200, 2}, {0x100, 2},
      {0x100, 2}, {0x2000, 2}, {0x4000, 3}, {0x80, 3}};
  EXPECT_EQ(reports, expected);

  json::View contacts = out["lists"]["1024"];
  ASSERT_EQ(contacts.size(), 5u);
  json::View ann = contacts.at(0);
  EXPECT_EQ(ann["class"].string(), "IOSContactItem");
  EXPECT_EQ(ann["displayName"].string(), "Ann Lee");
  EXPECT_EQ(ann["displayBirthday"].string(), "06-14-1990");
  EXPECT_EQ(ann["birthdayType"].integer(), 3);
  EXPECT_EQ(ann["alt_birthday"].string(), "五月廿一");
  EXPECT_EQ(ann["thumb"]["width"].integer(), 12);
  EXPECT_EQ(ann["image"]["width"].integer(), 12);  // the thumbnail stands in for the picture
  std::vector<std::string> titles;
  for (json::View phone : ann["phoneInfos"].elements())
    titles.emplace_back(phone["title"].string());
  EXPECT_EQ(titles, (std::vector<std::string>{"Mobile", "Work", ""}));
  EXPECT_EQ(ann["addressInfos"].at(0)["fullAddress"].string(),
            "United Kingdom\nPO1 2AB\n12\nHarbour\nRoad\nPortsmouth");
  EXPECT_EQ(ann["dateInfos"].at(0)["displayDate"].string(), "09-01-2015");
  EXPECT_EQ(ann["imInfos"].at(0)["username"].string(), "ann.lee.sails");
  EXPECT_EQ(ann["socialInfos"].at(0)["title"].string(), "Twitter");
  EXPECT_EQ(contacts.at(1)["displayBirthday"].string(), "03-02");
  EXPECT_EQ(contacts.at(1)["addressInfos"].at(0)["title"].string(), "Other Address");
  EXPECT_GT(contacts.at(1)["imageSize"].integer(), 0);
  EXPECT_EQ(contacts.at(2)["displayName"].string(), "+1 555 0177");
  EXPECT_EQ(contacts.at(2)["alt_birthday"].string(), "");        // lunar month 13: no text
  EXPECT_EQ(contacts.at(3)["displayName"].string(), "Unknown");  // deleted, still listed
  EXPECT_EQ(contacts.at(4)["displayName"].string(), "No Name");
  EXPECT_EQ(contacts.at(4)["key"].string(), "0");

  json::View calls = out["lists"]["2048"];
  ASSERT_EQ(calls.size(), 5u);
  const char* const kinds[][4] = {
      {"CallHistory_Outgoing", "1:2:3", "SIM1", "2024/06/14 09:30:00"},
      {"CallHistory_Incoming", "CallHistory_Missed", "SIM2", "2024/06/14 10:02:11"},
      {"CallHistory_Outgoing", "CallHistory_Canceled", "SIM1", "2024/06/14 11:15:00"},
      {"CallHistory_Incoming", "0:0:59", "SIM1", "2024/06/15 18:00:00"},
      {"CallHistory_Outgoing", "00:00", "", "2024/06/16 07:45:00"},
  };
  for (std::size_t i = 0; i < std::size(kinds); ++i) {
    EXPECT_EQ(calls.at(i)["strType"].string(), kinds[i][0]) << i;
    EXPECT_EQ(calls.at(i)["strDuration"].string(), kinds[i][1]) << i;
    EXPECT_EQ(calls.at(i)["belong"].string(), kinds[i][2]) << i;
    EXPECT_EQ(calls.at(i)["strDate"].string(), kinds[i][3]) << i;
  }
  EXPECT_EQ(calls.at(1)["location"].string(), "");
  ASSERT_EQ(out["lists"]["4096"].size(), 1u);
  EXPECT_EQ(out["lists"]["4096"].at(0)["belong"].string(), "+15550100");

  json::View voicemail = out["lists"]["512"];
  ASSERT_EQ(voicemail.size(), 2u);
  EXPECT_EQ(voicemail.at(0)["sender"].string(), "Ann Lee");
  EXPECT_EQ(voicemail.at(0)["strDuration"].string(), "0:0:21");
  EXPECT_EQ(voicemail.at(1)["sender"].string(), "+15550188");
  EXPECT_EQ(voicemail.at(1)["strDate"].string(), "2024/06/16 08:00:00");

  json::View memos = out["lists"]["256"];
  ASSERT_EQ(memos.size(), 2u);
  EXPECT_EQ(memos.at(0)["title"].string(), "Race briefing.m4a");
  EXPECT_EQ(memos.at(0)["strDate"].string(), "2024/06/14 09:12:00");
  EXPECT_EQ(memos.at(0)["strDuration"].string(), "0:5:12");
  EXPECT_EQ(memos.at(1)["title"].string(), "kitchen.m4a");

  json::View bookmarks = out["lists"]["8192"];
  ASSERT_EQ(bookmarks.size(), 2u);
  EXPECT_EQ(bookmarks.at(0)["title"].string(), "Tide tables");
  EXPECT_EQ(bookmarks.at(1)["title"].string(), "Unknown");
  json::View history = out["lists"]["16384"];
  ASSERT_EQ(history.size(), 3u);
  EXPECT_EQ(history.at(1)["title"].string(), "Knots and splices");
  EXPECT_EQ(history.at(2)["title"].string(), "Unknown");

  json::View books = out["lists"]["128"];
  ASSERT_EQ(books.size(), 3u);
  EXPECT_EQ(books.at(0)["name"].string(), "Field Guide.pdf");
  EXPECT_EQ(books.at(1)["name"].string(), "Atlas.epub");
  EXPECT_EQ(books.at(1)["strSize"].string(), "31 bytes");
  EXPECT_EQ(books.at(2)["strSize"].string(), "Zero KB");

  // With deleted data: the deleted call, bookmark, visit and memo come back.
  ScanRun all = scan(sampleFolder("personal-demo"), /*deleted=*/true, dir);
  ASSERT_EQ(all.status, 0) << all.err;
  EXPECT_EQ(all.exported["lists"]["2048"].size(), 6u);
  EXPECT_EQ(all.exported["lists"]["8192"].size(), 3u);
  EXPECT_EQ(all.exported["lists"]["16384"].size(), 4u);
  EXPECT_EQ(all.exported["lists"]["1024"].size(), 5u);
}

// Hostile personal data costs only itself: the scan finishes and the good blocks are reported.
TEST(ScanIntegrationTest, HostilePersonalBlocksStillFinish) {
  TempDir dir;
  std::string root = dir.str() + "/recording";
  dir.write("recording/files/contacts.json",
            R"({"contacts_info": [{"First": null, "Last": null, "phone_info": null},
                {"First": "Eve", "phone_info": [{"label_name": "not a label", "value": "1"}],
                 "alt_birthday_type": 2, "AlternateBirthday": "1,2,3,4,99,99"}]})");
  dir.write("recording/stream/000001-55.json",
            R"({"contact_file_path": ["{{ROOT}}/files/contacts.json", "{{ROOT}}/files"]})");
  // A lone surrogate that the cleaning does not remove: that block does not decode.
  dir.write("recording/stream/000002-60.json", "[{\"title\": \"\\ud800\"}]");
  dir.write("recording/stream/000003-60.json",
            "[{\"title\": \"bad\\udd4a\\u060aJ title\\udeed\"}, {\"title\": \"fine\"}]");
  dir.write("recording/stream/000004-51.json",
            R"({"call_records": [{"flags": 1, "duration": -5}, {"duration": 1e308}]})");
  dir.write("recording/stream/000005-65.json", R"({"book_items": {"not": "a list"}})");
  ScanRun run = scan(root, false, dir);
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.exported["status"].integer(), 1);
  json::View contacts = run.exported["lists"]["1024"];
  ASSERT_EQ(contacts.size(), 2u);
  EXPECT_EQ(contacts.at(0)["displayName"].string(), "No Name");
  EXPECT_EQ(contacts.at(1)["phoneInfos"].at(0)["title"].string(), "");
  EXPECT_EQ(contacts.at(1)["alt_birthday"].string(), "");
  json::View history = run.exported["lists"]["16384"];
  ASSERT_EQ(history.size(), 2u);
  EXPECT_EQ(history.at(0)["title"].string(), "bad title");
  EXPECT_EQ(history.at(1)["title"].string(), "fine");
  json::View calls = run.exported["lists"]["2048"];
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls.at(0)["strDuration"].string(), "00:00");
  EXPECT_EQ(calls.at(1)["strDuration"].string(), "00:00");
  EXPECT_FALSE(run.exported["lists"]["128"].present());
}

}  // namespace
}  // namespace dataparser::cli
