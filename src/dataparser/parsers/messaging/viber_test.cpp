#include "dataparser/parsers/messaging/viber.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dataparser/parsers/personal/call_history.h"
#include "tests/chat_app_support.h"

namespace dataparser {
namespace {

using testing::jsonList;
using testing::payloadOf;
using testing::TempDir;
using testing::textsOf;
using testing::writeMessageFile;

std::shared_ptr<IOSViberParser> parse(const std::string& json, bool parseDeleted = false,
                                      bool deviceBackup = false) {
  return IOSViberParser::parserWithJSONData(json, parseDeleted, deviceBackup);
}

struct CallRow {
  const char* record;
  const char* name;
  std::uint64_t type;
  std::uint64_t answerType;
  const char* strType;
  const char* strDuration;
};

TEST(ViberParserTest, CallsAndTheirDisplayKeys) {
  const CallRow rows[] = {
      {R"({"name": "", "flags": 0, "type": 2, "duration": 30})", "Unknown", 2, 2,
       "CallHistory_Incoming", "CallHistory_Missed"},
      {R"({"name": "Ann", "flags": 1, "type": 1, "duration": 30})", "Ann", 1, 1,
       "CallHistory_Outgoing", "CallHistory_Canceled"},
      {R"({"name": "Bo", "flags": 1, "type": 2, "duration": 3723.9})", "Bo", 1, 2,
       "CallHistory_Outgoing", "1:2:3"},
      {R"({"name": null, "flags": 7, "type": 5, "duration": 0.5})", "Unknown", 0, 0, "CallHistory_",
       "00:00"},
      {R"({"flags": 0, "type": 1, "duration": 59})", "Unknown", 2, 1, "CallHistory_Incoming",
       "0:0:59"},
  };
  std::string calls;
  for (const CallRow& row : rows)
    calls += std::string(row.record) + ",";
  auto parser = parse(R"({"viber_calls": [)" + calls +
                      R"(7, {"name": "gone", "tag": "deleted"}], "viber_chat_session": null})");
  ASSERT_EQ(parser->callHistorys().size(), std::size(rows));
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    SCOPED_TRACE(rows[i].record);
    auto& call = static_cast<IOSCallItem&>(*parser->callHistorys()[i]);
    EXPECT_EQ(call.name(), rows[i].name);
    EXPECT_EQ(call.type(), rows[i].type);
    EXPECT_EQ(call.answerType(), rows[i].answerType);
    EXPECT_EQ(call.strType(), rows[i].strType);
    EXPECT_EQ(call.strDuration(), rows[i].strDuration);
  }
  EXPECT_TRUE(parser->items().empty());

  auto dated = parse(R"({"viber_calls": [{"call_time": "01-02-2020 03:04:05", "phone_number":
                         "+1555", "name": "gone", "tag": "deleted"}]})",
                     /*parseDeleted=*/true);
  ASSERT_EQ(dated->callHistorys().size(), 1u);
  auto& call = static_cast<IOSCallItem&>(*dated->callHistorys()[0]);
  EXPECT_EQ(call.strDate(), "2020/01/02 03:04:05");
  EXPECT_EQ(call.phone(), "+1555");
}

TEST(ViberParserTest, GroupNoticesKeepTheirKeysAndOthersAreDropped) {
  // Kind and the display key it keeps; nullptr: the notice is dropped.
  const std::pair<int, const char*> rows[] = {
      {20, "Viber_GroupNotice_ChangeSubject"},
      {21, "Viber_GroupNotice_AddedIn"},
      {22, nullptr},
      {23, "WhatsApp_GroupNotice_Left"},
      {26, "Viber_GroupNotice_AddSelf"},
      {29, "Viber_GroupNotice_ChangeIcon"},
      {13, nullptr},
      {32, nullptr},
  };
  TempDir dir;
  // A received group message first: no member carries an identifier, so it gets no picture.
  std::vector<std::string> records = {R"({"type": 0, "text": "hi", "is_from_me": false})"};
  std::vector<std::string> expected = {"hi="};
  for (auto [kind, key] : rows) {
    records.push_back(fmt::format(
        R"({{"type": {}, "text": "k", "send_date": "01-01-2020 00:00:{:02}"}})", kind, kind));
    if (key != nullptr) expected.push_back(fmt::format("k={}", key));
  }
  const std::string picture = testing::fixturePath("images/picture.jpg");
  auto parser =
      parse(R"({"viber_chat_session": [{"is_group": 1, "msg_file_list": )" +
            jsonList({writeMessageFile(dir, "m.json", records)}) +
            R"(, "members": [{"member_name": "Ann", "media_backup": ")" + picture + R"("}]}]})");
  ASSERT_EQ(parser->items().size(), 1u);
  auto& session = static_cast<IOSViberSessionItem&>(*parser->items()[0]);
  std::vector<std::string> kept;
  for (const MessagePtr& message : session.contents())
    kept.push_back(message->text() + "=" + message->strNotice());
  EXPECT_EQ(kept, expected);
  EXPECT_EQ(session.contents()[0]->image(), nullptr);
  EXPECT_EQ(session.members()[0]->thumbPath(), picture);
}

struct AttachmentRow {
  const char* record;
  std::uint64_t type;
  const char* payload;
};

TEST(ViberParserTest, MessageAttachmentsAndPayloads) {
  const AttachmentRow rows[] = {
      {R"({"type": 34, "location_info": "<p>Main <b>St</b></p>"})", 9, "location:Main St"},
      {R"({"type": 7, "location_info": 5})", 9, "location:"},
      {R"({"type": 30, "title": "T", "summary": null, "text": "https://x"})", 5,
       "link:T//https://x"},
      {R"({"type": 8, "contact_name": "Bob", "contact_number": "+2"})", 8, "contact:Bob/+2"},
      {R"({"type": 2, "duration": 4.5})", 3, "voice:4.5"},
      {R"({"type": 9, "duration": 61, "call_type": 2})", 10, "call:61/2/ViberCallHistory_Missed"},
      {R"({"type": 10, "duration": 0, "call_type": 1})", 11, "call:0/1/ViberCallHistory_Canceled"},
      {R"({"type": 9, "call_type": 7})", 10, "call:0/7/ViberCallHistory_OutgoingOrIncoming"},
      {R"({"type": 1, "file_name": "a.jpg"})", 1, ""},
  };
  for (const AttachmentRow& row : rows) {
    SCOPED_TRACE(row.record);
    auto message = IOSBaseItem::itemWithDictionary<IOSViberSingleItem>(json::parse(row.record));
    ASSERT_NE(message->attachment(), nullptr);
    EXPECT_EQ(message->attachment()->type(), row.type);
    EXPECT_EQ(payloadOf(*message->attachment()), row.payload);
  }
  auto text = IOSBaseItem::itemWithDictionary<IOSViberSingleItem>(json::parse(R"({"type": 0})"));
  EXPECT_EQ(text->attachment(), nullptr);

  // The first existing candidate is the file; with none, "origin_file_path" as it stands.
  TempDir dir;
  const std::string other = dir.write("other.jpg", "x");
  auto found = IOSBaseItem::itemWithDictionary<IOSViberSingleItem>(json::parse(
      R"({"type": 1, "backup_media": "/no/a", "thumb_file_path": null, "other_file_path": ")" +
      other + R"(", "origin_file_path": "/no/o", "media_path": "/dev/p.jpg", "media_type": 1})"));
  EXPECT_EQ(found->attachment()->localPath(), other);
  EXPECT_EQ(found->attachment()->devicePath(), "/dev/p.jpg");
  EXPECT_EQ(found->attachment()->name(), "p.jpg");
  EXPECT_EQ(found->attachment()->mediaFlag(), 1);
  auto missing = IOSBaseItem::itemWithDictionary<IOSViberSingleItem>(
      json::parse(R"({"type": 1, "backup_media": "/no/a", "origin_file_path": "/no/o"})"));
  EXPECT_EQ(missing->attachment()->localPath(), "/no/o");
}

TEST(ViberParserTest, ParserAttachmentListAndBadInput) {
  TempDir dir;
  std::vector<std::string> copies;
  for (const char* name : {"a.jpg", "b.jpg", "c.jpg", "d.jpg"})
    copies.push_back(dir.write(name, "x"));
  const std::string media = fmt::format(
      R"({{"type": 1, "backup_media": "{}", "other_file_path": "{}", "origin_file_path": "{}",
          "thumb_file_path": "{}", "profile_path": "/dev/pic.jpg"}})",
      copies[0], copies[1], copies[2], copies[3]);
  const std::string file = writeMessageFile(
      dir, "m.json",
      {R"({"type": 0, "text": "t", "backup_media": ")" + copies[0] + R"("})",
       R"({"type": 9, "backup_media": ")" + copies[0] + R"("})",
       R"({"type": 30, "title": "T", "text": "https://x"})", media,
       R"({"type": 2, "backup_media": null, "other_file_path": 4, "origin_file_path": "/no/x",
           "thumb_file_path": ""})",
       "7"});
  const std::string broken = dir.write("broken.json", "{");
  const std::string json = R"({"viber_chat_session": [5, {"msg_file_list": )" +
                           jsonList({broken, dir.str() + "/missing.json", file}) +
                           R"(}, {"msg_file_list": []}]})";

  auto parser = parse(json);
  ASSERT_EQ(parser->items().size(), 1u);  // the conversation without messages is left out
  std::vector<std::string> listed;
  for (const ItemPtr& item : parser->attachments()) {
    auto& attachment = static_cast<IOSAttachmentItem&>(*item);
    listed.push_back(attachment.link() ? payloadOf(attachment) : attachment.localPath());
    if (!attachment.link()) {
      EXPECT_EQ(attachment.devicePath(), "/dev/pic.jpg");
    }
  }
  EXPECT_EQ(listed, (std::vector<std::string>{"link:T//https://x", copies[0], copies[1], copies[2],
                                              copies[3]}));
  EXPECT_EQ(static_cast<IOSAttachmentItem&>(*parser->attachments()[0]).type(), kAttachmentLink);

  // On a device backup every candidate that is a string counts, existing or not.
  EXPECT_EQ(parse(json, false, /*deviceBackup=*/true)->attachments().size(), 7u);

  for (const char* bad :
       {"not JSON", "[1, 2]", R"({"viber_calls": 5, "viber_chat_session": {}})"}) {
    auto empty = parse(bad);
    EXPECT_TRUE(empty->items().empty() && empty->callHistorys().empty() &&
                empty->attachments().empty())
        << bad;
  }
}

}  // namespace
}  // namespace dataparser
