// Voice mail, voice memos, Safari bookmarks and history, books.
#include <gtest/gtest.h>

#include "dataparser/parsers/personal/book.h"
#include "dataparser/parsers/personal/safari.h"
#include "dataparser/parsers/personal/voice_mail.h"
#include "dataparser/parsers/personal/voice_memo.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::TempDir;

template <class T>
std::shared_ptr<T> at(const IOSBaseParser& parser, std::size_t index) {
  return std::static_pointer_cast<T>(parser.items().at(index));
}

// Texts of every item of a parser, read through `text`.
template <class T, class Text>
std::vector<std::string> texts(const IOSBaseParser& parser, Text text) {
  std::vector<std::string> out;
  for (const ItemPtr& item : parser.items())
    out.push_back(text(static_cast<const T&>(*item)));
  return out;
}

// Inputs that are not of the expected shape give no items, whichever parser reads them.
const char* const kBadRecords[] = {"[]", "{}", "null", "not json", "5", R"({"x": [1, 2]})"};

TEST(VoiceMailTest, EntriesWithTheirFilesAndTheirSenders) {
  TempDir dir;
  std::string audio = dir.write("vm/1.amr", "amr");
  std::string block = R"({"voicd_mail_items": [
      {"first": "Ann", "last": "Lee", "sender": "+1", "duration": 75.8,
       "datetime": "01-02-2020 03:04:05", "media_backup": ")" +
                      audio + R"("},
      {"sender": "+1555", "duration": -3, "media_backup": ")" +
                      audio + R"("},
      {"sender": "+2", "media_backup": ")" +
                      audio + R"(", "tag": "deleted"},
      {"sender": "+3", "media_backup": null}, {"sender": "+4", "media_backup": "/nowhere.amr"},
      {"sender": "+5"}, 7]})";
  auto all = IOSVoiceMailParser::parserWithJSONData(block, true);
  EXPECT_EQ(texts<IOSVoiceMailItem>(*all, [](auto& m) { return m.sender(); }),
            (std::vector<std::string>{"Ann Lee", "+1555", "+2"}));
  auto first = at<IOSVoiceMailItem>(*all, 0);
  EXPECT_EQ(first->strDuration(), "0:1:15");
  EXPECT_EQ(first->strDate(), "2020/01/02 03:04:05");
  EXPECT_EQ(first->localpath(), audio);
  auto second = at<IOSVoiceMailItem>(*all, 1);
  EXPECT_EQ(second->strDuration(), "00:00");
  EXPECT_FALSE(second->date());
  EXPECT_EQ(second->strDate(), "");
  EXPECT_EQ(IOSVoiceMailParser::parserWithJSONData(block, false)->items().size(), 2u);
  for (const char* bad : kBadRecords) {
    EXPECT_TRUE(IOSVoiceMailParser::parserWithJSONData(bad, true)->items().empty()) << bad;
  }
}

TEST(VoiceMemoTest, TitlesDatesAndAccumulation) {
  testing::LocalZone zone("Asia/Tokyo");  // UTC+9 all year
  TempDir dir;
  std::string a = dir.write("memo/a.m4a", "a");
  std::string b = dir.write("memo/b", "b");
  struct Case {
    const char* fields;
    const char* title;
    const char* extension;
  };
  const Case cases[] = {
      {R"("label": "Lecture", "media_path": "/var/mobile/Recordings/x.m4a")", "Lecture.m4a", "m4a"},
      {R"("label": "Song.mp3", "media_path": "/var/x.caf")", "Song.mp3", "caf"},
      {R"("label": "", "media_path": "/var/mobile/Recordings/20200102 030405")",
       "20200102 030405.m4a", "m4a"},
      {R"("label": null, "media_path": "/var/mobile/Recordings/memo.caf")", "memo.caf", "caf"},
      {R"("media_path": null)", ".m4a", "m4a"},
  };
  auto parser = std::make_shared<IOSVoiceMemoParser>();
  for (const Case& c : cases) {
    parser->addJSONData(std::string(R"({"voice_memos_items": [{)") + c.fields +
                        R"(, "media_backup": ")" + a + R"(", "tag": "deleted"}]})");
  }
  ASSERT_EQ(parser->items().size(), std::size(cases));  // pieces accumulate; deleted ones stay
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    auto memo = at<IOSVoiceMemoItem>(*parser, i);
    EXPECT_EQ(memo->title(), cases[i].title) << cases[i].fields;
    EXPECT_EQ(memo->extension(), cases[i].extension) << cases[i].fields;
  }
  parser->addJSONData(R"({"voice_memos_items": [
      {"media_backup": ")" +
                      b + R"(", "datetime": 1577934245, "duration": 3661.5},
      {"media_backup": "/nowhere.m4a"}, {"media_backup": null}, "x", 5,
      {"media_backup": ")" +
                      b + R"(", "datetime": "1577934245", "duration": -1}]})");
  ASSERT_EQ(parser->items().size(), std::size(cases) + 2);
  auto dated = at<IOSVoiceMemoItem>(*parser, std::size(cases));
  // 2020-01-02 03:04:05 UTC, shown nine hours later.
  EXPECT_EQ(dated->strDate(), "2020/01/02 12:04:05");
  EXPECT_EQ(dated->strDuration(), "1:1:1");
  EXPECT_EQ(dated->localPath(), b);
  auto undated = at<IOSVoiceMemoItem>(*parser, std::size(cases) + 1);
  EXPECT_EQ(undated->strDate(), "");
  EXPECT_EQ(undated->strDuration(), "00:00");
  for (const char* bad : kBadRecords)
    parser->addJSONData(bad);
  EXPECT_EQ(parser->items().size(), std::size(cases) + 2);
}

TEST(SafariTest, BookmarksSkipFoldersAndHistoryTakesObjects) {
  const std::string bookmarks = R"([
      {"utf_Title": "News", "Url": "https://news.example", "folder": "BookmarksBar",
       "folders": ["BookmarksBar", "Daily", 3], "type": 0},
      {"utf_Title": "", "Url": null, "folder": null, "folders": "x"},
      {"utf_Title": "A folder", "type": 1},
      {"utf_Title": "Deleted folder", "type": 1, "tag": "deleted"},
      {"utf_Title": "Gone", "tag": "deleted"}])";
  auto all = IOSSafariParser::parserWithJSONData(bookmarks, true);
  EXPECT_EQ(texts<IOSSafariItem>(*all, [](auto& s) { return s.title(); }),
            (std::vector<std::string>{"News", "Unknown", "Gone"}));
  auto news = at<IOSSafariItem>(*all, 0);
  EXPECT_EQ(news->url(), "https://news.example");
  EXPECT_EQ(news->location(), "BookmarksBar");
  EXPECT_EQ(news->locations(), (std::vector<std::string>{"BookmarksBar", "Daily", ""}));
  auto untitled = at<IOSSafariItem>(*all, 1);
  EXPECT_EQ(untitled->url() + untitled->location(), "");
  EXPECT_TRUE(untitled->locations().empty());
  EXPECT_EQ(IOSSafariParser::parserWithJSONData(bookmarks, false)->items().size(), 2u);

  // History text reaches the parser already cleaned of the engine's invalid escapes.
  const std::string history = R"([
      {"title": "Search", "Url": "https://s.example/?q=1", "domain": "s.example"},
      {"title": "", "Url": null, "domain": null}, "x", 4, null,
      {"title": "Old", "tag": "deleted"}])";
  auto visits = IOSSafariHistoryParser::parserWithJSONData(history, true);
  EXPECT_EQ(texts<IOSSafariHistoryItem>(*visits, [](auto& h) { return h.title(); }),
            (std::vector<std::string>{"Search", "Unknown", "Old"}));
  EXPECT_EQ(at<IOSSafariHistoryItem>(*visits, 0)->domain(), "s.example");
  EXPECT_EQ(at<IOSSafariHistoryItem>(*visits, 1)->url(), "");
  EXPECT_EQ(IOSSafariHistoryParser::parserWithJSONData(history, false)->items().size(), 2u);
  for (const char* bad : {"{}", "null", "not json", R"({"x": [1, 2]})"}) {
    EXPECT_TRUE(IOSSafariParser::parserWithJSONData(bad, true)->items().empty()) << bad;
    EXPECT_TRUE(IOSSafariHistoryParser::parserWithJSONData(bad, true)->items().empty()) << bad;
  }
}

TEST(BookTest, NamesAndSizes) {
  TempDir dir;
  std::string epub = dir.write("books/Moby.epub", std::string(1500, 'x'));
  dir.write("books/Bundle.epub/content.opf", std::string(200, 'y'));
  std::string block = R"({"book_items": [
      {"book_name": "Moby Dick", "book_file_path": ")" +
                      epub + R"("},
      {"book_name": "Bundle", "book_file_path": ")" +
                      dir.str() + R"(/books/Bundle.epub"},
      {"book_name": "Lost", "book_file_path": "/nowhere/Lost.pdf"},
      {"book_name": null, "book_file_path": null}, "x",
      {"book_name": "Gone", "book_file_path": "/nowhere/Gone.pdf", "tag": "deleted"}]})";
  auto all = IOSBookParser::parserWithJSONData(block, true);
  EXPECT_EQ(
      texts<IOSBookItem>(*all, [](auto& b) { return b.name(); }),
      (std::vector<std::string>{"Moby Dick.epub", "Bundle.epub", "Lost.pdf", "", "Gone.pdf"}));
  EXPECT_EQ(texts<IOSBookItem>(*all, [](auto& b) { return b.strSize(); }),
            (std::vector<std::string>{"2 KB", "200 bytes", "Zero KB", "Zero KB", "Zero KB"}));
  EXPECT_EQ(at<IOSBookItem>(*all, 0)->size(), 1500);
  EXPECT_EQ(at<IOSBookItem>(*all, 0)->extension(), "epub");
  EXPECT_EQ(IOSBookItem().strSize(), "Zero KB");
  IOSBookItem negative;
  negative.setSize(-1);
  EXPECT_EQ(negative.strSize(), "1 byte");
  EXPECT_EQ(IOSBookParser::parserWithJSONData(block, false)->items().size(), 4u);
  for (const char* bad : kBadRecords) {
    EXPECT_TRUE(IOSBookParser::parserWithJSONData(bad, true)->items().empty()) << bad;
  }
}

}  // namespace
}  // namespace dataparser
