#include "dataparser/model/message_files.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::LogCapture;
using testing::TempDir;

// A chat app's message: reads its text, direction and date from the record.
class ChatMessage : public IOSBaseSingleItem {
 public:
  void initWithDictionary(const json::Value& dictionary) override {
    IOSBaseSingleItem::initWithDictionary(dictionary);
    setText(rawData()["text"].stringCopy());
    setIsReceived(rawData()["is_received"].integer() == 1);
    if (rawData()["date"].present()) {
      setSendDate(dateWithSecondsSince1970(rawData()["date"].number()));
    }
  }
  std::string_view className() const override { return "ChatMessage"; }
};

std::vector<std::string> textsOf(const MessageList& messages) {
  std::vector<std::string> texts;
  for (const MessagePtr& message : messages)
    texts.push_back(message->text());
  return texts;
}

std::shared_ptr<IOSBaseSessionItem> newSession() {
  return IOSBaseItem::itemWithDictionary<IOSBaseSessionItem>(json::Value());
}

// Builds the JSON list of paths that a conversation record carries.
std::string fileListJson(const std::vector<std::string>& paths, std::string_view extra = {}) {
  std::string text = "[";
  for (const std::string& path : paths)
    text += (text.size() > 1 ? ",\"" : "\"") + path + "\"";
  if (!extra.empty()) text += std::string(text.size() > 1 ? "," : "") + std::string(extra);
  return text + "]";
}

MessageFileRules chatRules(bool parseDeleted = true) {
  MessageFileRules rules;
  rules.factory = messageFactory<ChatMessage>();
  rules.parseDeleted = parseDeleted;
  return rules;
}

TEST(MessageFilesTest, LastFileWithMessagesWinsAndBadFilesAreSkipped) {
  TempDir dir;
  LogCapture logs;
  const std::string first =
      dir.write("first.json", R"({"messages":[{"text":"a1","date":20},{"text":"a2","date":10}]})");
  const std::string second = dir.write("second.json", R"({"messages":[
      {"text":"b1","date":5},{"text":"b2","date":5},{"text":"undated"},{"text":"b0","date":1},
      {"text":"b3","date":5}]})");
  const std::string broken = dir.write("broken.json", "{\"messages\": [");
  const std::string noList = dir.write("nolist.json", R"({"other":[{"text":"x"}]})");
  const std::string topList = dir.write("toplist.json", R"([{"text":"x"}])");
  const std::string missing = dir.str() + "/missing.json";
  std::filesystem::create_directories(dir.path() / "folder.json");

  json::Value list = json::parse(fileListJson(
      {first, missing, second, broken, noList, topList, dir.str() + "/folder.json"}, "42, null"));
  auto session = newSession();
  readMessageFiles(*session, list.view(), chatRules());

  // Only the second file's list survives, sorted by date alone: the undated message first,
  // equal dates in file order.
  EXPECT_EQ(textsOf(session->contents()),
            (std::vector<std::string>{"undated", "b0", "b1", "b2", "b3"}));
  EXPECT_EQ(session->contents().front()->className(), "ChatMessage");
  // Every message shares the document of its file; nothing was copied.
  for (const MessagePtr& message : session->contents()) {
    EXPECT_EQ(message->rawData().document(), session->contents().front()->rawData().document());
  }

  // One decoding error, in the system log, for the broken file only.
  std::size_t errors = 0;
  for (const std::string& line : logs.system().lines()) {
    if (line.starts_with(">>> ERROR: ")) ++errors;
  }
  EXPECT_EQ(errors, 1u);
  EXPECT_TRUE(logs.run().lines().empty());

  // The order of the list decides: with the files swapped the first file wins.
  json::Value swapped = json::parse(fileListJson({second, first}));
  auto other = newSession();
  readMessageFiles(*other, swapped.view(), chatRules());
  EXPECT_EQ(textsOf(other->contents()), (std::vector<std::string>{"a2", "a1"}));
}

TEST(MessageFilesTest, BadTextInOneMessageCostsOnlyThatText) {
  struct Case {
    const char* name;
    std::string text;  // the second message's text as it stands in the file
    std::string read;  // what that message reads afterwards
    bool mended = true;
  };
  const Case cases[] = {
      {"stray byte",
       "a\xff"
       "b",
       "a\xef\xbf\xbd"
       "b"},
      {"truncated sequence", "x\xc3", "x\xef\xbf\xbd"},
      {"lone high surrogate", "\\ud800!", "\xef\xbf\xbd!"},
      {"lone low surrogate", "\\udc00", "\xef\xbf\xbd"},
      {"high surrogate before a plain escape", "\\ud800\\u0041",
       "\xef\xbf\xbd"
       "A"},
      {"a pair stays", "\\ud83d\\ude00", "\xf0\x9f\x98\x80", false},
      {"an escaped backslash is no escape", "\\\\ud800", "\\ud800", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    LogCapture logs;
    const std::string file =
        dir.write("chat.json", R"({"messages":[{"text":"first","date":1},{"text":")" + c.text +
                                   R"(","date":2},{"text":"last","date":3}]})");
    json::Value list = json::parse(fileListJson({file}));
    auto session = newSession();
    readMessageFiles(*session, list.view(), chatRules());
    EXPECT_EQ(textsOf(session->contents()), (std::vector<std::string>{"first", c.read, "last"}));
    // The file is named once when it had to be mended.
    EXPECT_EQ(logs.run().lines().size(), c.mended ? 1u : 0u);
    if (c.mended && !logs.run().lines().empty()) {
      EXPECT_TRUE(logs.run().lines().front().ends_with(file));
    }
  }
}

TEST(MessageFilesTest, FilesWithoutMessagesLeaveContentsAlone) {
  TempDir dir;
  LogCapture logs;
  const std::string broken = dir.write("broken.json", "not json");
  const std::string noList = dir.write("nolist.json", R"({"messages":null})");
  auto session = newSession();
  session->setContents({std::make_shared<IOSBaseSingleItem>()});

  const std::string lists[] = {
      fileListJson({broken, noList, dir.str() + "/missing.json"}),
      R"({"path":"x"})",
      "[]",
  };
  for (const std::string& text : lists) {
    json::Value list = json::parse(text);
    readMessageFiles(*session, list.view(), chatRules());
    EXPECT_EQ(session->contents().size(), 1u) << text;
  }
  readMessageFiles(*session, json::View(), chatRules());
  EXPECT_EQ(session->contents().size(), 1u);

  // An empty message list does count: it empties the conversation.
  const std::string empty = dir.write("empty.json", R"({"messages":[]})");
  json::Value list = json::parse(fileListJson({empty}));
  readMessageFiles(*session, list.view(), chatRules());
  EXPECT_TRUE(session->contents().empty());
}

TEST(MessageFilesTest, DeletionPictureAndKeepRule) {
  TempDir dir;
  const std::string file = dir.write("chat.json", R"({"messages":[
      {"text":"gone","is_received":1,"tag":"deleted","date":1},
      {"text":"hello","is_received":1,"date":2},
      {"text":"","is_received":1,"date":3},
      "not an object", 7, null,
      {"text":"reply","date":4}]})");
  json::Value list = json::parse(fileListJson({file}));
  auto picture = Image::imageWithContentsOfFile(testing::fixturePath("model/pixel.png"));
  ASSERT_NE(picture, nullptr);

  struct Case {
    bool parseDeleted;
    bool isGroup;
    std::vector<std::string> texts;
  };
  const Case cases[] = {
      {true, false, {"gone", "hello", "reply"}},
      {false, false, {"hello", "reply"}},
      {false, true, {"hello", "reply"}},
  };
  for (const Case& c : cases) {
    auto session = newSession();
    session->setIsGroup(c.isGroup);
    session->setImage(picture);
    MessageFileRules rules = chatRules(c.parseDeleted);
    std::vector<std::string> seen;
    // The keep rule sees the message after the deletion test and after the picture was given.
    rules.keep = keepRule<ChatMessage>([&](ChatMessage& message) {
      seen.push_back(message.text());
      const bool expectPicture = message.isReceived() && !c.isGroup;
      EXPECT_EQ(message.image() != nullptr, expectPicture) << message.text();
      return !message.text().empty();
    });
    // The record visitor sees every object, also those dropped afterwards.
    int records = 0;
    rules.eachRecord = [&records](json::View) { ++records; };
    readMessageFiles(*session, list.view(), rules);
    EXPECT_EQ(textsOf(session->contents()), c.texts);
    EXPECT_EQ(seen.size(), c.texts.size() + 1);  // the empty text was offered and dropped
    EXPECT_EQ(records, 4);
    for (const MessagePtr& message : session->contents()) {
      EXPECT_EQ(message->image(), message->isReceived() && !c.isGroup ? picture : nullptr);
    }
  }
}

TEST(MessageFilesTest, ListKeyFactoryAndLooseLists) {
  TempDir dir;
  const std::string content = dir.write("content.json", R"({"content":[{"type":1},{"type":0}]})");
  const std::string notList = dir.write("string.json", R"({"messages":"oops"})");

  // Another list key and the default factory.
  MessageFileRules rules;
  rules.listKey = "content";
  auto session = newSession();
  json::Value contentList = json::parse(fileListJson({content}));
  readMessageFiles(*session, contentList.view(), rules);
  ASSERT_EQ(session->contents().size(), 2u);
  EXPECT_EQ(session->contents()[0]->className(), "IOSBaseSingleItem");
  EXPECT_TRUE(session->contents()[0]->isAttachment());

  // A factory that refuses a record drops it.
  rules.factory = [](const json::Value& record) -> MessagePtr {
    if (record["type"].integer() == 1) return nullptr;
    return IOSBaseItem::itemWithDictionary<IOSBaseSingleItem>(record);
  };
  readMessageFiles(*session, contentList.view(), rules);
  EXPECT_EQ(session->contents().size(), 1u);

  // A "messages" value that is not a list: ignored when a list is required, an empty list
  // otherwise.
  json::Value stringList = json::parse(fileListJson({content, notList}));
  MessageFileRules strict;
  strict.listKey = "content";
  auto kept = newSession();
  readMessageFiles(*kept, stringList.view(), strict);
  EXPECT_EQ(kept->contents().size(), 2u);
  MessageFileRules loose;
  loose.listRequired = false;
  kept->setContents({std::make_shared<IOSBaseSingleItem>()});
  readMessageFiles(*kept, stringList.view(), loose);
  EXPECT_TRUE(kept->contents().empty());

  // The pieces on their own: forEachMessageFile hands over each decoded document.
  std::vector<std::size_t> sizes;
  forEachMessageFile(stringList.view(),
                     [&](const json::Value& document) { sizes.push_back(document.size()); });
  EXPECT_EQ(sizes, (std::vector<std::size_t>{1, 1}));
  EXPECT_FALSE(messagesOfDocument(json::parse("[1]"), *kept, loose));
}

TEST(MessageFilesTest, ReadAheadChangesNothingButWhereFilesDecode) {
  TempDir dir;
  const std::string a = dir.write("a.json", R"({"messages":[{"text":"a","date":1}]})");
  const std::string b = dir.write("b.json", R"({"messages":[{"text":"b","date":1}]})");
  const std::string broken = dir.write("broken.json", "{\"messages\": [");
  const std::string mended =
      dir.write("mended.json", "{\"messages\":[{\"text\":\"m\xff\",\"date\":1}]}");
  const std::string missing = dir.str() + "/missing.json";
  std::filesystem::create_directories(dir.path() / "folder.json");
  auto conversation = [](const std::string& list) { return "{\"msg_file_list\":" + list + "}"; };
  const json::Value sessions =
      json::parse("[" + conversation(fileListJson({a, missing})) + ",42," +
                  conversation(fileListJson({broken, mended, dir.str() + "/folder.json"})) + "," +
                  conversation(fileListJson({b, a, b}, "null")) + "," + conversation("\"x\"") +
                  "," + conversation("7") + "]");

  // Every conversation's texts, then the log lines in order.
  auto readAll = [&](std::size_t conversations) {
    LogCapture logs;
    std::vector<std::string> seen;
    for (json::View session : sessions.elements()) {
      if (!session.isObject() || conversations-- == 0) continue;
      auto item = newSession();
      readMessageFiles(*item, session["msg_file_list"], chatRules());
      for (const std::string& text : textsOf(item->contents()))
        seen.push_back(text);
      seen.push_back("|");
    }
    for (const std::string& line : logs.run().lines())
      seen.push_back("run: " + line);
    for (const std::string& line : logs.system().lines())
      seen.push_back("system: " + line);
    return seen;
  };
  const std::vector<std::string> serial = readAll(5);
  // a | m | b | | | and one mended line, one decoding error
  ASSERT_EQ(serial.size(), 10u);

  std::vector<std::string> announced;
  messageFilePaths(sessions.view(), announced);
  EXPECT_EQ(announced.size(), 9u);  // "x" and 7 name no file; 42 is no conversation
  std::vector<std::string> reversed(announced.rbegin(), announced.rend());
  const std::vector<std::string> orders[] = {announced, reversed, {}, {b, b, b, b}};
  for (const std::vector<std::string>& order : orders) {
    MessageFileReadAhead readAhead(order);
    EXPECT_EQ(readAll(5), serial) << order.size();
  }
  // A walk that stops early leaves the helper to be stopped with its files unread.
  {
    MessageFileReadAhead readAhead(announced);
    EXPECT_EQ(readAll(1).front(), "a");
  }
}

TEST(MessageFilesTest, AccountAliasesNumberInOrderOfFirstAppearance) {
  AccountAliases aliases;
  const std::pair<std::string, std::string> cases[] = {
      {"wxid_abc", "Account1"}, {"", ""}, {"u123", "Account2"}, {"wxid_abc", "Account1"},
      {"Account1", "Account3"},
  };
  for (const auto& [account, alias] : cases)
    EXPECT_EQ(aliases.aliasFor(account), alias) << account;
  EXPECT_EQ(aliases.size(), 3u);

  IOSAccountItem first;
  first.setAccount("u123");
  aliases.apply(first);
  EXPECT_EQ(first.account(), "Account2");
  IOSAccountItem empty;
  aliases.apply(empty);
  EXPECT_EQ(empty.account(), "");
  EXPECT_EQ(aliases.size(), 3u);
}

}  // namespace
}  // namespace dataparser
