#include "dataparser/parsers/messaging/android_whatsapp.h"

#include <gtest/gtest.h>

#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::TempDir;

// A backup at {dir}/backup/Databases/msgstore.db: its attachments are in {dir}/backup/Attachments.
struct AndroidBackup {
  TempDir dir;
  std::string database = dir.str() + "/backup/Databases/msgstore.db";
  std::string media(std::string_view name) {
    return dir.write("backup/Attachments/" + std::string(name), "bytes");
  }
  std::shared_ptr<AndroidWhatsAppParser> parse(std::string_view head, std::string_view messages,
                                               bool parseDeleted = true) {
    std::string file = dir.write("chat.json", "{\"messages\": [" + std::string(messages) + "]}");
    std::string block = "{\"chat_sessions\": [{" + std::string(head) + ", \"msg_file_list\": [\"" +
                        file + "\"]}, 4]}";
    return AndroidWhatsAppParser::parserWithJSONData(block, parseDeleted, false, database);
  }
};

const AndroidWhatsAppSessionItem& sessionAt(const IOSBaseParser& parser, std::size_t index) {
  return dynamic_cast<const AndroidWhatsAppSessionItem&>(*parser.items().at(index));
}

TEST(AndroidWhatsAppTest, MessagesNoticesAndAttachments) {
  AndroidBackup backup;
  std::string photo = backup.media("Media/IMG-1.jpg");
  auto parser = backup.parse(R"("session_type": 0, "jid": "4915112345678@s.whatsapp.net")", R"(
      {"universal_type": 0, "is_from_me": 0, "send_status": 0, "content": "hi",
       "send_date": "06 - 01 - 2024 09:00 : 05", "to_id": "+49170@s.whatsapp.net"},
      {"universal_type": 1, "is_from_me": 1, "send_status": 1, "media_path": "Media/IMG-1.jpg",
       "media_caption": "beach", "send_date": "06 - 01 - 2024 09:00 : 06",
       "sender_id": "49170@s.whatsapp.net"},
      {"universal_type": 2, "media_path": "Media/v.opus", "media_duration": 4,
       "send_date": "06 - 01 - 2024 09:00 : 07"},
      {"universal_type": 8, "media_path": "Media/b.vcf", "media_name": "Bob",
       "vCard_file": "Media/b.vcf", "send_date": "06 - 01 - 2024 09:00 : 08"},
      {"universal_type": 34, "media_path": "Media/map.jpg", "media_name": "Hall",
       "send_date": "06 - 01 - 2024 09:00 : 09"},
      {"universal_type": 21, "system_info": ["49151", "+49152"],
       "send_date": "06 - 01 - 2024 09:00 : 10"},
      {"universal_type": 27, "sender_id": "49153@s.whatsapp.net",
       "send_date": "06 - 01 - 2024 09:00 : 11"},
      {"universal_type": 30, "content": "see", "url_title": "T", "url_links": [3, "https://a"],
       "url_thumb_image_file": "Media/IMG-1.jpg", "send_date": "06 - 01 - 2024 09:00 : 12"},
      {"universal_type": 31, "content": "call", "send_date": "06 - 01 - 2024 09:00 : 13"},
      {"universal_type": 0, "content": "gone", "tag": "deleted",
       "send_date": "06 - 01 - 2024 09:00 : 14"})",
                             /*parseDeleted=*/false);
  ASSERT_EQ(parser->items().size(), 1u);
  const auto& chat = sessionAt(*parser, 0);
  EXPECT_EQ(chat.identifier(), "+4915112345678");
  struct Expected {
    std::string text, from, notice;
    std::uint64_t attachmentType;
  };
  const std::vector<Expected> table = {
      {"hi", "+4915112345678", "", 0},
      {"beach", "+49170", "", kAttachmentPhoto},
      {"v.opus", "+4915112345678", "", kAttachmentAudio},
      {"Bob", "+4915112345678", "", kAttachmentContactCard},
      {"Hall", "+4915112345678", "", kAttachmentLocation},
      {"+49151, +49152", "+49151, +49152", "AndroidWhatsApp_GroupNotice_AddedIn", 0},
      {"", "+49153", "", 0},
      {"see", "+4915112345678", "", kAttachmentLink},
      {"call", "+4915112345678", "", 0},
  };
  ASSERT_EQ(chat.contents().size(), table.size());
  for (std::size_t i = 0; i < table.size(); ++i) {
    SCOPED_TRACE(i);
    const IOSBaseSingleItem& message = *chat.contents()[i];
    EXPECT_EQ(message.text(), table[i].text);
    EXPECT_EQ(message.from(), table[i].from);
    EXPECT_EQ(message.strNotice(), table[i].notice);
    EXPECT_EQ(message.attachment() ? message.attachment()->type() : 0, table[i].attachmentType);
  }
  const IOSBaseSingleItem& hi = *chat.contents()[0];
  EXPECT_TRUE(hi.isReceived());
  EXPECT_TRUE(hi.isSendSuccess());
  EXPECT_EQ(hi.to(), "+49170");
  EXPECT_EQ(hi.strSendDate(), "2024/06/01 09:00:05");
  const IOSBaseSingleItem& photoMessage = *chat.contents()[1];
  EXPECT_FALSE(photoMessage.isReceived());
  EXPECT_FALSE(photoMessage.isSendSuccess());
  EXPECT_EQ(photoMessage.attachment()->localPath(), photo);
  EXPECT_FLOAT_EQ(chat.contents()[2]->attachment()->voice()->duration(), 4.0f);
  EXPECT_EQ(chat.contents()[3]->attachment()->contact()->name(), "Bob");
  EXPECT_EQ(chat.contents()[4]->attachment()->location()->localInfo(), "Hall");
  EXPECT_EQ(chat.contents()[7]->attachment()->link()->url(), "https://a");

  // Collected: the photo and the link whose preview is on disk; the other files are missing.
  EXPECT_EQ(parser->attachments().size(), 2u);
}

TEST(AndroidWhatsAppTest, GroupsBroadcastsAndBadInput) {
  AndroidBackup backup;
  auto group = backup.parse(R"("session_type": 1, "jid": "+49151-1600@g.us", "subject": "Crew",
                               "members": [{"member_jid": "49152@s.whatsapp.net"}, 1])",
                            R"({"universal_type": 0, "content": "x", "send_date": "bad"})");
  const auto& crew = sessionAt(*group, 0);
  EXPECT_EQ(crew.identifier(), "+49151-1600");
  EXPECT_EQ(crew.name(), "Crew");
  ASSERT_EQ(crew.members().size(), 1u);
  EXPECT_EQ(crew.members()[0]->identifier(), "+49152");
  EXPECT_EQ(crew.members()[0]->name(), "+49152");
  EXPECT_EQ(crew.contents()[0]->from(), "");  // a group has no single sender
  EXPECT_FALSE(crew.contents()[0]->sendDate());

  auto broadcast = backup.parse(R"("session_type": 2, "jid": "49-1@broadcast")",
                                R"({"universal_type": 0, "content": "offer"})");
  EXPECT_TRUE(sessionAt(*broadcast, 0).broadcast());
  EXPECT_EQ(sessionAt(*broadcast, 0).name(), "49-1");

  for (std::string_view text : {"{}", "[]", "nonsense", R"({"chat_sessions": 5})"}) {
    EXPECT_TRUE(AndroidWhatsAppParser::parserWithJSONData(text, true, false)->items().empty());
  }
  EXPECT_EQ(AndroidWhatsAppParser::attachmentsFolderFor("/a/b/Databases/msgstore.db"),
            "/a/b/Attachments");
}

}  // namespace
}  // namespace dataparser
