#include "dataparser/report/report_writer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "dataparser/parsers/messaging/sms.h"
#include "dataparser/util/image.h"
#include "dataparser/util/json.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Every file below `root`, relative to it.
std::set<std::string> filesBelow(const fs::path& root) {
  std::set<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (entry.is_regular_file()) files.insert(fs::relative(entry.path(), root).string());
  }
  return files;
}

// One conversation of four messages (a hostile text, the same picture under a hostile name
// twice) parsed by the SMS parser, reported as a scan would.
struct ReportFixture {
  TempDir dir;
  std::map<IOSDataType, ItemList> lists;
  std::string picture;

  ReportFixture() {
    picture = (dir.path() / "in" / "..evil name?.jpg").string();
    fs::create_directories(dir.path() / "in");
    fs::copy_file(testing::fixturePath("../../samples/sms-demo/files/Avatars/ann-thumb.jpg"),
                  picture);
    std::string chats = dir.write("in/chats.json", R"({"chat_sessions": [{"chat_id": 1,
        "chat_identifier": "+1555", "members": [{"phone_number": "+1555", "first": "Ann"}],
        "messages": [
      {"text": "<img src=x onerror=alert(1)></script>", "send_date": "01-02-2020 03:04:05"},
      {"text": "", "type": 1, "media_path": "~/Library/SMS/Attachments/a.jpg",
       "media_backup_path": ")" + picture + R"(",
       "send_date": "01-02-2020 03:04:06"},
      {"text": "third", "is_from_me": 1, "send_date": "01-02-2020 03:04:07"},
      {"text": "again", "type": 1, "media_path": "~/Library/SMS/Attachments/b.jpg",
       "media_backup_path": ")" + picture + R"(",
       "send_date": "01-02-2020 03:04:08"}]}]})");
    auto parser =
        IOSSMSParser::parserWithJSONData("{\"sms_file_path\": [\"" + chats + "\"]}", true, false);
    lists[IOSDataTypeSMS] = parser->items();
    lists[kResultSMSAttachments] = parser->attachments();
    lists[IOSDataTypeContact] = {};  // an empty list is not shown
  }

  std::string write(ReportOptions options, bool expectOk = true) {
    std::string error;
    EXPECT_EQ(writeReport(lists, 1, options, &error), expectOk) << error;
    return error;
  }
};

TEST(ReportWriterTest, WritesPagedDataLinksAndThumbnails) {
  ReportFixture fixture;
  const fs::path out = fixture.dir.path() / "report";
  ReportOptions options;
  options.outDir = out.string();
  options.pageSize = 2;
  fixture.write(options);

  // Two attachments of one picture file: one thumbnail.
  EXPECT_EQ(filesBelow(out),
            (std::set<std::string>{"index.html", "report.js", "report.css", "data/index.js",
                                   "data/l524288-0.js", "data/m524288-0.js", "data/m524288-1.js",
                                   "data/l1048576-0.js", "media/t1.png"}));

  const std::string index = slurp(out / "data/index.js");
  EXPECT_NE(index.find(R"("code":524288,"name":"SMS")"), std::string::npos) << index;
  EXPECT_NE(index.find(R"("count":1,"pages":1,"kind":"chat")"), std::string::npos) << index;
  EXPECT_NE(index.find(R"("kind":"grid")"), std::string::npos) << index;
  EXPECT_EQ(index.find("\"code\":1,"), std::string::npos) << "empty lists are left out";

  const std::string list = slurp(out / "data/l524288-0.js");
  EXPECT_NE(list.find(R"("contents":{"at":0,"count":4})"), std::string::npos) << list;
  for (const char* leftOut : {"highlighed", "selectedContents", "filteredContents", "visible"}) {
    EXPECT_EQ(list.find(leftOut), std::string::npos) << leftOut;
  }
  // The hostile text stays a JSON string; the picture's path became a link and a thumbnail.
  // Fields without a value are left out, and messages name no class.
  const std::string page = slurp(out / "data/m524288-0.js");
  EXPECT_EQ(page.rfind("DP.onData(\"m524288-0\",[{\"text\"", 0), 0u) << page;
  for (const char* empty : {":null", ":false", ":\"\"", ":0,", ":[]", "IOSSMSSingleItem"}) {
    EXPECT_EQ(page.find(empty), std::string::npos) << empty << "\n" << page;
  }
  EXPECT_NE(slurp(out / "data/m524288-1.js").find(R"("thumb":"media/t1.png")"), std::string::npos);
  EXPECT_NE(page.find(R"("text":"<img src=x onerror=alert(1)></script>")"), std::string::npos);
  EXPECT_NE(page.find(R"("href":"file://)"), std::string::npos) << page;
  EXPECT_NE(page.find("..evil%20name%3F.jpg"), std::string::npos) << page;
  EXPECT_NE(page.find(R"("thumb":"media/t1.png")"), std::string::npos) << page;
  auto thumb = Image::imageWithContentsOfFile((out / "media/t1.png").string());
  ASSERT_TRUE(thumb);
  EXPECT_LE(thumb->height(), 200);
}

// The array that a data file hands to DP.onData.
json::Value dataOf(const fs::path& file) {
  const std::string text = slurp(file);
  const std::size_t open = text.find(',');
  const std::size_t close = text.rfind(')');
  if (open == std::string::npos || close == std::string::npos || close < open) return {};
  return json::parse(std::string_view(text).substr(open + 1, close - open - 1));
}

TEST(ReportWriterTest, TextsSurviveEscapingAndDatesAreWholeSeconds) {
  // Bytes to escape at every place of an eight-byte block, next to multi-byte characters.
  const std::vector<std::string> texts = {
      "plain text longer than eight bytes",
      "\"quoted\" and back\\slash",
      std::string("\x01\x1f\b\f\n\r\t\x7f", 8),
      "1234567\"",
      "12345678\\",
      "123456789\n",
      "0123456789abcdef\"0123456789abcd\x01z",
      "\xc3\xa9\xf0\x9f\x98\x80 \"x\" \xe2\x80\xa8 end",
      "\\\\\\\\\\\\\\\\\\",
  };
  TempDir dir;
  std::string messages;
  for (const std::string& text : texts) {
    if (!messages.empty()) messages += ",";
    messages +=
        R"({"text": ")" + json::escapedText(text) + R"(", "send_date": "01-02-2020 03:04:05"})";
  }
  const std::string chats =
      dir.write("chats.json",
                R"({"chat_sessions": [{"chat_id": 1, "chat_identifier": "+1555", "messages": [)" +
                    messages + "]}]}");
  auto parser =
      IOSSMSParser::parserWithJSONData("{\"sms_file_path\": [\"" + chats + "\"]}", true, false);
  ReportOptions options;
  options.outDir = (dir.path() / "report").string();
  std::string error;
  ASSERT_TRUE(writeReport({{IOSDataTypeSMS, parser->items()}}, 1, options, &error)) << error;

  const fs::path file = dir.path() / "report/data/m524288-0.js";
  json::Value written = dataOf(file);
  ASSERT_EQ(written.size(), texts.size()) << slurp(file);
  for (std::size_t i = 0; i < texts.size(); ++i) {
    EXPECT_EQ(written.at(i)["text"].string(), texts[i]) << i;
    EXPECT_TRUE(written.at(i)["sendDate"].isNumber());
  }
  const std::string page = slurp(file);
  EXPECT_EQ(page.find(".0,"), std::string::npos) << "whole seconds carry no fraction: " << page;
}

TEST(ReportWriterTest, AttachmentListsRepeatTheirMessagesAttachments) {
  // Lists are reported in either order: the attachment list's entries are exactly the
  // attachments its messages show, and the list still shows as a grid.
  ReportFixture fixture;
  for (IOSDataType attachments : {kResultSMSAttachments, IOSDataType{1}}) {
    std::map<IOSDataType, ItemList> lists = {{IOSDataTypeSMS, fixture.lists[IOSDataTypeSMS]},
                                             {attachments, fixture.lists[kResultSMSAttachments]}};
    const fs::path out = fixture.dir.path() / ("report" + std::to_string(attachments));
    ReportOptions options;
    options.outDir = out.string();
    std::string error;
    ASSERT_TRUE(writeReport(lists, 1, options, &error)) << error;

    std::vector<std::string> inMessages;
    json::Value messages = dataOf(out / "data/m524288-0.js");
    for (json::View message : messages.elements()) {
      if (message["attachment"].isObject())
        inMessages.push_back(message["attachment"].toJsonText());
    }
    std::vector<std::string> inList;
    json::Value list = dataOf(out / ("data/l" + std::to_string(attachments) + "-0.js"));
    for (json::View attachment : list.elements())
      inList.push_back(attachment.toJsonText());
    ASSERT_EQ(inMessages.size(), 2u);
    EXPECT_EQ(inList, inMessages);
    EXPECT_NE(inList[0].find(R"("thumb":{"thumb":"media/t1.png")"), std::string::npos) << inList[0];
    const std::string index = slurp(out / "data/index.js");
    EXPECT_NE(index.find(R"("code":)" + std::to_string(attachments)), std::string::npos);
    EXPECT_NE(index.find(R"("kind":"grid")"), std::string::npos) << index;
    EXPECT_LT(index.find(R"("code":)" + std::to_string(std::min(attachments, IOSDataTypeSMS))),
              index.find(R"("code":)" + std::to_string(std::max(attachments, IOSDataTypeSMS))))
        << "the index keeps the order of the codes";
  }
}

TEST(ReportWriterTest, CopiesStayInsideTheReport) {
  ReportFixture fixture;
  const fs::path out = fixture.dir.path() / "report";
  const std::set<std::string> before = filesBelow(fixture.dir.path());
  ReportOptions options;
  options.outDir = out.string();
  options.copyMedia = true;
  fixture.write(options);

  std::set<std::string> added;
  for (const std::string& file : filesBelow(fixture.dir.path())) {
    if (!before.count(file)) added.insert(file);
  }
  for (const std::string& file : added)
    EXPECT_EQ(file.rfind("report/", 0), 0u) << file;
  EXPECT_TRUE(added.count("report/media/files/1-..evil name?.jpg"));
  EXPECT_FALSE(added.count("report/media/files/2-..evil name?.jpg")) << "one copy per file";
  const std::string page = slurp(out / "data/m524288-0.js");
  EXPECT_NE(page.find(R"("href":"media/files/1-..evil%20name%3F.jpg")"), std::string::npos) << page;
  EXPECT_EQ(page.find("file://"), std::string::npos);
}

TEST(ReportWriterTest, OutputFolderRules) {
  ReportFixture fixture;
  const fs::path root = fixture.dir.path();
  fixture.dir.write("file", "x");
  fixture.dir.write("foreign/notes.txt", "keep me");
  fs::create_directories(root / "linked");
  fixture.dir.write("earlier/index.html", "old");
  fixture.dir.write("earlier/data/index.js", "old");
  fixture.dir.write("earlier/data/l1-0.js", "stale");
  fixture.dir.write("trap/index.html", "old");
  fixture.dir.write("trap/data/index.js", "old");
  fs::create_directory_symlink(root / "linked", root / "trap/media");

  struct Case {
    const char* out;
    bool ok;
    const char* error;
  };
  for (const Case& c :
       {Case{"file", false, "is not a folder"}, Case{"foreign", false, "holds no earlier report"},
        Case{"trap", false, "is a symbolic link"}, Case{"earlier", true, ""},
        Case{"new/deeper", true, ""}, Case{"", false, "no report folder"}}) {
    ReportOptions options;
    options.outDir = *c.out ? (root / c.out).string() : "";
    std::string error = fixture.write(options, c.ok);
    EXPECT_NE(error.find(c.error), std::string::npos) << c.out << ": " << error;
  }
  EXPECT_EQ(slurp(root / "foreign/notes.txt"), "keep me");
  EXPECT_FALSE(fs::exists(root / "earlier/data/l1-0.js"));
  EXPECT_TRUE(fs::exists(root / "earlier/data/l524288-0.js"));
  EXPECT_TRUE(fs::is_empty(root / "linked"));
}

}  // namespace
}  // namespace dataparser
