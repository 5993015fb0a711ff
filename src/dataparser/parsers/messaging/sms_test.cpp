#include "dataparser/parsers/messaging/sms.h"

#include <gtest/gtest.h>

#include "dataparser/util/image.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::TempDir;

// Writes one message file holding `sessions` (JSON text of the list's elements) and returns the
// engine block that names it.
std::string exportNaming(const TempDir& dir, std::string_view sessions,
                         std::string_view file = "chats.json") {
  std::string path = dir.write(file, "{\"chat_sessions\": [" + std::string(sessions) + "]}");
  return "{\"sms_file_path\": [\"" + path + "\"]}";
}

std::shared_ptr<IOSSMSParser> parse(const std::string& block, bool parseDeleted = true) {
  return IOSSMSParser::parserWithJSONData(block, parseDeleted, false);
}

std::shared_ptr<IOSSMSSessionItem> sessionAt(const IOSSMSParser& parser, std::size_t index) {
  return std::dynamic_pointer_cast<IOSSMSSessionItem>(parser.items().at(index));
}

std::shared_ptr<IOSSMSSingleItem> messageAt(const IOSSMSSessionItem& session, std::size_t index) {
  return std::dynamic_pointer_cast<IOSSMSSingleItem>(session.contents().at(index));
}

TEST(SMSParserTest, MessageFieldsFollowTheRecord) {
  TempDir dir;
  std::string photo = dir.write("a/IMG_1.JPG", "jpeg");
  auto parser = parse(exportNaming(dir, R"({"chat_id": 7, "chat_identifier": "+1555", "messages": [
      {"text": "sent", "is_from_me": 1, "send_status": 0, "service": "iMessage",
       "send_date": "01-02-2020 03:04:05", "from_id": "me", "belong_number": "+1000"},
      {"subject": "Hi", "text": "there", "is_from_me": 0, "send_status": 1, "service": "SMS",
       "send_date": "01-02-2020 03:04:06"},
      {"text": "", "type": 0, "media_path": ")" +
                                            photo + R"(", "media_backup_path": null,
       "send_date": "01-02-2020 03:04:07"},
      {"text": "typed", "type": 0, "media_path": null, "send_date": "01-02-2020 03:04:08"},
      {"text": "", "type": 0, "send_date": "01-02-2020 03:04:09"}
  ]})"));
  ASSERT_EQ(parser->items().size(), 1u);
  auto session = sessionAt(*parser, 0);
  EXPECT_EQ(session->chatId(), 7);
  EXPECT_EQ(session->identifier(), "+1555");
  ASSERT_EQ(session->contents().size(), 4u);  // the empty message without media is dropped

  auto sent = messageAt(*session, 0);
  EXPECT_FALSE(sent->isReceived());
  EXPECT_TRUE(sent->isSendSuccess());
  EXPECT_TRUE(sent->isiMessage());
  EXPECT_EQ(sent->from(), "me");
  EXPECT_EQ(sent->belong(), "+1000");
  EXPECT_EQ(sent->strSendDate(), "01-02-2020 03:04:05");
  EXPECT_FALSE(sent->isAttachment());

  auto subject = messageAt(*session, 1);
  EXPECT_TRUE(subject->isReceived());
  EXPECT_FALSE(subject->isSendSuccess());
  EXPECT_FALSE(subject->isiMessage());
  EXPECT_EQ(subject->text(), "Hi\nthere");

  auto media = messageAt(*session, 2);  // type 0 but a device path: an attachment
  EXPECT_TRUE(media->isAttachment());
  ASSERT_TRUE(media->attachment());
  EXPECT_EQ(media->attachment()->devicePath(), photo);
  EXPECT_EQ(media->attachment()->localPath(), "");
  EXPECT_EQ(media->attachment()->type(), 1u);

  auto typed = messageAt(*session, 3);
  EXPECT_FALSE(typed->isAttachment());
  EXPECT_FALSE(typed->attachment());
  EXPECT_EQ(session->attachments().size(), 1u);
  EXPECT_EQ(parser->attachments().size(), 1u);
  EXPECT_EQ(parser->attachments()[0], media->attachment());  // the same item, shared
}

TEST(SMSParserTest, MediaInfoSplitsAMessageIntoItsPicturesAndItsWords) {
  TempDir dir;
  std::string a = dir.write("m/a.png", "1");
  std::string b = dir.write("m/b.png", "22");
  std::string c = dir.write("m/c.mov", "333");
  auto parser = parse(exportNaming(dir, R"({"messages": [
      {"text": "three pictures", "type": 1, "send_date": "05-06-2021 10:00:00",
       "media_info": [{"media_backup_path": ")" +
                                            a + R"(", "media_path": "/dev/a.png"},
                      {"media_backup_path": ")" +
                                            b + R"(", "media_path": "/dev/b.png"},
                      {"media_backup_path": ")" +
                                            c + R"(", "media_path": "/dev/c.mov"}]},
      {"text": "", "type": 1, "send_date": "05-06-2021 11:00:00",
       "media_info": [{"media_backup_path": null, "media_path": null}]}
  ]})"));
  auto session = sessionAt(*parser, 0);
  ASSERT_EQ(session->contents().size(), 4u);
  std::vector<std::string> local;
  for (std::size_t i = 0; i < 3; ++i) {
    auto message = messageAt(*session, i);
    ASSERT_TRUE(message->attachment()) << i;
    local.push_back(message->attachment()->localPath());
  }
  EXPECT_EQ(local, (std::vector<std::string>{a, b, c}));
  EXPECT_EQ(messageAt(*session, 1)->attachment()->devicePath(), "/dev/b.png");
  EXPECT_EQ(messageAt(*session, 2)->attachment()->type(), 2u);  // a video
  EXPECT_EQ(messageAt(*session, 3)->text(), "three pictures");
  EXPECT_EQ(session->attachments().size(), 3u);
}

TEST(SMSParserTest, ConversationNames) {
  struct Case {
    const char* fields;
    const char* name;
  };
  const Case cases[] = {
      {R"("room_name": "Trip", "display_name": "Other")", "Trip"},
      {R"("room_name": "", "display_name": "Other")", "Other"},
      {R"("room_name": 5, "display_name": null, "members": [{"first": "Ann"},
          {"phone_number": "555"}, {"first": ""}])",
       "Ann,555"},
      {R"("members": [{"first": "Mary", "middle": "", "last": "Jones"},
                      {"middle": "J", "last": "Doe", "phone_number": "1"}])",
       "Mary Jones,J Doe"},
      {R"("members": [])", "Unknown"},
      {R"("display_name": "")", "Unknown"},
  };
  for (const Case& c : cases) {
    TempDir dir;
    auto parser =
        parse(exportNaming(dir, std::string("{") + c.fields + R"(, "messages": [{"text": "x"}]})"));
    ASSERT_EQ(parser->items().size(), 1u) << c.fields;
    EXPECT_EQ(sessionAt(*parser, 0)->name(), c.name) << c.fields;
  }
}

TEST(SMSParserTest, GroupsSortingAndDeletedData) {
  TempDir dir;
  std::string sessions = R"(
      {"chat_id": 1, "is_group": 1, "messages": [
         {"text": "late", "send_date": "03-01-2022 10:00:00"},
         {"text": "gone", "send_date": "01-01-2022 10:00:00", "tag": "deleted"},
         {"text": "early", "send_date": "02-01-2022 10:00:00"}]},
      {"chat_id": 2, "is_group": 2, "is_deleted": 1, "messages": [{"text": "x", "tag": "deleted"}]},
      {"chat_id": 3, "messages": [{"text": "only deleted", "tag": "deleted"}]})";
  auto kept = parse(exportNaming(dir, sessions), /*parseDeleted=*/false);
  ASSERT_EQ(kept->items().size(), 1u);
  auto first = sessionAt(*kept, 0);
  EXPECT_TRUE(first->isGroup());
  ASSERT_EQ(first->contents().size(), 2u);
  EXPECT_EQ(first->contents()[0]->text(), "early");
  EXPECT_EQ(first->contents()[1]->text(), "late");
  EXPECT_EQ(first->isDeleted(), 0);

  auto all = parse(exportNaming(dir, sessions), /*parseDeleted=*/true);
  ASSERT_EQ(all->items().size(), 3u);
  EXPECT_EQ(sessionAt(*all, 0)->contents().size(), 3u);
  EXPECT_EQ(sessionAt(*all, 0)->isDeleted(), -1);
  EXPECT_FALSE(sessionAt(*all, 1)->isGroup());  // is_group 2 is not a group
  EXPECT_EQ(sessionAt(*all, 1)->isDeleted(), 1);
  EXPECT_EQ(sessionAt(*all, 2)->isDeleted(), 1);
}

TEST(SMSParserTest, VoiceAttachmentsCarryTheirDuration) {
  TempDir dir;
  std::string voice = dir.write("v/note.caf", "caff");
  auto parser = parse(exportNaming(dir, R"({"messages": [{"type": 2, "duration": 4.6,
      "media_backup_path": ")" + voice + R"(", "media_path": "/var/note.caf"}]})"));
  auto message = messageAt(*sessionAt(*parser, 0), 0);
  ASSERT_TRUE(message->attachment());
  EXPECT_EQ(message->attachment()->type(), 3u);
  ASSERT_TRUE(message->attachment()->voice());
  EXPECT_FLOAT_EQ(message->attachment()->voice()->duration(), 4.6f);
  EXPECT_EQ(message->attachment()->size(), 4);
}

TEST(SMSParserTest, SettersWinOverWhatIsReadOnFirstUse) {
  json::Value record = json::parse(R"({"subject": "S", "text": "T", "belong_number": "+1",
      "send_date": "01-02-2020 03:04:05", "type": 0, "media_path": "/var/a.jpg", "tag": "deleted"})");
  auto read = IOSBaseItem::itemWithDictionary<IOSSMSSingleItem>(record);
  EXPECT_EQ(read->text(), "S\nT");
  EXPECT_EQ(read->belong(), "+1");
  EXPECT_EQ(read->strSendDate(), "01-02-2020 03:04:05");
  EXPECT_EQ(read->attachmentPath(), "");
  EXPECT_EQ(read->attachmentDevPath(), "/var/a.jpg");
  EXPECT_TRUE(read->isDeleted());
  ASSERT_TRUE(read->attachment());

  auto set = IOSBaseItem::itemWithDictionary<IOSSMSSingleItem>(record);
  set->setText("");
  set->setBelong("+2");
  set->setStrSendDate("today");
  set->setAttachment(nullptr);
  set->setAttachmentDevPath("");
  EXPECT_EQ(set->text(), "");
  EXPECT_EQ(set->belong(), "+2");
  EXPECT_EQ(set->strSendDate(), "today");
  EXPECT_FALSE(set->attachment());
  EXPECT_FALSE(set->isAttachment());
  EXPECT_EQ(set->to(), "");
  set->setTo("+3");
  EXPECT_EQ(set->to(), "+3");
  EXPECT_EQ(set->belong(), "+2");  // one field does not disturb the others
}

// "media_info" of the wrong type has no entries: the record is an ordinary message, kept for
// its subject or its own attachment.
TEST(SMSParserTest, MediaInfoOfTheWrongTypeLeavesAnOrdinaryMessage) {
  TempDir dir;
  const std::string picture = dir.write("m/a.png", "1");
  for (const char* mediaInfo :
       {R"({"media_backup_path": "x"})", "{}", R"("text")", "7", "null", "[]"}) {
    auto parser =
        parse(exportNaming(dir, std::string(R"({"messages": [
        {"text": "", "subject": "S", "send_date": "05-06-2021 10:00:00", "media_info": )") +
                                    mediaInfo + R"(},
        {"text": "", "send_date": "05-06-2021 11:00:00", "media_backup_path": ")" +
                                    picture + R"(", "media_info": )" + mediaInfo + "}]}"));
    ASSERT_EQ(parser->items().size(), 1u) << mediaInfo;
    auto session = sessionAt(*parser, 0);
    ASSERT_EQ(session->contents().size(), 2u) << mediaInfo;
    EXPECT_EQ(messageAt(*session, 0)->text(), "S\n") << mediaInfo;  // subject, line, no text
    ASSERT_TRUE(messageAt(*session, 1)->attachment()) << mediaInfo;
    EXPECT_EQ(messageAt(*session, 1)->attachment()->localPath(), picture) << mediaInfo;
  }
}

TEST(SMSParserTest, ConversationPictureSetByTheCallerWins) {
  TempDir dir;
  const std::string png = testing::fixturePath("images/picture.png");
  const ImagePtr given = Image::imageWithContentsOfFile(testing::fixturePath("model/pixel.png"));
  ASSERT_TRUE(given);
  for (const std::string& imagePath : {std::string(), png}) {
    auto parser = parse(exportNaming(
        dir, R"({"image_path": ")" + imagePath + R"(", "messages": [{"text": "hi"}]})"));
    auto session = sessionAt(*parser, 0);
    EXPECT_EQ(session->image() != nullptr, !imagePath.empty());  // read from "image_path"
    session->setImage(given);
    EXPECT_EQ(session->image(), given) << imagePath;
    EXPECT_EQ(static_cast<const IOSBaseSessionItem&>(*session).image(), given);
  }
}

TEST(SMSParserTest, BadInputLeavesTheRestIntact) {
  testing::LogCapture logs;
  TempDir dir;
  std::string good = dir.write("good.json", R"({"chat_sessions": [
      "not an object", 42, null,
      {"members": ["x", {"first": "Ann"}], "messages": ["x", {"text": "fine"}]}]})");
  std::string broken = dir.write("broken.json", "{\"chat_sessions\": [");
  std::string huge(1 << 20, 'h');
  std::string big =
      dir.write("big.json", R"({"chat_sessions": [{"messages": [{"text": ")" + huge + R"("}]}]})");
  std::string block = R"({"sms_file_path": [")" + broken + R"(", ")" + dir.str() +
                      R"(/missing.json", 17, ")" + good + R"(", ")" + big + R"("]})";
  auto parser = parse(block);
  ASSERT_EQ(parser->items().size(), 2u);
  EXPECT_EQ(sessionAt(*parser, 0)->name(), "Ann");
  EXPECT_EQ(sessionAt(*parser, 1)->contents()[0]->text().size(), huge.size());
  ASSERT_EQ(logs.system().lines().size(), 1u);
  EXPECT_TRUE(logs.system().lines()[0].starts_with(">>>SMS Parser ERROR: "));

  for (const char* text : {"[]", "{}", R"({"sms_file_path": "x"})", "not json"}) {
    EXPECT_TRUE(parse(text)->items().empty()) << text;
  }
}

}  // namespace
}  // namespace dataparser
