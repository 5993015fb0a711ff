#include "dataparser/parsers/personal/calendar.h"

#include <gtest/gtest.h>

#include <thread>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/text.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::TempDir;

std::shared_ptr<IOSCalendarItem> eventAt(const IOSBaseParser& parser, std::size_t index) {
  return std::dynamic_pointer_cast<IOSCalendarItem>(parser.items().at(index));
}

TEST(CalendarParserTest, DatesOfEvents) {
  struct Case {
    const char* start;  // JSON value of "start_date"
    const char* strStart;
    double seconds;  // -1: no date
  };
  const Case cases[] = {
      {R"("01-02-2020 03:04:05")", "2020/01/02 03:04:05", 1577934245},
      {R"("12-31-1999 23:59:59")", "1999/12/31 23:59:59", 946684799},
      {R"("02-29-2024 00:00:00")", "2024/02/29 00:00:00", 1709164800},
      {R"("")", "", -1},
      {"null", "", -1},
      {"1577934245", "", -1},
      {R"("2020-01-02")", "", -1},
      {R"("02-30-2023 10:00:00")", "", -1},
      {R"("01-02-2020 03:04")", "", -1},
  };
  for (const Case& c : cases) {
    std::string block = std::string(R"([{"utf_Title": "t", "start_date": )") + c.start +
                        R"(, "end_date": )" + c.start + "}]";
    auto parser = IOSCalendarParser::parserWithJSONData(block, false);
    ASSERT_EQ(parser->items().size(), 1u) << c.start;
    auto event = eventAt(*parser, 0);
    EXPECT_EQ(event->strStartDate(), c.strStart) << c.start;
    EXPECT_EQ(event->strEndDate(), c.strStart) << c.start;
    if (c.seconds < 0) {
      EXPECT_FALSE(event->startDate()) << c.start;
      EXPECT_FALSE(event->endDate()) << c.start;
    } else {
      ASSERT_TRUE(event->startDate()) << c.start;
      EXPECT_DOUBLE_EQ(secondsSince1970(*event->startDate()), c.seconds) << c.start;
    }
  }
}

TEST(CalendarParserTest, FieldsAttachmentsAndDeletedEvents) {
  TempDir dir;
  std::string there = dir.write("att/agenda.pdf", "%PDF");
  std::string block = R"([
      {"utf_Title": "Dentist", "utf_Address": "Main St 1", "utf_Description": "bring card",
       "utf_Url": "https://x.test", "calendar": "Home", "start_date": "06-14-2024 09:00:00",
       "participants": ["ann@x.test", {"name": "Bob"}, null, 7],
       "attachment_files": [{"file_name": "agenda.pdf", "file_path": ")" +
                      there + R"("},
                            {"file_name": "gone.doc", "file_path": "/nowhere/gone.doc"},
                            {"file_name": null, "file_path": "/x"}, "junk"]},
      {"utf_Title": "Old", "tag": "deleted",
       "attachment_files": [{"file_name": "a.pdf", "file_path": ")" +
                      there + R"("}]},
      "not an event", 3, null,
      {"utf_Title": null, "calendar": 5, "participants": null}])";
  auto parser = IOSCalendarParser::parserWithJSONData(block, false);
  ASSERT_EQ(parser->items().size(), 2u);
  auto event = eventAt(*parser, 0);
  EXPECT_EQ(event->title(), "Dentist");
  EXPECT_EQ(event->location(), "Main St 1");
  EXPECT_EQ(event->note(), "bring card");
  EXPECT_EQ(event->url(), "https://x.test");
  EXPECT_EQ(event->calendar(), "Home");
  EXPECT_EQ(event->participants(),
            (std::vector<std::string>{"ann@x.test", R"({"name":"Bob"})", "7"}));
  // The event lists both named files; the parser only the one on disk, as the same object.
  ASSERT_EQ(event->attachments().size(), 2u);
  ASSERT_EQ(parser->attachments().size(), 1u);
  EXPECT_EQ(parser->attachments()[0], event->attachments()[0]);
  auto pdf = std::dynamic_pointer_cast<IOSAttachmentItem>(event->attachments()[0]);
  EXPECT_EQ(pdf->name(), "agenda.pdf");
  EXPECT_EQ(pdf->localPath(), there);
  EXPECT_EQ(pdf->size(), 4);

  auto empty = eventAt(*parser, 1);
  EXPECT_EQ(empty->title(), "");
  EXPECT_EQ(empty->calendar(), "");
  EXPECT_TRUE(empty->participants().empty());
  EXPECT_TRUE(empty->attachments().empty());
  EXPECT_FALSE(empty->startDate());

  auto withDeleted = IOSCalendarParser::parserWithJSONData(block, true);
  ASSERT_EQ(withDeleted->items().size(), 3u);
  EXPECT_TRUE(eventAt(*withDeleted, 1)->isDeleted());
  EXPECT_EQ(withDeleted->attachments().size(), 2u);

  // Setters win over the record.
  event->setTitle("Changed");
  event->setStrStartDate("soon");
  EXPECT_EQ(event->title(), "Changed");
  EXPECT_EQ(event->strStartDate(), "soon");

  for (const char* text : {"{}", "not json", R"({"events": []})", "[[1], \"x\"]"}) {
    auto none = IOSCalendarParser::parserWithJSONData(std::string_view(text), false);
    EXPECT_TRUE(none->items().empty()) << text;
    EXPECT_TRUE(none->attachments().empty()) << text;
  }
  EXPECT_TRUE(IOSCalendarParser::parserWithJSONData(std::nullopt, false)->items().empty());
}

TEST(CalendarParserTest, ICloudCalendar) {
  TempDir dir;
  std::string downloaded = dir.write(md5String("u-1") + ".jpg", "jpeg");
  auto parser = std::make_shared<IOSCalendarParser>();
  parser->setBackupPath(dir.str());
  parser->addiCloudJSONData(R"({
      "collections": [{"guid": "home", "title": "Home", "color": "#f00"}, {"title": "no guid"},
                      {"guid": "work", "title": 3}],
      "events": [
        {"guid": "e1", "parent": "home", "title": "Lunch", "description": "d", "location": "L",
         "url": "u", "organizer": "ann@x.test", "startDate": [20210307, 2021, 3, 7, 9, 5, 0],
         "endDate": [0, 2021, 3, 7, 10, 30],
         "attachments": [{"name": "menu.jpg", "size": 4, "url": "https://f/1", "uuid": "u-1"},
                         {"name": "plan", "size": 10, "url": "https://f/2", "uuid": "u-2"}]},
        {"parent": "elsewhere", "title": 5, "organizer": 1, "startDate": "x"},
        "junk"]})");
  ASSERT_EQ(parser->listArr().size(), 2u);
  EXPECT_EQ(parser->listArr()[0].at("color"), "#f00");
  EXPECT_EQ(parser->listArr()[1].at("title"), "");
  ASSERT_EQ(parser->items().size(), 2u);

  auto lunch = eventAt(*parser, 0);
  EXPECT_EQ(lunch->calendar(), "Home");
  EXPECT_EQ(lunch->title(), "Lunch");
  EXPECT_EQ(lunch->note(), "d");
  EXPECT_EQ(lunch->location(), "L");
  EXPECT_EQ(lunch->participants(), std::vector<std::string>{"ann@x.test"});
  EXPECT_EQ(lunch->strStartDate(), "2021/03/07 09:05:00");
  EXPECT_EQ(lunch->strEndDate(), "2021/03/07 10:30:00");
  ASSERT_EQ(lunch->attachments().size(), 2u);
  auto menu = std::dynamic_pointer_cast<IOSAttachmentItem>(lunch->attachments()[0]);
  EXPECT_EQ(menu->localPath(), downloaded);  // already downloaded: found again
  EXPECT_EQ(menu->url(), "https://f/1");
  EXPECT_EQ(menu->uuid(), "u-1");
  auto plan = std::dynamic_pointer_cast<IOSAttachmentItem>(lunch->attachments()[1]);
  EXPECT_EQ(plan->localPath(), "");  // still to be downloaded
  EXPECT_EQ(plan->size(), 10);

  auto other = eventAt(*parser, 1);
  EXPECT_EQ(other->calendar(), "");
  EXPECT_EQ(other->title(), "");
  EXPECT_TRUE(other->participants().empty());
  EXPECT_FALSE(other->startDate());
  EXPECT_EQ(other->strStartDate(), "");

  // A stop request ends the walk before the next event.
  auto stopped = std::make_shared<IOSCalendarParser>();
  stopped->stopParser();
  stopped->addiCloudJSONData(R"({"events": [{"title": "a"}]})");
  EXPECT_TRUE(stopped->items().empty());
}

TEST(CalendarParserTest, AttachmentDownloadCallsBackOnce) {
  testing::LogCapture logs;
  IOSCalendarItem item;
  std::vector<std::pair<bool, std::string>> outcomes;
  auto record = [&](bool ok, const std::string& file) { outcomes.emplace_back(ok, file); };

  IOSCalendarItem::setAttachmentTransfer(nullptr);
  item.downloadAttachmentWithURLStr("", "a.pdf", record);
  item.downloadAttachmentWithURLStr("https://f/a", "a.pdf", record);  // nothing to fetch with
  IOSCalendarItem::setAttachmentTransfer([](const std::string& url, const std::string& file,
                                            std::function<void(std::optional<std::string>)> done) {
    if (url.ends_with("/slow")) return;  // never answers
    std::thread([url, file, done] {
      if (url.ends_with("/ok")) {
        writeFileAtomically(file, "data");
        done(std::nullopt);
      } else {
        done("404");
      }
    }).detach();
  });
  item.downloadAttachmentWithURLStr("https://f/ok", "b.pdf", record);
  item.downloadAttachmentWithURLStr("https://f/other", "b.pdf", record);  // already there
  item.downloadAttachmentWithURLStr("https://f/bad", "c.pdf", record);
  IOSCalendarItem::setDownloadTimeout(std::chrono::milliseconds(20));
  item.downloadAttachmentWithURLStr("https://f/slow", "d.pdf", record);
  IOSCalendarItem::setDownloadTimeout(std::chrono::seconds(1800));
  IOSCalendarItem::setAttachmentTransfer(nullptr);

  std::string tmp = productDomainPath() + "/iCloud/tmp/";
  ASSERT_EQ(outcomes.size(), 6u);
  EXPECT_FALSE(outcomes[0].first);
  EXPECT_FALSE(outcomes[1].first);
  EXPECT_EQ(outcomes[2], std::make_pair(true, tmp + "b.pdf"));
  EXPECT_EQ(outcomes[3], std::make_pair(true, tmp + "b.pdf"));
  EXPECT_FALSE(outcomes[4].first);
  EXPECT_FALSE(outcomes[5].first);
  EXPECT_EQ(logs.run().lines(), (std::vector<std::string>{
                                    "download failed! URL:",
                                    "download failed! URL:https://f/a",
                                    "download failed! URL:https://f/bad",
                                    "download timeout!! URL:https://f/slow",
                                }));
}

}  // namespace
}  // namespace dataparser
