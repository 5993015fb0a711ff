#include "dataparser/parsers/messaging/kik.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "dataparser/core/file_helper.h"
#include "dataparser/util/date_format.h"
#include "dataparser/util/text.h"
#include "tests/chat_app_support.h"

namespace dataparser {
namespace {

namespace fs = std::filesystem;
using testing::fixturePath;
using testing::jsonList;
using testing::TempDir;
using testing::textsOf;
using testing::writeMessageFile;

std::shared_ptr<IOSKikParser> feed(const std::vector<std::string>& pieces,
                                   bool deviceBackup = false, bool parseDeleted = false) {
  auto parser = std::make_shared<IOSKikParser>();
  parser->setParseDeleted(parseDeleted);
  parser->setDeviceBackup(deviceBackup);
  for (const std::string& piece : pieces)
    parser->addJSONData(piece);
  return parser;
}

std::vector<std::string> accountsOf(const IOSKikParser& parser) {
  std::vector<std::string> shown;
  for (const ItemPtr& item : parser.items())
    shown.push_back(static_cast<IOSKikAccountItem&>(*item).displayAccount());
  return shown;
}

TEST(KikParserTest, AccountsAliasesAndMediaFiles) {
  TempDir dir;
  const std::string chat = writeMessageFile(dir, "m.json", {R"({"type": 0, "text": "yo"})"});
  const std::string empty = writeMessageFile(dir, "e.json", {R"({"type": 0, "text": ""})"});
  const std::string media = dir.write("abc", "bytes");
  auto sessions = [&](const std::string& file) {
    return R"([{"session_id": "s", "msg_file_list": )" + jsonList({file}) + "}]";
  };
  const std::string piece = R"({"kik_accounts": [
      {"account_id": "k1", "kik_chat_sessions": )" +
                            sessions(chat) + R"(},
      {"account_id": "k1", "kik_chat_sessions": )" +
                            sessions(chat) + R"(},
      {"account_id": "", "kik_chat_sessions": )" +
                            sessions(chat) + R"(},
      {"account_id": "k2", "kik_chat_sessions": )" +
                            sessions(chat) + R"(},
      {"account_id": "k3", "kik_chat_sessions": )" +
                            sessions(empty) + R"(,
       "media_file_info": [{"data_file_path": ")" +
                            media + R"(", "data_suffix": ".jpg",
                            "plist_id": "abc"},
                           {"data_file_path": "/nowhere/x", "data_suffix": ".png",
                            "plist_id": "x"},
                           {"data_file_path": 5, "data_suffix": null, "plist_id": 7}, "str"]},
      {"account_id": "k4", "kik_chat_sessions": null}]})";

  // Aliases are numbered afresh in every piece; accounts without messages are not listed.
  auto parser = feed({piece, piece});
  EXPECT_EQ(accountsOf(*parser),
            (std::vector<std::string>{"Account1", "Account1", "", "Account2", "Account1",
                                      "Account1", "", "Account2"}));
  // ... but their media files are.
  ASSERT_EQ(parser->attachments().size(), 2u);
  auto& file = static_cast<IOSAttachmentItem&>(*parser->attachments()[0]);
  EXPECT_EQ(file.name(), "abc.jpg");
  EXPECT_EQ(file.localPath(), media);
  EXPECT_EQ(file.devicePath(), media + ".jpg");
  EXPECT_EQ(file.type(), kAttachmentPhoto);

  // On a device backup, files that are not there yet are listed too.
  auto device = feed({piece}, /*deviceBackup=*/true);
  ASSERT_EQ(device->attachments().size(), 3u);
  auto& later = static_cast<IOSAttachmentItem&>(*device->attachments()[1]);
  EXPECT_EQ(later.name(), "x.png");
  EXPECT_EQ(later.devicePath(), "/nowhere/x.png");
  EXPECT_EQ(static_cast<IOSAttachmentItem&>(*device->attachments()[2]).name(), "Unknown");
}

struct KeepRow {
  const char* record;
  bool kept;
};

TEST(KikParserTest, WhichMessagesAreKept) {
  const KeepRow rows[] = {
      {R"({"type": 0, "text": "words"})", true},
      {R"({"type": 0, "text": ""})", false},
      {R"({"type": 0})", false},
      {R"({"type": 13})", true},
      {R"({"type": 21})", true},
      {R"({"type": 1, "media_backup": null})", true},
      {R"({"type": 0, "text": "gone", "tag": "deleted"})", false},
  };
  TempDir dir;
  for (const KeepRow& row : rows) {
    SCOPED_TRACE(row.record);
    const std::string file = writeMessageFile(dir, "m.json", {row.record});
    auto session = std::make_shared<IOSKikSessionItem>();
    session->initWithDictionary(json::parse(R"({"msg_file_list": )" + jsonList({file}) + "}"),
                                /*parseDeleted=*/false);
    EXPECT_EQ(session->contents().size(), row.kept ? 1u : 0u);
  }
}

TEST(KikParserTest, MessageFieldsPicturesAndMembers) {
  TempDir dir;
  testing::LocalZone zone("XYZ-2");  // two hours east of UTC
  const std::string picture = fixturePath("images/picture.jpg");
  const std::string file = writeMessageFile(
      dir, "m.json",
      {R"({"type": 0, "text": "later", "send_date": 3600, "is_from_me": 0, "send_state": 1,
           "from_id": "bob"})",
       R"({"type": 1, "send_date": 60, "is_from_me": 1, "media_backup": "/k/media/abc"})"});
  auto session = std::make_shared<IOSKikSessionItem>();
  session->initWithDictionary(
      json::parse(R"({"session_id": "s1", "session_name": "Bob", "is_group": 0,
                      "thumb_file": ")" +
                  picture + R"(", "msg_file_list": )" + jsonList({file}) +
                  R"(, "members": [{"member_name": "Bob"}, {"member_name": null}, {}, 4]})"),
      false);
  EXPECT_EQ(session->identifier(), "s1");
  EXPECT_EQ(session->name(), "Bob");
  ASSERT_EQ(session->members().size(), 1u);
  EXPECT_EQ(session->members()[0]->name(), "Bob");
  ASSERT_NE(session->image(), nullptr);
  EXPECT_EQ(textsOf(*session), (std::vector<std::string>{"", "later"}));

  // Seconds since 2001, shown as local wall-clock time.
  const auto& text = *session->contents()[1];
  EXPECT_EQ(text.strSendDate(), "2001/01/01 03:00:00");
  EXPECT_EQ(text.from(), "bob");
  EXPECT_TRUE(text.isReceived());
  EXPECT_FALSE(text.isSendSuccess());
  EXPECT_EQ(text.image(), session->image());  // received, one-to-one

  const auto& media = static_cast<IOSKikSingleItem&>(*session->contents()[0]);
  EXPECT_EQ(media.attachmentName(), "abc");
  EXPECT_EQ(media.image(), nullptr);  // sent
  ASSERT_NE(media.attachment(), nullptr);
  EXPECT_EQ(media.attachment()->localPath(), "/k/media/abc");
  EXPECT_EQ(media.attachment()->thumbPath(), productDomainPath() + "/temp/abc");
  EXPECT_EQ(media.attachment()->flag(), 1);

  // Group messages get no picture.
  auto group = std::make_shared<IOSKikSessionItem>();
  group->initWithDictionary(json::parse(R"({"is_group": 1, "thumb_file": ")" + picture +
                                        R"(", "msg_file_list": )" + jsonList({file}) + "}"),
                            false);
  EXPECT_EQ(group->contents()[1]->image(), nullptr);
  EXPECT_TRUE(group->members().empty());
}

TEST(KikThumbParserTest, ThumbnailsStayInTheirFolderWhateverTheirNames) {
  TempDir dir;
  setApplicationSupportRoot(dir.str() + "/support");
  const std::string data = jk_base64EncodedString("PNGDATA");
  const char* ids[] = {"abc",    "../../escape",  "a/b",           "..", ".", "",
                       "😀 face", "/etc/absolute", "nul\\u0000byte"};
  std::string records;
  for (const char* id : ids)
    records +=
        R"({"plist_id": ")" + std::string(id) + R"(", "data_size": 7, "data": ")" + data + R"("},)";
  records += R"({"plist_id": "nodata", "data_size": 1}, {"plist_id": "bad", "data": "%%%"},
                {"plist_id": 12, "data": ")" +
             data + R"("}, 5, null)";
  auto parser = std::make_shared<IOSKikThumbParser>();
  parser->addJSONData("not JSON");
  parser->addJSONData(R"({"media_datas": null})");
  parser->addJSONData(R"({"media_datas": [)" + records + "]}");

  ASSERT_EQ(parser->items().size(), 12u);
  auto& first = static_cast<IOSKikThumbItem&>(*parser->items()[0]);
  EXPECT_EQ(first.name(), "abc");
  EXPECT_EQ(first.size(), 7);
  EXPECT_EQ(first.thumbData(), "PNGDATA");
  EXPECT_FALSE(static_cast<IOSKikThumbItem&>(*parser->items()[10]).thumbData());

  // Every file written is one name inside the thumbnail folder, and nothing else was written.
  const fs::path folder = IOSKikThumbParser::thumbnailFolder();
  EXPECT_EQ(testing::filesBelow(folder),
            (std::vector<std::string>{"_", "abc", "absolute", "b", "escape", "nulbyte", "😀 face"}));
  EXPECT_EQ(testing::filesBelow(dir.path()).size(), 7u);
  EXPECT_EQ(readFile((folder / "escape").string()), "PNGDATA");
  setApplicationSupportRoot("");
}

}  // namespace
}  // namespace dataparser
