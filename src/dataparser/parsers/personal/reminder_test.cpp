#include "dataparser/parsers/personal/reminder.h"

#include <gtest/gtest.h>

#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::TempDir;

ReminderPtr reminderAt(const IOSBaseParser& parser, std::size_t index) {
  return std::dynamic_pointer_cast<IOSReminderItem>(parser.items().at(index));
}

ReminderPtr reminderOf(const std::string& record) {
  return IOSBaseItem::itemWithDictionary<IOSReminderItem>(json::parse(record));
}

TEST(ReminderParserTest, PrioritiesCompletionAndFlags) {
  struct Case {
    const char* fields;
    std::uint64_t priority;
    const char* strPriority;
    bool completed;
    bool flagged;
  };
  const Case cases[] = {
      {R"("priority": 1, "status": 1, "flagged": 1)", 1, "High Priority", true, true},
      {R"("priority": 5, "status": 0, "flagged": 0)", 2, "Medium Priority", false, false},
      {R"("priority": 9, "status": 2, "flagged": null)", 3, "Low Priority", false, false},
      {R"("priority": 0, "status": "1", "flagged": "1")", 0, "", false, false},
      {R"("priority": 2, "status": 1.9, "flagged": 1.5)", 0, "", true, true},
      {R"("priority": "5")", 0, "", false, false},
      {R"("priority": 4294967297)", 1, "High Priority", false, false},
      {"", 0, "", false, false},
  };
  for (const Case& c : cases) {
    auto reminder = reminderOf(std::string("{") + c.fields + "}");
    EXPECT_EQ(reminder->priority(), c.priority) << c.fields;
    EXPECT_EQ(reminder->strPriority(), c.strPriority) << c.fields;
    EXPECT_EQ(reminder->completed(), c.completed) << c.fields;
    EXPECT_EQ(reminder->hasFlag(), c.flagged) << c.fields;
  }
}

TEST(ReminderParserTest, FieldsDatesAndMedia) {
  TempDir dir;
  std::string photo = dir.write("m/IMG_1.JPG", "jpeg!");
  std::string first = R"([
      {"unique_identifier": "r1", "utf_Title": "Call Ann", "utf_Address": "Main St\\n2nd floor",
       "utf_Description": "about Sunday", "utf_List": "Family", "url": "https://x.test",
       "start_date": "03-07-2021 09:05:00",
       "media_info": [{"media_name": "IMG_1.JPG", "media_path": ")" +
                      photo + R"(", "media_device_path": "/var/IMG_1.JPG"},
                      {"media_name": "gone.png", "media_path": "/nowhere/gone.png",
                       "media_device_path": "/var/gone.png"},
                      {"media_name": "x.png", "media_path": ")" +
                      photo + R"(", "media_device_path": null}]},
      {"utf_Title": "Old", "tag": "deleted", "media_info": [{"media_name": "a", "media_path": ")" +
                      photo + R"(", "media_device_path": "/d"}]},
      {"utf_Title": null, "start_date": ""}, 7, "x"])";
  IOSReminderParser parser;
  parser.setParseDeleted(false);
  parser.addJSONData(first);
  parser.addJSONData(R"([{"utf_Title": "Second piece", "start_date": "13-01-2021 00:00:00"}])");
  parser.addJSONData(R"({"not": "a list"})");
  parser.addJSONData("not json");
  parser.addJSONData(std::nullopt);
  ASSERT_EQ(parser.items().size(), 3u);

  auto call = reminderAt(parser, 0);
  EXPECT_EQ(call->identifier(), "r1");
  EXPECT_EQ(call->title(), "Call Ann");
  EXPECT_EQ(call->location(), "Main St\n2nd floor");
  EXPECT_EQ(call->note(), "about Sunday");
  EXPECT_EQ(call->list(), "Family");
  EXPECT_EQ(call->url(), "https://x.test");
  EXPECT_EQ(call->strRemindDate(), "2021/03/07 09:05:00");
  ASSERT_TRUE(call->remindDate());
  EXPECT_DOUBLE_EQ(secondsSince1970(*call->remindDate()), 1615107900);
  ASSERT_EQ(call->attachments().size(), 1u);
  ASSERT_EQ(parser.attachments().size(), 1u);
  EXPECT_EQ(parser.attachments()[0], call->attachments()[0]);
  auto media = std::dynamic_pointer_cast<IOSAttachmentItem>(call->attachments()[0]);
  EXPECT_EQ(media->name(), "IMG_1.JPG");
  EXPECT_EQ(media->localPath(), photo);
  EXPECT_EQ(media->devicePath(), "/var/IMG_1.JPG");
  EXPECT_EQ(media->type(), 1u);

  auto empty = reminderAt(parser, 1);
  EXPECT_EQ(empty->title(), "");
  EXPECT_FALSE(empty->remindDate());
  EXPECT_EQ(empty->strRemindDate(), "");
  EXPECT_TRUE(empty->attachments().empty());
  EXPECT_EQ(reminderAt(parser, 2)->title(), "Second piece");
  EXPECT_EQ(reminderAt(parser, 2)->strRemindDate(), "");  // month 13
}

TEST(ReminderParserTest, CurrentICloudFormatWithListsAlarmsAndMedia) {
  testing::LogCapture logs;
  IOSReminderParser parser;
  ItemList lists = parser.parserICloudWithListDataJSONData(R"({"lists": [
      {"name": "Family", "uuid": "L1", "created": 1615107900.5, "reminders": ["a", 3]},
      {"name": "Work", "uuid": "L2"}, "junk"]})");
  ASSERT_EQ(lists.size(), 2u);
  auto family = std::dynamic_pointer_cast<iCloudReminderListItem>(lists[0]);
  EXPECT_EQ(family->strDate(), "2021/03/07 09:05:00");
  EXPECT_EQ(family->reminderUUIDs(), (std::vector<std::string>{"a", ""}));
  EXPECT_FALSE(std::dynamic_pointer_cast<iCloudReminderListItem>(lists[1])->data());

  parser.addiCloudJSONData(R"({"reminders": [
      {"uuid": "a", "title": "Buy milk", "note": "2%", "parent": "L1", "completed": 0,
       "due": 1615107900999, "attachments": ["m1", 5], "alarms": ["al1", "al2"]},
      {"uuid": "b", "title": "Done thing", "parent": "nowhere"}]})",
                           lists);
  ASSERT_EQ(parser.items().size(), 2u);
  auto milk = reminderAt(parser, 0);
  EXPECT_EQ(milk->identifier(), "a");
  EXPECT_EQ(milk->list(), "Family");
  EXPECT_FALSE(milk->completed());
  EXPECT_EQ(milk->strRemindDate(), "2021/03/07 09:05");
  EXPECT_EQ(milk->attachmentsUUID(), (std::vector<std::string>{"m1", ""}));
  auto done = reminderAt(parser, 1);
  EXPECT_TRUE(done->completed());  // no "completed" counts as completed
  EXPECT_EQ(done->list(), "");
  EXPECT_EQ(done->strRemindDate(), "");

  parser.parseriCloudAlarmsForItem(milk, R"({"alarms": [
      {"uuid": "al0", "type": "Date", "date": {"year": 1999, "month": 1, "day": 1}},
      {"uuid": "al2", "type": "Location", "address": "1 Loop", "title": "Office",
       "proximity": "leaving", "latitude": 37.3, "longitude": -122.0, "radius": 100}]})");
  EXPECT_EQ(milk->location(), "1 Loop");
  EXPECT_EQ(milk->strPriority(), "leaving");
  EXPECT_EQ(milk->locationTitle(), "");  // the place's name stays with the alarm
  EXPECT_FALSE(milk->remindDate());

  parser.parseriCloudAlarmsWithJSONData(R"({"alarms": [{"uuid": "al9", "type": "Date",
      "date": {"year": 2022, "month": 12, "day": 24, "hour": 18, "minute": 30, "second": 5}}]})");
  done->setAlarmsUUIDArr({"al9"});
  parser.matchingAlarmForItem(done);
  EXPECT_EQ(done->strRemindDate(), "2022/12/24 18:30:05");
  ASSERT_TRUE(done->remindDate());
  EXPECT_DOUBLE_EQ(secondsSince1970(*done->remindDate()), 1671906605);

  parser.parseriCloudAttachmentsForItem(milk, R"({"medias": [
      {"name": "list.jpg", "size": 12, "url": "https://f/m1", "parent": "a"}, 5]})");
  ASSERT_EQ(milk->attachments().size(), 1u);
  ASSERT_EQ(parser.attachments().size(), 1u);
  auto file = std::dynamic_pointer_cast<IOSAttachmentItem>(milk->attachments()[0]);
  EXPECT_EQ(file->name(), "list.jpg");
  EXPECT_EQ(file->url(), "https://f/m1");
  EXPECT_EQ(file->parentUUID(), "a");
  EXPECT_EQ(file->size(), 12);
  EXPECT_NE(std::find(logs.run().lines().begin(), logs.run().lines().end(),
                      "startDate:2022/12/24 18:30:05"),
            logs.run().lines().end());

  for (const char* bad : {"", "[]", "{\"reminders\": 3}", "nope"}) {
    parser.addiCloudJSONData(std::string_view(bad), lists);
    parser.parseriCloudAttachmentsForItem(milk, std::string_view(bad));
    parser.parseriCloudAlarmsForItem(milk, std::string_view(bad));
  }
  parser.parseriCloudAlarmsForItem(nullptr, "{}");
  EXPECT_EQ(parser.items().size(), 2u);
  EXPECT_EQ(milk->attachments().size(), 1u);
}

TEST(ReminderParserTest, OlderICloudFormat) {
  testing::LogCapture logs;
  IOSReminderParser parser;
  parser.addLowReminderiCloudJSONData(R"({
      "lists": [{"title": "Home", "uuid": "H", "enabled": true,
                 "created": [20201113, 2020, 11, 13, 14, 25]},
                {"title": "Early", "uuid": "E", "created": [0, 2020, 1, 2, 3, 4]}],
      "reminders": [
        {"title": "Water plants", "parent": "H", "uuid": "w", "due": [0, 2021, 3, 7, 9, 5],
         "address": "Garden", "proximity": "arriving", "latitude": "1.5", "interval": 2,
         "freq": "weekly", "description": "twice"},
        {"title": "No due", "parent": "x"}]})");
  ASSERT_EQ(parser.lists().size(), 2u);
  EXPECT_EQ(parser.lists()[0]->strDate(), "2020/11/13 14:25:00");
  EXPECT_TRUE(parser.lists()[0]->data());
  EXPECT_TRUE(parser.lists()[0]->enabled());
  EXPECT_EQ(parser.lists()[1]->strDate(), "2020/ 1/ 2  3: 4:00");  // space-padded, unreadable
  EXPECT_FALSE(parser.lists()[1]->data());

  ASSERT_EQ(parser.items().size(), 2u);
  auto water = reminderAt(parser, 0);
  EXPECT_EQ(water->list(), "Home");
  EXPECT_EQ(water->identifier(), "w");
  EXPECT_EQ(water->strRemindDate(), "2021/03/07 09:05:00");
  EXPECT_EQ(water->location(), "Garden");
  EXPECT_EQ(water->strPriority(), "arriving");
  EXPECT_EQ(water->note(), "twice");
  EXPECT_DOUBLE_EQ(water->latitude(), 1.5);
  EXPECT_EQ(water->interval(), 2);
  EXPECT_EQ(water->freq(), "weekly");
  EXPECT_EQ(reminderAt(parser, 1)->list(), "");
  EXPECT_FALSE(reminderAt(parser, 1)->remindDate());
  EXPECT_EQ(logs.run().lines(), std::vector<std::string>{"due Date:2021/03/07 09:05:00"});
}

}  // namespace
}  // namespace dataparser
