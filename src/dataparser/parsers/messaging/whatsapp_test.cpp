#include "dataparser/parsers/messaging/whatsapp.h"

#include <gtest/gtest.h>

#include "dataparser/util/text.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::LocalZone;
using testing::LogCapture;
using testing::TempDir;

// A conversation record naming message files that hold `messages` (JSON list elements), one
// file per entry.
std::string session(const TempDir& dir, std::string_view head,
                    std::vector<std::string> messageFiles) {
  static int counter = 0;
  std::string files;
  for (const std::string& messages : messageFiles) {
    std::string path =
        dir.write("m" + std::to_string(++counter) + ".json", "{\"messages\": [" + messages + "]}");
    files += (files.empty() ? "\"" : ", \"") + path + "\"";
  }
  return "{" + std::string(head) + (head.empty() ? "" : ", ") + "\"msg_file_list\": [" + files +
         "]}";
}

std::shared_ptr<IOSWhatsappParser> parse(const std::string& sessions, bool parseDeleted = true,
                                         std::string_view key = "whatsapp_chatsessions") {
  return IOSWhatsappParser::parserWithJSONData("{\"" + std::string(key) + "\": [" + sessions + "]}",
                                               parseDeleted, false);
}

const IOSWhatsappSessionItem& sessionAt(const IOSBaseParser& parser, std::size_t index) {
  return dynamic_cast<const IOSWhatsappSessionItem&>(*parser.items().at(index));
}

TEST(WhatsappAddressTest, CutsAtTheLastMarkOfTheFirstLineThatHasOne) {
  // The byte scan must give exactly what the pattern gives.
  for (std::string_view address : {"4915112345678@s.whatsapp.net", "4915112345678-1600000000@g.us",
                                   "4915112345678-16", "plain", "", "@lead", "a@b@c", "line\nx@y",
                                   "no\nmarks", "a-b\nc@d", "x\r@y", "é@x", "\xff@x"}) {
    EXPECT_EQ(whatsappAddress(address),
              matchWithPattern(address, ".*(?=@|-.*)").value_or(std::string(address)))
        << address;
  }
  EXPECT_EQ(whatsappAddress(whatsappAddress("4915112345678-1600000000@g.us")), "4915112345678");
  EXPECT_EQ(withLeadingPlus("49"), "+49");
  EXPECT_EQ(withLeadingPlus("+49"), "+49");
  EXPECT_EQ(withLeadingPlus(""), "");
}

TEST(WhatsappMessageTest, KindsNoticesPayloadsAndSenders) {
  LocalZone zone("UTC");
  TempDir dir;
  std::string photo = dir.write("IMG_1.JPG", "jpeg");
  auto parser = parse(session(dir, R"("session_type": 0, "jid": "4915112345678@s.whatsapp.net")",
                              {R"(
      {"type": 0, "ZISFROMME": 0, "ZMESSAGEDATE": 10, "text": "hi", "ZMESSAGESTATUS": 9,
       "from_id": "4915112345678@s.whatsapp.net", "to_id": "49170@s.whatsapp.net"},
      {"type": 1, "media_type": 1, "ZISFROMME": 1, "ZMESSAGEDATE": 20, "media_backup": ")" +
                               photo + R"(", "media_path": "M/IMG_1.JPG",
       "send_name": "Me Myself", "name_id": "1@x"},
      {"type": 2, "ZMESSAGEDATE": 30, "duration": 7.5, "media_path": "M/v.opus"},
      {"type": 7, "ZMESSAGEDATE": 40, "ZVCARDNAME": "Hall", "media_thumb_backup": "t.png"},
      {"type": 8, "ZMESSAGEDATE": 50, "ZVCARDNAME": "Bob", "ZVCARDSTRING": "BEGIN:VCARD"},
      {"type": 4, "ZMESSAGEDATE": 60, "ZAUTHORNAME": "report.pdf", "media_path": "M/x.bin"},
      {"type": 30, "ZMESSAGEDATE": 70, "text": "look", "title": "T", "summary": "S",
       "ZMEDIAURL": "https://u.example", "media_thumb_backup": null},
      {"type": 20, "ZMESSAGEDATE": 80, "text": ""},
      {"type": 21, "ZMESSAGEDATE": 81}, {"type": 22, "ZMESSAGEDATE": 82},
      {"type": 23, "ZMESSAGEDATE": 83}, {"type": 24, "ZMESSAGEDATE": 84},
      {"type": 26, "ZMESSAGEDATE": 86}, {"type": 28, "ZMESSAGEDATE": 88},
      {"type": 29, "ZMESSAGEDATE": 89}, {"type": 27, "ZMESSAGEDATE": 87},
      {"type": 32, "ZMESSAGEDATE": 90, "text": "x", "name_id": "4930888@s.whatsapp.net"},
      {"type": 13, "ZMESSAGEDATE": 91, "text": "plain notice"},
      {"type": 13, "ZMESSAGEDATE": 92},
      {"type": 31, "ZMESSAGEDATE": 93, "text": "never"},
      {"type": 0, "ZMESSAGEDATE": 94, "text": ""},
      {"type": 0, "ZMESSAGEDATE": null, "text": "undated"})"}));
  ASSERT_EQ(parser->items().size(), 1u);
  const auto& chat = sessionAt(*parser, 0);
  EXPECT_EQ(chat.identifier(), "4915112345678");

  struct Expected {
    std::int32_t flag;
    std::string text;
    std::string notice;
    std::uint64_t attachmentType;  // 0: none
  };
  const std::vector<Expected> table = {
      {0, "undated", "", 0},
      {0, "hi", "", 0},
      {1, "", "", kAttachmentPhoto},
      {2, "", "", kAttachmentAudio},
      {7, "", "", kAttachmentLocation},
      {8, "", "", kAttachmentContactCard},
      {4, "", "", kAttachmentDocument},
      {30, "look", "", kAttachmentLink},
      {20, "", "WhatsApp_GroupNotice_ChangeSubject", kAttachmentOther},
      {21, "", "WhatsApp_GroupNotice_AddedIn", kAttachmentOther},
      {22, "", "WhatsApp_GroupNotice_OneToOneAddedIn", kAttachmentOther},
      {23, "", "WhatsApp_GroupNotice_Left", kAttachmentOther},
      {24, "", "WhatsApp_GroupNotice_Broadcast", kAttachmentOther},
      {26, "", "WhatsApp_GroupNotice_AddSelf", kAttachmentOther},
      {27, "", "", kAttachmentOther},
      {28, "", "WhatsApp_GroupNotice_ChangeDescription", kAttachmentOther},
      {29, "", "WhatsApp_GroupNotice_ChangeIcon", kAttachmentOther},
      {32, "4930888", "WhatsApp_GroupNotice_Remove", kAttachmentOther},
      {13, "plain notice", "", kAttachmentOther},
  };
  ASSERT_EQ(chat.contents().size(), table.size());
  for (std::size_t i = 0; i < table.size(); ++i) {
    const IOSBaseSingleItem& message = *chat.contents()[i];
    SCOPED_TRACE(i);
    EXPECT_EQ(message.flag(), table[i].flag);
    EXPECT_EQ(message.text(), table[i].text);
    EXPECT_EQ(message.strNotice(), table[i].notice);
    EXPECT_EQ(message.attachment() ? message.attachment()->type() : 0, table[i].attachmentType);
  }
  const auto& undated = *chat.contents()[0];
  EXPECT_EQ(undated.strSendDate(), "2001/01/01 00:00:00");
  const auto& hi = *chat.contents()[1];
  EXPECT_TRUE(hi.isReceived());
  EXPECT_FALSE(hi.isSendSuccess());
  EXPECT_EQ(hi.from(), "+4915112345678");
  EXPECT_EQ(hi.to(), "+49170");
  EXPECT_EQ(hi.strSendDate(), "2001/01/01 00:00:10");
  const auto& sent = *chat.contents()[2];
  EXPECT_FALSE(sent.isReceived());
  EXPECT_EQ(sent.from(), "Me Myself");
  EXPECT_EQ(sent.attachment()->localPath(), photo);
  EXPECT_EQ(sent.attachment()->mediaFlag(), 1);
  EXPECT_FLOAT_EQ(chat.contents()[3]->attachment()->voice()->duration(), 7.5f);
  EXPECT_EQ(chat.contents()[4]->attachment()->location()->localInfo(), "Hall");
  EXPECT_EQ(chat.contents()[4]->attachment()->location()->thumbPath(), "t.png");
  EXPECT_EQ(chat.contents()[5]->attachment()->contact()->vcf(), "BEGIN:VCARD");
  EXPECT_EQ(chat.contents()[6]->attachment()->name(), "report.pdf");
  const auto& link = *chat.contents()[7]->attachment()->link();
  EXPECT_EQ(link.title() + link.summary() + link.text() + link.url(), "TSlookhttps://u.example");

  // The parser's own list: the photo on disk and the link; the rest has no file.
  ASSERT_EQ(parser->attachments().size(), 2u);
  auto first = std::dynamic_pointer_cast<IOSAttachmentItem>(parser->attachments()[0]);
  EXPECT_EQ(first->localPath(), photo);
  EXPECT_NE(first.get(), sent.attachment().get());
  EXPECT_EQ(std::dynamic_pointer_cast<IOSAttachmentItem>(parser->attachments()[1])->type(),
            kAttachmentLink);
}

TEST(WhatsappMessageTest, DatesMoveByTheLocalOffsetOfNow) {
  LocalZone zone("Asia/Kolkata");  // +05:30 all year
  IOSWhatsappSingleItem message;
  message.initWithDictionary(json::parse(R"({"ZMESSAGEDATE": 0.5, "type": 0})"));
  EXPECT_EQ(message.strSendDate(), "2001/01/01 05:30:00");
}

TEST(WhatsappSessionTest, GroupsMembersFilesAndDeletion) {
  LocalZone zone("UTC");
  TempDir dir;
  const std::string group =
      session(dir, R"("session_type": 1, "jid": "4915112345678-1600000000@g.us", "name": "Crew",
              "members": [{"member_name": "Ann", "member_jid": "4915112345678@s.whatsapp.net"},
                          {"member_name": "Ben", "member_jid": "+49151@s.whatsapp.net"}, 3])",
              {R"({"type": 0, "ZMESSAGEDATE": 1, "text": "old file"})",
               R"({"type": 0, "ZMESSAGEDATE": 5, "text": "same date"},
          {"type": 25, "ZMESSAGEDATE": 5, "text": "created"},
          {"type": 0, "ZISFROMME": 0, "ZMESSAGEDATE": 6, "text": "from Ann",
           "from_id": "4915112345678@s.whatsapp.net"},
          {"type": 0, "ZISFROMME": 0, "ZMESSAGEDATE": 7, "text": "stranger", "from_id": "4999@x"},
          {"type": 1, "ZMESSAGEDATE": 8, "tag": "deleted", "media_backup": ")" +
                   dir.write("d.jpg", "j") + R"(", "media_path": "M/d.jpg"})"});
  const std::string empty = session(dir, R"("jid": "1@x")", {R"({"type": 0, "text": ""})"});
  const std::string all = group + ", " + empty + ", 7, null";

  auto parser = parse(all, /*parseDeleted=*/false);
  ASSERT_EQ(parser->items().size(), 1u);  // the conversation without messages is left out
  const auto& crew = sessionAt(*parser, 0);
  EXPECT_EQ(crew.identifier(), "4915112345678");
  EXPECT_TRUE(crew.isGroup());
  ASSERT_EQ(crew.members().size(), 2u);
  EXPECT_EQ(crew.members()[0]->identifier(), "+4915112345678");
  EXPECT_EQ(crew.members()[1]->identifier(), "+49151");
  // Only the last file counts; the created notice stays ahead of its same-date message.
  std::vector<std::string> texts;
  for (const MessagePtr& message : crew.contents())
    texts.push_back(message->text() + "|" + message->from());
  EXPECT_EQ(texts,
            (std::vector<std::string>{"created|", "same date|", "from Ann|Ann", "stranger|+4999"}));
  // The deleted message's picture is still collected.
  EXPECT_EQ(parser->attachments().size(), 1u);

  auto withDeleted = parse(all, /*parseDeleted=*/true);
  EXPECT_EQ(sessionAt(*withDeleted, 0).contents().size(), 5u);
}

TEST(WhatsappParserTest, BusinessKeyAndHostileInput) {
  TempDir dir;
  LogCapture logs;
  const std::string good = session(dir, R"("jid": "1@x")", {R"({"type": 0, "text": "ok"})"});
  std::string broken = dir.write("broken.json", "{\"messages\": [");
  std::string notObject = dir.write("list.json", "[1, 2]");
  const std::string bad = R"({"jid": "2@x", "msg_file_list": [")" + broken + R"(", ")" + dir.str() +
                          R"(/absent.json", ")" + notObject + R"(", 5]})";
  auto business = parse(good + ", " + bad, true, "whatsappBusiness_chatsessions");
  ASSERT_EQ(business->items().size(), 1u);
  EXPECT_EQ(sessionAt(*business, 0).contents().at(0)->text(), "ok");
  EXPECT_EQ(logs.system().lines().size(), 1u);
  EXPECT_TRUE(logs.system().lines().at(0).starts_with(">>> ERROR: "));

  // The regular key wins; null there means no conversations.
  EXPECT_TRUE(
      IOSWhatsappParser::parserWithJSONData(
          R"({"whatsapp_chatsessions": null, "whatsappBusiness_chatsessions": [)" + good + "]}",
          true, false)
          ->items()
          .empty());
  for (std::string_view text : {"[]", "not json", "{}"}) {
    EXPECT_TRUE(IOSWhatsappParser::parserWithJSONData(text, true, false)->items().empty());
  }
}

}  // namespace
}  // namespace dataparser
