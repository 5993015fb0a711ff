#include "dataparser/parsers/messaging/kik.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dataparser/util/text.h"
#include "tests/chat_app_support.h"

namespace dataparser {
namespace {

using testing::jsonList;
using testing::TempDir;
using testing::textsOf;
using testing::writeMessageFile;

std::shared_ptr<IOSKikParser> feed(const std::vector<std::string>& pieces, bool deviceBackup) {
  auto parser = std::make_shared<IOSKikParser>();
  parser->setParseDeleted(false);
  parser->setDeviceBackup(deviceBackup);
  for (const std::string& piece : pieces)
    parser->addJSONData(piece);
  return parser;
}

TEST(KikParserTest, AccountsAliasesAndMediaFiles) {
  TempDir dir;
  const std::string chat = writeMessageFile(dir, "m.json", {R"({"type": 0, "text": "yo"})"});
  const std::string silent = writeMessageFile(dir, "e.json", {R"({"type": 0, "text": ""})"});
  const std::string media = dir.write("abc", "bytes");
  auto account = [](const std::string& id, const std::string& file, const std::string& extra = "") {
    return R"({"account_id": ")" + id + R"(", "kik_chat_sessions": [{"msg_file_list": )" +
           jsonList({file}) + "}]" + extra + "}";
  };
  const std::string piece = R"({"kik_accounts": [)" + account("k1", chat) + "," +
                            account("k1", chat) + "," + account("", chat) + "," +
                            account("k2", chat) + "," +
                            account("k3", silent, R"(, "media_file_info": [
          {"data_file_path": ")" + media + R"(", "data_suffix": ".jpg", "plist_id": "abc"},
          {"data_file_path": "/nowhere/x", "data_suffix": ".png", "plist_id": "x"},
          {"data_file_path": 5, "data_suffix": null, "plist_id": 7}, "str"])") +
                            R"(, {"account_id": "k4", "kik_chat_sessions": null}, 3]})";

  // Aliases restart in every piece; accounts without messages are not listed...
  auto parser = feed({piece, piece}, false);
  std::vector<std::string> shown;
  for (const ItemPtr& item : parser->items())
    shown.push_back(static_cast<IOSKikAccountItem&>(*item).displayAccount());
  EXPECT_EQ(shown, (std::vector<std::string>{"Account1", "Account1", "", "Account2", "Account1",
                                             "Account1", "", "Account2"}));
  // ... but their media files are, when they were extracted.
  ASSERT_EQ(parser->attachments().size(), 2u);
  auto& file = static_cast<IOSAttachmentItem&>(*parser->attachments()[0]);
  EXPECT_EQ(file.name(), "abc.jpg");
  EXPECT_EQ(file.localPath(), media);
  EXPECT_EQ(file.devicePath(), media + ".jpg");
  EXPECT_EQ(file.type(), kAttachmentPhoto);

  // On a device backup every media record counts.
  auto device = feed({piece}, true);
  ASSERT_EQ(device->attachments().size(), 3u);
  EXPECT_EQ(static_cast<IOSAttachmentItem&>(*device->attachments()[1]).devicePath(),
            "/nowhere/x.png");
  EXPECT_EQ(static_cast<IOSAttachmentItem&>(*device->attachments()[2]).name(), "Unknown");
}

TEST(KikParserTest, WhichMessagesAreKeptAndWhatTheyShow) {
  struct Row {
    const char* record;
    bool kept;
  };
  const Row rows[] = {
      {R"({"type": 0, "text": "words"})", true},
      {R"({"type": 0, "text": ""})", false},
      {R"({"type": 0})", false},
      {R"({"type": 13})", true},
      {R"({"type": 21})", true},
      {R"({"type": 1, "media_backup": null})", true},
      {R"({"type": 0, "text": "x", "tag": "deleted"})", false},
  };
  TempDir dir;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.record);
    const std::string file = writeMessageFile(dir, "m.json", {row.record});
    auto session = std::make_shared<IOSKikSessionItem>();
    session->initWithDictionary(json::parse(R"({"msg_file_list": )" + jsonList({file}) + "}"),
                                /*parseDeleted=*/false);
    EXPECT_EQ(session->contents().size(), row.kept ? 1u : 0u);
  }

  testing::LocalZone zone("XYZ-2");  // two hours east of UTC
  const std::string file = writeMessageFile(
      dir, "m.json",
      {R"({"type": 0, "text": "later", "send_date": 3600, "is_from_me": 0})",
       R"({"type": 1, "send_date": 60, "is_from_me": 0, "media_backup": "/k/media/abc"})"});
  auto session = std::make_shared<IOSKikSessionItem>();
  session->initWithDictionary(
      json::parse(R"({"session_id": "s1", "is_group": 1, "msg_file_list": )" + jsonList({file}) +
                  R"(, "members": [{"member_name": "Bob"}, {"member_name": null}, {}, 4]})"),
      false);
  EXPECT_EQ(session->identifier(), "s1");
  ASSERT_EQ(session->members().size(), 1u);
  EXPECT_EQ(textsOf(*session), (std::vector<std::string>{"", "later"}));
  // Seconds since 2001, shown as local wall-clock time.
  EXPECT_EQ(session->contents()[1]->strSendDate(), "2001/01/01 03:00:00");
  const auto& media = static_cast<IOSKikSingleItem&>(*session->contents()[0]);
  EXPECT_EQ(media.attachmentName(), "abc");
  EXPECT_EQ(media.attachment()->localPath(), "/k/media/abc");
  EXPECT_EQ(media.attachment()->thumbPath(), productDomainPath() + "/temp/abc");
}

TEST(KikThumbParserTest, ThumbnailsStayInTheirFolderWhateverTheirNames) {
  TempDir dir;
  testing::WorkingRootIn root(dir);
  const std::string data = jk_base64EncodedString("PNGDATA");
  std::string records;
  for (const char* id :
       {"abc", "../../escape", "a/b", "..", ".", "", "😀 face", "/etc/absolute", "nul\\u0000byte"}) {
    records += fmt::format(R"({{"plist_id": "{}", "data_size": 7, "data": "{}"}},)", id, data);
  }
  auto parser = std::make_shared<IOSKikThumbParser>();
  parser->addJSONData("not JSON");
  parser->addJSONData(R"({"media_datas": null})");
  parser->addJSONData(R"({"media_datas": [)" + records + R"({"plist_id": "nodata"},
      {"plist_id": "bad", "data": "%%%"}, {"plist_id": 12, "data": ")" +
                      data + R"("}, 5, null]})");

  ASSERT_EQ(parser->items().size(), 12u);
  auto& first = static_cast<IOSKikThumbItem&>(*parser->items()[0]);
  EXPECT_EQ(first.name(), "abc");
  EXPECT_EQ(first.size(), 7);
  EXPECT_EQ(first.thumbData(), "PNGDATA");
  EXPECT_FALSE(static_cast<IOSKikThumbItem&>(*parser->items()[10]).thumbData());

  // Every file written is one name inside the thumbnail folder, and nothing else was written.
  EXPECT_EQ(testing::filesBelow(IOSKikThumbParser::thumbnailFolder()),
            (std::vector<std::string>{"_", "abc", "absolute", "b", "escape", "nulbyte", "😀 face"}));
  EXPECT_EQ(testing::filesBelow(dir.path()).size(), 7u);
}

}  // namespace
}  // namespace dataparser
