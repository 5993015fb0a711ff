#include "dataparser/parsers/media/other_attachment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dataparser/core/ios_data_parser.h"
#include "dataparser/model/attachment.h"
#include "tests/scan_support.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

using ::testing::ElementsAre;
using testing::LogCapture;
using testing::TempDir;

// {"media_file": [{"backup_path": ..., "relative_path": ...}, ...]} of (backup, relative) pairs.
std::string batch(const std::vector<std::pair<std::string, std::string>>& entries) {
  std::string text = "{\"media_file\": [";
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (i > 0) text += ", ";
    text += "{\"backup_path\": \"" + entries[i].first + "\", \"relative_path\": \"" +
            entries[i].second + "\"}";
  }
  return text + "]}";
}

std::vector<std::string> devicePaths(const ItemList& list) {
  std::vector<std::string> paths;
  for (const ItemPtr& item : list) {
    paths.push_back(std::dynamic_pointer_cast<IOSAttachmentItem>(item)->devicePath());
  }
  return paths;
}

struct ListCase {
  std::int64_t type;
  ItemList& (IOSOtherAttachmentParser::*list)();
};

TEST(OtherAttachmentParserTest, EachMediaTypeFillsItsOwnList) {
  TempDir dir;
  std::string file = dir.write("f/IMG_1.JPG", "x");
  const ListCase cases[] = {
      {-3, &IOSOtherAttachmentParser::noteAttachments},
      {-4, &IOSOtherAttachmentParser::whatsappAttachments},
      {-5, &IOSOtherAttachmentParser::kikAttachments},
      {-6, &IOSOtherAttachmentParser::lineAttachments},
      {-7, &IOSOtherAttachmentParser::viberAttachments},
      {-8, &IOSOtherAttachmentParser::wechatAttachments},
  };
  for (const ListCase& c : cases) {
    SCOPED_TRACE(c.type);
    IOSOtherAttachmentParser parser;
    parser.setAttachmentType(c.type);
    parser.addJSONData(batch({{file, "/var/mobile/IMG_1.JPG"}}));
    for (const ListCase& other : cases) {
      EXPECT_EQ((parser.*other.list)().size(), other.type == c.type ? 1u : 0u) << other.type;
    }
    auto attachment = std::dynamic_pointer_cast<IOSAttachmentItem>((parser.*c.list)().at(0));
    ASSERT_NE(attachment, nullptr);
    EXPECT_EQ(attachment->localPath(), file);
    EXPECT_EQ(attachment->devicePath(), "/var/mobile/IMG_1.JPG");
    EXPECT_EQ(attachment->name(), "IMG_1.JPG");
    EXPECT_EQ(attachment->type(), kAttachmentPhoto);
    EXPECT_EQ(attachment->size(), 1);
    EXPECT_FALSE(attachment->rawData().present());
  }
}

TEST(OtherAttachmentParserTest, EntriesAreKeptOnlyWithBothPathsAndAFileOnDisk) {
  TempDir dir;
  std::string file = dir.write("a.mp4", "x");
  std::string missing = (dir.path() / "gone.mp4").string();
  struct Case {
    const char* name;
    std::int64_t type;
    std::string block;
    std::size_t kept;
  };
  const Case cases[] = {
      {"kept", -4, batch({{file, "/a.mp4"}}), 1},
      {"type 0 chooses no list", 0, batch({{file, "/a.mp4"}}), 0},
      {"type -1 chooses no list", -1, batch({{file, "/a.mp4"}}), 0},
      {"type -9 chooses no list", -9, batch({{file, "/a.mp4"}}), 0},
      {"backup file missing", -4, batch({{missing, "/new.mp4"}}), 0},
      {"empty relative path", -4, batch({{file, ""}}), 0},
      {"empty backup path", -4, batch({{"", "/a.mp4"}}), 0},
      {"null media_file", -4, R"({"media_file": null})", 0},
      {"no media_file", -4, R"({"other": 1})", 0},
      {"not an object", -4, R"([1, 2])", 0},
      {"malformed JSON", -4, R"({"media_file": [)", 0},
      {"paths of the wrong type", -4,
       R"({"media_file": [{"backup_path": 5, "relative_path": "/a"}, 7, null, "x"]})", 0},
      {"folder instead of file", -4, batch({{dir.str(), "/dir"}}), 0},
      {"device instead of file", -4, batch({{"/dev/null", "/null"}}), 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    IOSOtherAttachmentParser parser;
    parser.setAttachmentType(c.type);
    parser.addJSONData(c.block);
    std::size_t total = 0;
    for (ItemList* list :
         {&parser.noteAttachments(), &parser.whatsappAttachments(), &parser.kikAttachments(),
          &parser.lineAttachments(), &parser.viberAttachments(), &parser.wechatAttachments()}) {
      total += list->size();
    }
    EXPECT_EQ(total, c.kept);
  }
  IOSOtherAttachmentParser parser;
  parser.addJSONData(std::nullopt);
  EXPECT_TRUE(parser.whatsappAttachments().empty());
}

TEST(OtherAttachmentParserTest, OnePhonePathGivesOneAttachmentAcrossBatches) {
  LogCapture logs;
  TempDir dir;
  std::string first = dir.write("1/voice.m4a", "a");
  std::string second = dir.write("2/voice.m4a", "bb");
  std::string other = dir.write("3/doc.pdf", "c");
  IOSOtherAttachmentParser parser;
  parser.setAttachmentType(-6);
  parser.addJSONData(batch({{first, "/Line/voice.m4a"}, {second, "/Line/voice.m4a"}}));
  parser.addJSONData(batch({{other, "/Line/doc.pdf"}, {first, "/Line/voice.m4a"}}));
  EXPECT_THAT(devicePaths(parser.lineAttachments()),
              ElementsAre("/Line/voice.m4a", "/Line/doc.pdf"));
  // The first extracted copy wins.
  EXPECT_EQ(std::dynamic_pointer_cast<IOSAttachmentItem>(parser.lineAttachments()[0])->localPath(),
            first);
  EXPECT_EQ(logs.run().count("same filePath:/Line/voice.m4a"), 2u);

  // Another source keeps its own list: the same phone path is new there.
  parser.setAttachmentType(-7);
  parser.addJSONData(batch({{first, "/Line/voice.m4a"}}));
  EXPECT_EQ(parser.viberAttachments().size(), 1u);
  EXPECT_EQ(parser.lineAttachments().size(), 2u);
}

TEST(OtherAttachmentParserTest, DuplicateTestComparesThePhonePathOnly) {
  LogCapture logs;
  AttachmentPtr a = IOSAttachmentItem::item();
  a->setLocalPath("/local/a");
  a->setDevicePath("/phone/a");
  ItemList list{a};
  EXPECT_FALSE(IOSOtherAttachmentParser::isExistLocalFile("/local/a", "/phone/a", {}));
  EXPECT_TRUE(IOSOtherAttachmentParser::isExistLocalFile("/elsewhere", "/phone/a", list));
  EXPECT_FALSE(IOSOtherAttachmentParser::isExistLocalFile("/local/a", "/phone/b", list));
  EXPECT_THAT(logs.run().lines(), ElementsAre("same filePath:/phone/a"));
}

// The coordinator feeds the media streams to this parser and merges each chat or note parser's
// attachments with the list of its source: the chat's own first, then those collected before,
// the same objects, and later media batches keep growing the merged list.
TEST(OtherAttachmentParserTest, ChatAndNoteParsersMergeWithTheirOwnList) {
  struct Case {
    IOSDataType chat;
    IOSDataType media;
    ItemList& (IOSOtherAttachmentLists::*list)();
  };
  const Case cases[] = {
      {IOSDataTypeNote, IOSDataTypeNoteMedia, &IOSOtherAttachmentLists::noteAttachments},
      {IOSDataTypeWhatsApp, IOSDataTypeWhatsAppMedia,
       &IOSOtherAttachmentLists::whatsappAttachments},
      {IOSDataTypeWhatsAppBusiness, IOSDataTypeWhatsAppMedia,
       &IOSOtherAttachmentLists::whatsappAttachments},
      {IOSDataTypeKik, IOSDataTypeKikOtherMedia, &IOSOtherAttachmentLists::kikAttachments},
      {IOSDataTypeLine, IOSDataTypeLineMedia, &IOSOtherAttachmentLists::lineAttachments},
      {IOSDataTypeViber, IOSDataTypeViberMedia, &IOSOtherAttachmentLists::viberAttachments},
      {IOSDataTypeWeChat, IOSDataTypeWeChatMedia, &IOSOtherAttachmentLists::wechatAttachments},
  };
  TempDir dir;
  std::string first = dir.write("m/first.jpg", "x");
  std::string later = dir.write("m/later.mov", "x");
  IOSDataParser& coordinator = IOSDataParser::shared();
  DispatchTable table = testing::testDispatchTable();
  table.setSlotMaker(ParserSlot::kOtherAttachment,
                     DispatchTable::standard().slotMaker(ParserSlot::kOtherAttachment));
  coordinator.setDispatchTable(table);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.chat);
    coordinator.setupParser();
    auto* lists =
        dynamic_cast<IOSOtherAttachmentParser*>(coordinator.otherAttachmentParser().get());
    ASSERT_NE(lists, nullptr);
    coordinator.analyzeData(batch({{first, "/phone/first.jpg"}}), c.media);
    ASSERT_EQ((lists->*c.list)().size(), 1u);
    ItemPtr collected = (lists->*c.list)()[0];
    coordinator.analyzeData(testing::parserJson({"chat"}, {"own"}), c.chat);
    ItemList& merged = (lists->*c.list)();
    ASSERT_EQ(merged.size(), 2u);
    EXPECT_EQ(merged[0], testing::namedItem("own"));
    EXPECT_EQ(merged[1], collected);
    coordinator.analyzeData(batch({{later, "/phone/later.mov"}, {first, "/phone/first.jpg"}}),
                            c.media);
    ASSERT_EQ(merged.size(), 3u);
    EXPECT_EQ(std::dynamic_pointer_cast<IOSAttachmentItem>(merged[2])->devicePath(),
              "/phone/later.mov");
    std::size_t total = 0;
    for (ItemList* list :
         {&lists->noteAttachments(), &lists->whatsappAttachments(), &lists->kikAttachments(),
          &lists->lineAttachments(), &lists->viberAttachments(), &lists->wechatAttachments()}) {
      total += list->size();
    }
    EXPECT_EQ(total, 3u);  // no other list was touched
  }
  coordinator.resetParser();
  coordinator.setDispatchTable(DispatchTable::standard());
}

}  // namespace
}  // namespace dataparser
