#include "dataparser/parsers/media/app_file.h"

#include <gtest/gtest.h>

#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::TempDir;

std::shared_ptr<IOSAppFileItem> itemAt(const IOSAppFileParser& parser, std::size_t index) {
  return std::dynamic_pointer_cast<IOSAppFileItem>(parser.items().at(index));
}

TEST(AppFileParserTest, RecordsBecomeItemsWithTheirApplicationName) {
  TempDir dir;
  std::string file = dir.write("b/doc.pdf", "12345");
  struct Case {
    const char* type;  // JSON text of "type", or nullptr for none
    const char* domain;
  };
  const Case cases[] = {
      {R"("AppDomain-com.example.Notes")", "Notes"},
      {R"("AppDomain-com.example.Notes.")", "Unknown"},
      {R"("Files")", "Files"},
      {R"("")", "Unknown"},
      {"null", ""},
      {nullptr, ""},
      {"7", "7"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type ? c.type : "(none)");
    std::string entry = R"({"backup_path": ")" + file + R"(", "relative_path": "/Docs/doc.pdf")";
    if (c.type) entry += std::string(R"(, "type": )") + c.type;
    IOSAppFileParser parser;
    parser.addJSONData(R"({"media_file": [)" + entry + "}]}");
    ASSERT_EQ(parser.items().size(), 1u);
    auto item = itemAt(parser, 0);
    EXPECT_EQ(item->appDomain(), c.domain);
    EXPECT_EQ(item->localPath(), file);
    EXPECT_EQ(item->devicePath(), "/Docs/doc.pdf");
    EXPECT_EQ(item->name(), "doc.pdf");
    EXPECT_EQ(item->extension(), "pdf");
    EXPECT_EQ(item->size(), 5);
    EXPECT_EQ(item->strSize(), "5 bytes");
    EXPECT_FALSE(item->rawData().present());
  }
}

TEST(AppFileParserTest, NothingIsFilteredAndBatchesAccumulate) {
  IOSAppFileParser parser;
  parser.addJSONData(R"({"media_file": [{"backup_path": "/no/such/file.mov",
      "relative_path": "/a/file.mov"}, 3, "x", {"tag": "deleted"}]})");
  parser.addJSONData(R"({"media_file": null})");
  parser.addJSONData(R"({"media_file": [)");  // malformed: adds nothing
  parser.addJSONData(R"({"media_file": [{"relative_path": "/b/song.mp3"}]})");
  ASSERT_EQ(parser.items().size(), 3u);
  EXPECT_EQ(itemAt(parser, 0)->name(), "file.mov");
  EXPECT_EQ(itemAt(parser, 0)->size(), 0);  // measured: no file there
  EXPECT_EQ(itemAt(parser, 1)->devicePath(), "");
  // No local path: never measured, shown as one byte.
  auto song = itemAt(parser, 2);
  EXPECT_EQ(song->size(), -1);
  EXPECT_EQ(song->strSize(), "1 byte");
  EXPECT_EQ(song->extension(), "mp3");
}

TEST(AppFileParserTest, AMeasuredSizeIsKept) {
  TempDir dir;
  std::string file = dir.write("grow.txt", "ab");
  IOSAppFileItem item;
  item.initWithDictionary({});
  item.setLocalPath(file);
  EXPECT_EQ(item.size(), 2);
  dir.write("grow.txt", "abcdef");
  EXPECT_EQ(item.size(), 2);
  item.setSize(-1);
  EXPECT_EQ(item.size(), 6);
}

}  // namespace
}  // namespace dataparser
