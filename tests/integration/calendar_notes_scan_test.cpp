// The whole road for calendar events, reminders and notes: the bundled recording goes through
// the replay engine, the callback, the coordinator and the parsers to the CLI's JSON export.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/integration/cli_scan.h"

namespace dataparser::cli {
namespace {

using dataparser::testing::TempDir;
using testing::reportsOf;
using testing::sampleFolder;
using testing::scan;
using testing::ScanRun;
using testing::texts;

TEST(PersonalScanTest, SampleRecordingEndToEnd) {
  TempDir dir;
  ScanRun run = scan(sampleFolder("calendar-notes-demo"), /*deleted=*/false, dir);
  ASSERT_EQ(run.status, 0) << run.err;
  const json::Value& out = run.exported;
  ASSERT_TRUE(out.isObject());
  EXPECT_EQ(out["status"].integer(), 1);

  EXPECT_EQ(reportsOf(out), (std::vector<std::string>{
                                "32768:3", "4294967296:1",  // calendar
                                "65536:3", "8589934592:1",  // reminders, first piece
                                "65536:3", "8589934592:1",  // a piece that is not a list
                                "65536:4", "8589934592:1",  // one more reminder
                                "131072:4", "262144:4",     // notes
                                "131072:6", "262144:5",     // with other accounts
                            }));

  json::View events = out["lists"]["32768"];
  EXPECT_EQ(texts(events, "title"),
            (std::vector<std::string>{"Dentist", "Ann's wedding", "Someday"}));
  EXPECT_EQ(texts(events, "strStartDate"),
            (std::vector<std::string>{"2024/06/14 09:00:00", "2024/07/20 00:00:00", ""}));
  EXPECT_EQ(texts(events, "strEndDate"),
            (std::vector<std::string>{"2024/06/14 09:45:00", "2024/07/21 00:00:00", ""}));
  EXPECT_DOUBLE_EQ(events.at(0)["startDate"].number(), 1718355600.0);
  EXPECT_TRUE(events.at(2)["startDate"].isNull());
  EXPECT_EQ(events.at(0)["participants"].size(), 2u);
  EXPECT_EQ(events.at(1)["attachments"].size(), 2u);  // the missing menu is still named
  json::View plan = out["lists"]["4294967296"].at(0);
  EXPECT_EQ(plan["name"].string(), "seating-plan.jpg");
  EXPECT_EQ(plan["type"].integer(), 1);
  EXPECT_EQ(plan["size"].integer(), 812);

  json::View reminders = out["lists"]["65536"];
  EXPECT_EQ(texts(reminders, "title"), (std::vector<std::string>{"Buy paint", "Renew passport",
                                                                 "Water plants", "Call the bank"}));
  EXPECT_EQ(texts(reminders, "strPriority"),
            (std::vector<std::string>{"High Priority", "Medium Priority", "Low Priority", ""}));
  EXPECT_EQ(texts(reminders, "strRemindDate"),
            (std::vector<std::string>{"2024/06/15 10:30:00", "", "", "2024/06/17 08:00:00"}));
  EXPECT_EQ(reminders.at(0)["location"].string(), "Hardware store\nDock Street");
  EXPECT_TRUE(reminders.at(0)["hasFlag"].boolean());
  EXPECT_FALSE(reminders.at(0)["completed"].boolean());
  EXPECT_TRUE(reminders.at(1)["completed"].boolean());
  EXPECT_FALSE(reminders.at(2)["completed"].boolean());
  EXPECT_EQ(out["lists"]["8589934592"].at(0)["name"].string(), "paint-sample.png");

  json::View notes = out["lists"]["131072"];
  EXPECT_EQ(texts(notes, "title"),
            (std::vector<std::string>{"Packing list", "Social Message Attachment - [a video]", "",
                                      "Body that is not text", "Recipe", "Team call at 9"}));
  json::View packing = notes.at(0)["contents"];
  ASSERT_EQ(packing.size(), 3u);
  EXPECT_EQ(packing.at(0).string(), "Passport\nSun cream\nCharger");
  EXPECT_EQ(packing.at(1).string(), "Day | Place\nMon | Lisbon\nTue | Porto");
  EXPECT_EQ(packing.at(2)["name"].string(), "sketch.png");
  EXPECT_EQ(notes.at(0)["richText"].string(), "<div>Passport</div><div>Sun cream</div>");
  EXPECT_EQ(notes.at(0)["strDate"].string(), "2024/06/10 18:20:00");
  json::View video = notes.at(1)["contents"].at(0);
  EXPECT_EQ(video["type"].integer(), 2);
  EXPECT_EQ(video["localPath"].string(), "");  // the video file is missing
  EXPECT_NE(video["thumbPath"].string(), "");
  EXPECT_EQ(notes.at(2)["contents"].at(0).string(), "\nA note that starts with a blank line");
  EXPECT_EQ(notes.at(3)["contents"].size(), 0u);
  EXPECT_TRUE(notes.at(4)["isThirdNotes"].boolean());
  EXPECT_EQ(notes.at(4)["account"].string(), "Gmail");
  EXPECT_NE(notes.at(4)["contents"].at(0).string().find("2 eggs & 200 g flour"), std::string::npos);
  EXPECT_EQ(texts(out["lists"]["262144"], "name"),
            (std::vector<std::string>{"sketch.png", "clip-thumb.jpg", "receipt.jpg", "memo.caf",
                                      "sunset.gif"}));

  // With deleted data the deleted event, reminder and note come back.
  ScanRun all = scan(sampleFolder("calendar-notes-demo"), /*deleted=*/true, dir);
  ASSERT_EQ(all.status, 0) << all.err;
  EXPECT_EQ(all.exported["lists"]["32768"].size(), 4u);
  EXPECT_EQ(all.exported["lists"]["65536"].size(), 5u);
  EXPECT_EQ(all.exported["lists"]["131072"].size(), 7u);
}

}  // namespace
}  // namespace dataparser::cli
