#include "dataparser/parsers/messaging/line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/chat_app_support.h"

namespace dataparser {
namespace {

using testing::jsonList;
using testing::payloadOf;
using testing::TempDir;
using testing::textsOf;
using testing::writeMessageFile;

std::shared_ptr<IOSLineParser> feed(const std::vector<std::string>& pieces,
                                    bool deviceBackup = false) {
  auto parser = std::make_shared<IOSLineParser>();
  parser->setParseDeleted(false);
  parser->setDeviceBackup(deviceBackup);
  for (const std::string& piece : pieces)
    parser->addJSONData(piece);
  return parser;
}

// {"line_accounts": [{"account_id": id, "line_chat_sessions": sessions}]}
std::string piece(const std::string& id, const std::string& sessions = "null") {
  return R"({"line_accounts": [{"account_id": ")" + id + R"(", "line_chat_sessions": )" + sessions +
         "}]}";
}

const SessionList& sessionsOf(const IOSLineParser& parser, std::size_t account) {
  return static_cast<IOSLineAccountItem&>(*parser.items().at(account)).items();
}

TEST(LineParserTest, AccountsConversationsAndBadInput) {
  TempDir dir;
  testing::LogCapture logs;
  const std::string good = writeMessageFile(
      dir, "good.json",
      {"1", R"({"text": "late", "send_date": "06-14-2024 09:15:00", "is_from_me": 0})",
       R"({"text": "gone", "tag": "deleted"})", R"({"text": "undated", "is_from_me": 1})"});
  const std::string broken = dir.write("broken.json", "{\"messages\": [");
  const std::string sessions =
      R"([7, {"mid": "c1", "contact_name": "", "session_name": "Team", "is_group": 1,
              "members": [{"name": "Ann"}, {"name": null}, 3], "msg_file_list": )" +
      jsonList({dir.str() + "/missing.json", good, broken, dir.write("list.json", "[1]")}) +
      R"(}, {"mid": "c2", "contact_name": "Bo", "msg_file_list": "not a list"}])";
  auto parser =
      feed({"not JSON", R"({"line_accounts": null})", piece("u1", sessions),
            R"({"line_accounts": [1, null, {"account_id": ""}]})", piece("u2"), piece("u1")});

  // Aliases run across pieces; every account is listed, with or without conversations.
  std::vector<std::string> shown;
  for (const ItemPtr& item : parser->items()) {
    auto& account = static_cast<IOSLineAccountItem&>(*item);
    EXPECT_EQ(account.displayAccount(), account.account());
    shown.push_back(account.account());
  }
  EXPECT_EQ(shown, (std::vector<std::string>{"Account1", "", "Account2", "Account1"}));
  EXPECT_EQ(parser->items()[0]->rawData()["account_id"].string(), "u1");

  const SessionList& conversations = sessionsOf(*parser, 0);
  ASSERT_EQ(conversations.size(), 2u);
  EXPECT_EQ(conversations[0]->identifier(), "c1");
  EXPECT_EQ(conversations[0]->name(), "Team");
  EXPECT_EQ(conversations[0]->members().size(), 2u);
  EXPECT_EQ(textsOf(*conversations[0]), (std::vector<std::string>{"undated", "late"}));
  const IOSBaseSingleItem& late = *conversations[0]->contents()[1];
  EXPECT_EQ(late.strSendDate(), "2024/06/14 09:15:00");
  EXPECT_EQ(late.image(), nullptr);  // LINE conversations have no picture
  EXPECT_EQ(conversations[0]->contents()[0]->strSendDate(), "");
  EXPECT_EQ(conversations[1]->name(), "Bo");
  EXPECT_TRUE(conversations[1]->contents().empty());
  // Each message file is decoded once: one line for the broken file.
  EXPECT_EQ(testing::countStartingWith(logs.system().lines(), ">>> ERROR: "), 1u);
}

struct KindRow {
  const char* record;
  std::int32_t flag;
  bool isAttachment;
  std::uint64_t attachmentType;  // 0: no attachment
  const char* name;
  const char* payload;
};

TEST(LineParserTest, MessageKindsAndPayloads) {
  const KindRow rows[] = {
      {R"({"type": 0, "text": "plain"})", 0, false, 0, "", ""},
      {R"({"type": 30, "text": "https://x.test"})", 0, false, 0, "", ""},  // links show as text
      {R"({"type": 13})", 13, false, 7, "Unknown", ""},
      {R"({"type": 1, "text": "", "media_path": "/dev/p/IMG.JPG"})", 1, true, 1, "IMG.JPG", ""},
      {R"({"type": 1, "text": "named.jpg", "media_path": "/dev/p/x"})", 1, true, 1, "named.jpg",
       ""},
      {R"({"type": 7, "text": "A\tB\tC"})", 7, true, 9, "A\tB\tC", "location:A|B|C"},
      {R"({"type": 8, "text": "Bob"})", 8, true, 8, "Bob", "contact:Bob/"},
      {R"({"type": 2, "duration": 2600})", 2, true, 3, "Unknown", "voice:3"},
      {R"({"type": 2, "duration": 2400})", 2, true, 3, "Unknown", "voice:2"},
      {R"({"type": 9, "duration": 2600})", 9, true, 10, "Unknown", "call:2600/0/"},
  };
  for (const KindRow& row : rows) {
    SCOPED_TRACE(row.record);
    auto message = IOSBaseItem::itemWithDictionary<IOSLineSingleItem>(json::parse(row.record));
    EXPECT_EQ(message->flag(), row.flag);
    EXPECT_EQ(message->isAttachment(), row.isAttachment);
    const AttachmentPtr& attachment = message->attachment();
    ASSERT_EQ(attachment != nullptr, row.attachmentType != 0);
    if (!attachment) continue;
    EXPECT_EQ(attachment->type(), row.attachmentType);
    EXPECT_EQ(attachment->name(), row.name);
    EXPECT_EQ(payloadOf(*attachment), row.payload);
  }
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
  const std::string json = piece("a", R"([{"msg_file_list": )" + jsonList({file}) + "}]");

  // Only records whose local media exists; deletion marks are not consulted here.
  auto parser = feed({json});
  ASSERT_EQ(parser->attachments().size(), 1u);
  auto& found = static_cast<IOSAttachmentItem&>(*parser->attachments()[0]);
  EXPECT_EQ(found.localPath() + found.devicePath() + found.thumbPath(), media + "/d/p.jpg/l/t");
  EXPECT_EQ(found.flag(), 1);
  EXPECT_EQ(found.mediaFlag(), 1);

  // A device backup lists two entries per record, text included; a second piece appends.
  auto device = feed({json, json}, /*deviceBackup=*/true);
  ASSERT_EQ(device->attachments().size(), 12u);
  auto& thumb = static_cast<IOSAttachmentItem&>(*device->attachments()[3]);
  EXPECT_EQ(thumb.thumbPath() + thumb.devicePath(), "/l/t/d/t");
  EXPECT_EQ(thumb.flag(), -1);
  // "text" that is not a string names the entry after the device path.
  EXPECT_EQ(static_cast<IOSAttachmentItem&>(*device->attachments()[4]).name(), "q.jpg");
}

}  // namespace
}  // namespace dataparser
