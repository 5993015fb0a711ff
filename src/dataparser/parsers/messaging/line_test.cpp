#include "dataparser/parsers/messaging/line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/chat_app_support.h"

namespace dataparser {
namespace {

using testing::jsonList;
using testing::LogCapture;
using testing::payloadOf;
using testing::TempDir;
using testing::textsOf;
using testing::writeMessageFile;

std::shared_ptr<IOSLineParser> feed(const std::vector<std::string>& pieces,
                                    bool parseDeleted = false, bool deviceBackup = false) {
  auto parser = std::make_shared<IOSLineParser>();
  parser->setParseDeleted(parseDeleted);
  parser->setDeviceBackup(deviceBackup);
  for (const std::string& piece : pieces)
    parser->addJSONData(piece);
  return parser;
}

std::string account(const std::string& id, const std::string& sessions = "null") {
  return R"({"account_id": ")" + id + R"(", "line_chat_sessions": )" + sessions + "}";
}

IOSLineAccountItem& accountAt(const IOSLineParser& parser, std::size_t i) {
  return static_cast<IOSLineAccountItem&>(*parser.items().at(i));
}

TEST(LineParserTest, AccountsAreAliasedAcrossPiecesAndAlwaysListed) {
  TempDir dir;
  const std::string file = writeMessageFile(dir, "m.json", {R"({"text": "hi", "type": 0})"});
  const std::string sessions =
      R"([7, {"mid": "c1", "contact_name": "", "session_name": "Team", "is_group": 1,
              "members": [{"name": "Ann"}, {"name": null}, 3],
              "msg_file_list": )" +
      jsonList({file}) + R"(}, {"mid": "c2", "contact_name": "Bo", "session_name": "x"}])";
  auto parser = feed(
      {R"({"line_accounts": [)" + account("u1", sessions) + "," + account("") + R"(, 5, null]})",
       R"({"line_accounts": [)" + account("u2") + "," + account("u1") + "]}"});

  std::vector<std::string> shown;
  for (const ItemPtr& item : parser->items()) {
    auto& a = static_cast<IOSLineAccountItem&>(*item);
    EXPECT_EQ(a.displayAccount(), a.account());
    shown.push_back(a.account());
  }
  EXPECT_EQ(shown, (std::vector<std::string>{"Account1", "", "Account2", "Account1"}));
  EXPECT_EQ(accountAt(*parser, 0).rawData()["account_id"].string(), "u1");

  // Conversations without messages are listed too.
  const SessionList& conversations = accountAt(*parser, 0).items();
  ASSERT_EQ(conversations.size(), 2u);
  EXPECT_EQ(conversations[0]->identifier(), "c1");
  EXPECT_EQ(conversations[0]->name(), "Team");
  EXPECT_TRUE(conversations[0]->isGroup());
  ASSERT_EQ(conversations[0]->members().size(), 2u);
  EXPECT_EQ(conversations[0]->members()[0]->name(), "Ann");
  EXPECT_EQ(conversations[0]->members()[1]->name(), "");
  EXPECT_EQ(textsOf(*conversations[0]), (std::vector<std::string>{"hi"}));
  EXPECT_EQ(conversations[1]->name(), "Bo");
  EXPECT_TRUE(conversations[1]->contents().empty());
}

struct MessageRow {
  const char* record;
  std::int32_t flag;
  bool isAttachment;
  bool isNotice;
  std::uint64_t attachmentType;  // 0: no attachment
  const char* name;
  const char* payload;
};

TEST(LineParserTest, MessageKindsAndPayloads) {
  const MessageRow rows[] = {
      {R"({"type": 0, "text": "plain"})", 0, false, false, 0, "", ""},
      // Links show as plain text.
      {R"({"type": 30, "text": "https://x.test"})", 0, false, false, 0, "", ""},
      {R"({"type": 13})", 13, false, true, 0, "", ""},
      {R"({"type": 1, "text": "", "media_path": "/dev/p/IMG.JPG"})", 1, true, false, 1, "IMG.JPG",
       ""},
      {R"({"type": 1, "text": "named.jpg", "media_path": "/dev/p/x"})", 1, true, false, 1,
       "named.jpg", ""},
      {R"({"type": 7, "text": "A\tB\tC"})", 7, true, false, 9, "A\tB\tC", "location:A|B|C"},
      {R"({"type": 8, "text": "Bob"})", 8, true, false, 8, "Bob", "contact:Bob/"},
      {R"({"type": 2, "duration": 2600})", 2, true, false, 3, "Unknown", "voice:3"},
      {R"({"type": 2, "duration": 2400})", 2, true, false, 3, "Unknown", "voice:2"},
      {R"({"type": 9, "duration": 2600})", 9, true, false, 10, "Unknown", "call:2600/0/"},
  };
  for (const MessageRow& row : rows) {
    SCOPED_TRACE(row.record);
    auto message = IOSBaseItem::itemWithDictionary<IOSLineSingleItem>(json::parse(row.record));
    EXPECT_EQ(message->flag(), row.flag);
    EXPECT_EQ(message->isAttachment(), row.isAttachment);
    EXPECT_EQ(message->isNotice(), row.isNotice);
    const AttachmentPtr& attachment = message->attachment();
    ASSERT_EQ(attachment != nullptr, row.attachmentType != 0);
    if (!attachment) continue;
    EXPECT_EQ(attachment->type(), row.attachmentType);
    EXPECT_EQ(attachment->name(), row.name);
    EXPECT_EQ(payloadOf(*attachment), row.payload);
    EXPECT_EQ(attachment->flag(), row.flag);
  }
}

TEST(LineParserTest, MessageFieldsDatesAndDeletion) {
  TempDir dir;
  const std::string file = writeMessageFile(
      dir, "m.json",
      {R"({"type": 0, "text": "late", "send_date": "06-14-2024 09:15:00", "is_from_me": 0,
           "send_status": 1, "from_id": "u9"})",
       R"({"type": 0, "text": "undated", "send_date": "", "is_from_me": 1})",
       R"({"type": 0, "text": "gone", "send_date": "06-14-2024 09:00:00", "tag": "deleted"})",
       R"({"type": 1, "text": "p.jpg", "send_date": "06-14-2024 09:10:00",
           "backup_media": "/l/p.jpg", "media_path": "/d/p.jpg", "backup_thumb": "/l/t.jpg",
           "media_type": 1})"});
  const std::string piece = R"({"line_accounts": [{"account_id": "a", "line_chat_sessions":
      [{"mid": "m", "is_group": 0, "msg_file_list": )" +
                            jsonList({file}) + "}]}]}";
  auto parser = feed({piece});
  const auto& session = *accountAt(*parser, 0).items().at(0);
  EXPECT_EQ(textsOf(session), (std::vector<std::string>{"undated", "p.jpg", "late"}));
  const auto& undated = static_cast<IOSLineSingleItem&>(*session.contents()[0]);
  EXPECT_FALSE(undated.sendDate());
  EXPECT_EQ(undated.strSendDate(), "");
  EXPECT_FALSE(undated.isReceived());
  const auto& photo = static_cast<IOSLineSingleItem&>(*session.contents()[1]);
  EXPECT_EQ(photo.attachmentPath(), "/l/p.jpg");
  EXPECT_EQ(photo.attachmentDevPath(), "/d/p.jpg");
  EXPECT_EQ(photo.attachmentThumbPath(), "/l/t.jpg");
  EXPECT_EQ(photo.attachment()->thumbPath(), "/l/t.jpg");
  EXPECT_EQ(photo.attachment()->mediaFlag(), 1);
  const auto& late = *session.contents()[2];
  EXPECT_EQ(late.strSendDate(), "2024/06/14 09:15:00");
  EXPECT_EQ(late.from(), "u9");
  EXPECT_TRUE(late.isReceived());
  EXPECT_FALSE(late.isSendSuccess());
  EXPECT_EQ(late.image(), nullptr);  // LINE conversations have no picture

  auto withDeleted = feed({piece}, /*parseDeleted=*/true);
  EXPECT_EQ(accountAt(*withDeleted, 0).items().at(0)->contents().size(), 4u);
}

TEST(LineParserTest, AttachmentListFollowsTheDeviceBackupSwitch) {
  TempDir dir;
  const std::string media = dir.write("media/p.jpg", "jpeg");
  const std::string file = writeMessageFile(
      dir, "m.json",
      {R"({"type": 0, "text": "words"})",
       R"({"type": 1, "backup_media": ")" + media +
           R"(", "media_path": "/d/p.jpg", "backup_thumb": "/l/t", "thumb_path": "/d/t",
           "media_type": 1, "tag": "deleted"})",
       R"({"type": 1, "text": 5, "backup_media": "/nowhere/q.jpg", "media_path": "/d/q.jpg"})"});
  const std::string piece = R"({"line_accounts": [{"account_id": "a", "line_chat_sessions":
      [{"msg_file_list": )" +
                            jsonList({file}) + "}]}]}";

  // Only records whose local media exists; deletion marks are not consulted here.
  auto parser = feed({piece});
  ASSERT_EQ(parser->attachments().size(), 1u);
  auto& found = static_cast<IOSAttachmentItem&>(*parser->attachments()[0]);
  EXPECT_EQ(found.localPath(), media);
  EXPECT_EQ(found.devicePath(), "/d/p.jpg");
  EXPECT_EQ(found.thumbPath(), "/l/t");
  EXPECT_EQ(found.name(), "p.jpg");
  EXPECT_EQ(found.flag(), 1);
  EXPECT_EQ(found.mediaFlag(), 1);

  // A device backup lists two entries per record, text included; a second piece appends.
  auto device = feed({piece, piece}, false, /*deviceBackup=*/true);
  ASSERT_EQ(device->attachments().size(), 12u);
  auto& thumb = static_cast<IOSAttachmentItem&>(*device->attachments()[3]);
  EXPECT_EQ(thumb.thumbPath(), "/l/t");
  EXPECT_EQ(thumb.devicePath(), "/d/t");
  EXPECT_EQ(thumb.flag(), -1);
  auto& unnamed = static_cast<IOSAttachmentItem&>(*device->attachments()[4]);
  EXPECT_EQ(unnamed.name(), "q.jpg");  // "text" is not a string: the device name
}

TEST(LineParserTest, BadInputCostsOnlyItself) {
  TempDir dir;
  LogCapture logs;
  const std::string good = writeMessageFile(dir, "good.json", {"1", "\"x\"", R"({"text": "ok"})"});
  const std::string broken = dir.write("broken.json", "{\"messages\": [");
  const std::string list = dir.write("list.json", "[1, 2]");
  auto parser = feed({"not JSON", R"({"line_accounts": null})", "[1, 2]",
                      R"({"line_accounts": [1, "x", null, {"account_id": "a",
                          "line_chat_sessions": [7, {"msg_file_list": )" +
                          jsonList({dir.str() + "/missing.json", good, broken, list}) +
                          R"(}, {"msg_file_list": "not a list"}]}]})"});
  ASSERT_EQ(parser->items().size(), 1u);
  const SessionList& sessions = accountAt(*parser, 0).items();
  ASSERT_EQ(sessions.size(), 2u);
  EXPECT_EQ(textsOf(*sessions[0]), (std::vector<std::string>{"ok"}));
  // Each message file is decoded once: one line for the broken file.
  EXPECT_EQ(testing::countStartingWith(logs.system().lines(), ">>> ERROR: "), 1u);
}

}  // namespace
}  // namespace dataparser
