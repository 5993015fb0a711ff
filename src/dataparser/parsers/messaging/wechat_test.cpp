#include "dataparser/parsers/messaging/wechat.h"

#include <gtest/gtest.h>

#include <fmt/core.h>

#include <algorithm>
#include <string>
#include <vector>

#include "dataparser/util/file_helper.h"
#include "tests/http_test_server.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::LogCapture;
using testing::TempDir;

const std::string kPhotoFixture = testing::fixturePath("images/picture.jpg");

// A temporary backup: message files, media files and the feed blocks naming them. The working
// root (where sticker pictures land) lives inside it too.
class WeChatTest : public ::testing::Test {
 protected:
  WeChatTest() { setApplicationSupportRoot(dir.str() + "/support"); }
  ~WeChatTest() override { setApplicationSupportRoot(""); }

  // A message file whose "content" holds `messages` (JSON text of the list's elements).
  std::string messageFile(std::string_view messages) {
    return dir.write(fmt::format("msg/{}.json", files++),
                     fmt::format(R"({{"content": [{}]}})", messages));
  }
  // A real picture at `relative`.
  std::string picture(std::string_view relative) {
    std::optional<std::string> bytes = readFile(kPhotoFixture);
    return dir.write(relative, bytes.value_or("not a picture"));
  }

  std::shared_ptr<IOSWeChatParser> feedOnce(const std::string& block, bool parseDeleted = true,
                                            bool deviceBackup = false) {
    return IOSWeChatParser::parserWithJSONData(block, parseDeleted, deviceBackup);
  }

  TempDir dir;
  int files = 0;
};

std::ptrdiff_t linesStartingWith(const MemoryLogSink& sink, std::string_view prefix) {
  std::vector<std::string> lines = sink.lines();
  return std::count_if(lines.begin(), lines.end(),
                       [prefix](const std::string& line) { return line.starts_with(prefix); });
}

// One account with the given chat conversations (JSON text of the list's elements).
std::string accountBlock(std::string_view chats, std::string_view extra = {}) {
  return fmt::format(R"({{"wechat_users": [{{"wx_id": "wxid_me", "wx_name": "Me", "phone": "",
                        "ChatSessions": [{}] {}}}]}})",
                     chats, extra);
}

std::shared_ptr<IOSWeChatAccountItem> accountAt(const IOSBaseParser& parser, std::size_t index) {
  return std::dynamic_pointer_cast<IOSWeChatAccountItem>(parser.items().at(index));
}

std::shared_ptr<IOSWeChatSingleItem> onlyMessage(const IOSBaseParser& parser) {
  const SessionList& sessions = accountAt(parser, 0)->items();
  if (sessions.size() != 1 || sessions[0]->contents().size() != 1) return nullptr;
  return std::dynamic_pointer_cast<IOSWeChatSingleItem>(sessions[0]->contents()[0]);
}

// The payload of an attachment in one line, for comparing against a table.
std::string payloadOf(const IOSAttachmentItem& a) {
  if (a.link()) {
    return fmt::format("link {}|{}|{}|{}", a.link()->title(), a.link()->summary(), a.link()->text(),
                       a.link()->url());
  }
  if (a.money()) {
    return fmt::format("money {}|{}|{}|{}", a.money()->text(), a.money()->money(),
                       a.money()->status(), a.money()->strStatus());
  }
  if (a.emoji()) return fmt::format("emoji {}|{}", a.emoji()->url(), a.thumbPath());
  if (a.callDuration()) return fmt::format("call {}", a.callDuration()->duration());
  if (a.location()) {
    return fmt::format("location {}|{}", a.location()->localInfo(), a.location()->domain());
  }
  if (a.contact()) return fmt::format("contact {}", a.contact()->name());
  if (a.voice()) return fmt::format("voice {}|{}", a.voice()->duration(), a.localPath());
  if (a.video()) {
    return fmt::format("video {}|{}|{}|{}", a.video()->duration(), a.localPath(), a.thumbPath(),
                       a.resolvedThumbPath());
  }
  return fmt::format("file {}|{}|{}|{}", a.name(), a.localPath(), a.devicePath(), a.mediaFlag());
}

TEST_F(WeChatTest, ContentTypesGiveKindsPayloadsAndSummaries) {
  const std::string voice = dir.write("media/v.aud", "voice");
  const std::string clip = dir.write("media/other/clip.mp4", "clip");
  const std::string clipThumb = picture("media/other/clip.jpg");
  const std::string photo = picture("media/p.jpg");
  struct Row {
    std::string record;  // members after "content_type"
    std::uint64_t type;  // 0: no attachment (text, notice) or not shown at all
    std::string payload;
    std::string recent;
  };
  const std::vector<Row> rows = {
      {R"(0, "text": "hi")", 0, "", "hi"},
      {R"(30, "text": "https://e.org", "title": "News", "summary": "S")", 5,
       "link News|S|https://e.org|https://e.org", "News"},
      {R"(12, "text": "rent", "money": "12.50", "wcpay_status": 2)", 13,
       "money rent|12.50|2|WeChatMoneyTransferReceived",
       "Social Message Attachment - [money transfer]"},
      {R"(12, "text": "x", "money": "1", "wcpay_status": 0)", 13,
       "money x|1|0|WeChatMoneyTransferUnaccalimed",
       "Social Message Attachment - [money transfer]"},
      {R"(11, "title": "Best wishes", "text": "t", "money": "8", "wcpay_status": 2)", 12,
       "money Best wishes||2|WeChatRedPacketReceived", "Social Message Attachment - [redpacket]"},
      {R"(11, "title": "w", "wcpay_status": 7)", 12, "money w||7|",
       "Social Message Attachment - [redpacket]"},
      {R"(17, "url": "")", 15, "emoji |", "Social Message Attachment - [emoji]"},
      {R"(9, "duration": "65")", 10, "call 65", "Social Message Attachment - [voice call]"},
      {R"(10)", 11, "call 0", "Social Message Attachment - [video call]"},
      {R"(7, "poiname": "Pier 39", "location_info": "Beach St")", 9, "location Pier 39|Beach St",
       "Social Message Attachment - [location]"},
      {R"(34, "poiname": "P")", 9, "location P|", "Social Message Attachment - [location]"},
      {R"(8, "contact_name": "Bob")", 8, "contact Bob",
       "Social Message Attachment - [contact card]"},
      {R"(2, "duration": "3.5", "media_backup": ")" + voice + R"(", "media_path": "d/v.aud")", 3,
       "voice 3.5|" + voice, "Social Message Attachment - [a audio]"},
      {R"(3, "duration": 4, "media_backup": "/no/clip.mp4", "other_media_backup": ")" + clip +
           R"(", "other_media_path": "d/clip.mp4", "thumb_backup": "/no/t.jpg",
           "other_thumb_backup": ")" +
           clipThumb + R"(", "other_thumb_path": "d/clip.jpg")",
       2, "video 4|" + clip + "|" + clipThumb + "|d/clip.jpg",
       "Social Message Attachment - [a video]"},
      {R"(4, "title": "report.pdf", "file_size": "2048", "media_type": 4,
           "media_backup": "/no/report.pdf", "media_path": "d/report.pdf")",
       4, "file report.pdf|||4", "Social Message Attachment - [a attachment]"},
      {R"(1, "media_backup": ")" + photo + R"(", "media_path": "d/p.jpg", "thumb_backup": "/no")",
       1, "file p.jpg|" + photo + "|d/p.jpg|-1", "Social Message Attachment - [a photo]"},
      {R"(49, "title": "clip.mov", "media_type": 3)", 2, "file clip.mov|||3",
       "Social Message Attachment - [a video]"},
  };
  LogCapture logs;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.record);
    std::string file = messageFile(R"({"content_type": )" + row.record +
                                   R"(, "data_time": "06-14-2024 09:12:05"})");
    auto parser = feedOnce(accountBlock(R"({"msg_file_list": [")" + file + R"("]})"));
    auto message = onlyMessage(*parser);
    ASSERT_TRUE(message);
    EXPECT_EQ(message->strSendDate(), "2024/06/14 09:12:05");
    const auto& session = accountAt(*parser, 0)->items()[0];
    EXPECT_EQ(session->recentMessage(), row.recent);
    if (row.type == 0) {
      EXPECT_FALSE(message->attachment());
      continue;
    }
    ASSERT_TRUE(message->attachment());
    EXPECT_TRUE(message->isAttachment());
    EXPECT_EQ(message->attachment()->type(), row.type);
    EXPECT_EQ(payloadOf(*message->attachment()), row.payload);
    if (row.type == 4) {
      EXPECT_EQ(message->attachment()->size(), 2048);
    }
  }
  EXPECT_EQ(logs.run().count("download Emoji Faild:"), 1u);

  // Mini-programs, articles and kind 14 are not shown; notices carry their text as the notice.
  for (const char* hidden : {"16", "18", "19"}) {
    std::string file = messageFile(std::string(R"({"content_type": )") + hidden + "}");
    auto parser = feedOnce(accountBlock(R"({"msg_file_list": [")" + file + R"("]})"));
    EXPECT_TRUE(accountAt(*parser, 0)->items()[0]->contents().empty()) << hidden;
  }
  std::string file = messageFile(R"({"content_type": 13, "text": "You recalled a message"})");
  auto notice = onlyMessage(*feedOnce(accountBlock(R"({"msg_file_list": [")" + file + R"("]})")));
  ASSERT_TRUE(notice);
  EXPECT_TRUE(notice->isNotice());
  EXPECT_FALSE(notice->isAttachment());
  EXPECT_EQ(notice->strNotice(), "You recalled a message");
  EXPECT_EQ(notice->text(), "");
}

TEST_F(WeChatTest, ConversationsGatherEveryFileAndFollowTheirKind) {
  const std::string head = picture("heads/ann.jpg");
  const std::string first = messageFile(R"(
      {"content_type": 0, "text": "third", "data_time": "06-14-2024 09:00:03", "is_from_other": 1},
      {"content_type": 0, "text": "gone", "data_time": "06-14-2024 09:00:04", "tag": "deleted"})");
  const std::string second = messageFile(R"(
      {"content_type": 0, "text": "first", "data_time": "06-14-2024 09:00:01", "send_state": 1,
       "from_id": "wxid_me"})");
  const std::string group = messageFile(R"(
      {"content_type": 0, "text": "hey", "data_time": "06-14-2024 09:00:01", "is_from_other": 1})");
  std::string chats = R"({"id": "wxid_ann", "name": "Ann", "is_group": 0, "head_backup": ")" +
                      head + R"(", "msg_file_list": [")" + first + R"(", "/no/such.json", ")" +
                      second + R"("], "contents": [{"content_type": 0, "text": "second",
                      "date_time": "06-14-2024 09:00:02", "is_from_other": 1}]},
      {"id": "123@chatroom", "name": "Trip", "is_group": 1, "head_backup": ")" +
                      head + R"(", "members": [{"id": "a", "name": "Ann"}, 5, {"id": "b"}],
       "msg_file_list": [")" +
                      group + R"("]})";
  for (bool parseDeleted : {false, true}) {
    SCOPED_TRACE(parseDeleted);
    auto parser = feedOnce(accountBlock(chats), parseDeleted);
    const SessionList& sessions = accountAt(*parser, 0)->items();
    ASSERT_EQ(sessions.size(), 2u);
    const auto& ann = *sessions[0];
    EXPECT_EQ(ann.identifier(), "wxid_ann");
    EXPECT_FALSE(ann.isGroup());
    std::vector<std::string> texts;
    for (const MessagePtr& message : ann.contents())
      texts.push_back(message->text());
    const std::vector<std::string> kept = {"first", "second", "third"};
    const std::vector<std::string> all = {"first", "second", "third", "gone"};
    EXPECT_EQ(texts, parseDeleted ? all : kept);
    EXPECT_EQ(ann.contents()[0]->from(), "wxid_me");
    EXPECT_FALSE(ann.contents()[0]->isSendSuccess());
    EXPECT_EQ(ann.contents()[1]->from(), "Ann");  // no sender: the conversation
    ASSERT_TRUE(ann.image());
    EXPECT_EQ(ann.contents()[1]->image(), ann.image());  // received in a one-to-one chat
    EXPECT_FALSE(ann.contents()[0]->image());
    EXPECT_EQ(ann.isDeleted(), parseDeleted ? -1 : 0);

    const auto& trip = *sessions[1];
    EXPECT_TRUE(trip.isGroup());
    ASSERT_EQ(trip.members().size(), 2u);
    EXPECT_EQ(trip.members()[0]->name(), "Ann");
    EXPECT_EQ(trip.members()[1]->identifier(), "b");
    ASSERT_EQ(trip.contents().size(), 1u);
    EXPECT_FALSE(trip.contents()[0]->image());  // not in a group
    EXPECT_EQ(trip.contents()[0]->from(), "");
  }
}

TEST_F(WeChatTest, FeedsAccumulateAccountsAliasesFriendsAndFiles) {
  const std::string head = picture("heads/a.jpg");
  const std::string photo = picture("media/p.jpg");
  const std::string thumb = picture("media/p_thumb.jpg");
  const std::string voice = dir.write("media/v.aud", "voice");
  const std::string friends = dir.write("friends.json", R"({"FriendList": [
      {"id": "wxid_bob", "name": "Bob", "alias_name": "bobby", "head_backup": ")" +
                                                            head + R"("},
      {"id": "wxid_cy", "alias_name": "cy"}, 7]})");
  const std::string messages = messageFile(R"(
      {"content_type": 1, "title": "p.jpg", "media_backup": ")" +
                                           photo + R"(",
       "media_path": "d/p.jpg", "thumb_backup": ")" +
                                           thumb + R"(", "tag": "deleted"},
      {"content_type": 3, "media_backup": "/no/clip.mp4", "thumb_backup": ")" +
                                           thumb + R"("},
      {"content_type": 34, "media_type": 2, "media_backup": ")" +
                                           voice + R"(",
       "media_path": "d/v.mp3"},
      {"content_type": 2, "media_backup": "/arrives/later.aud", "media_path": "d/later.mp3"},
      {"content_type": 0, "text": "words"})");
  const std::string first = R"({"wechat_users": [
      {"wx_id": "wxid_ann", "wx_name": "Ann", "phone": "123", "friend_list_file": ")" +
                            friends + R"(",
       "ChatSessions": [{"name": "Bob", "head_backup": ")" +
                            head + R"(", "head_img": "/var/h.jpg", "msg_file_list": [")" +
                            messages +
                            R"("]}],
       "SubscribeSessions": [{"name": "News", "head_backup": ")" +
                            head + R"(", "msg_file_list": [")" + messages + R"("]}]}]})";
  const std::string second = R"({"wechat_users": [
      {"wx_id": "wxid_zed", "user_md5": "ab12"}, {"wx_id": "wxid_ann", "wx_name": "Ann"},
      {"user_md5": "cd34"}]})";

  for (bool deviceBackup : {false, true}) {
    SCOPED_TRACE(deviceBackup);
    IOSWeChatParser parser;
    parser.setDeviceBackup(deviceBackup);
    parser.addJSONData(first);
    ASSERT_EQ(parser.items().size(), 1u);
    auto ann = accountAt(parser, 0);
    EXPECT_EQ(ann->account(), "Account1");
    EXPECT_EQ(ann->displayAccount(), "Ann-123");
    ASSERT_EQ(ann->items().size(), 2u);  // the chat, then the subscription
    EXPECT_EQ(ann->items()[1]->name(), "News");
    EXPECT_EQ(ann->items()[0]->contents().size(), 5u);
    ASSERT_EQ(ann->contacts().size(), 2u);
    auto bob = std::dynamic_pointer_cast<IOSWeChatContactItem>(ann->contacts()[0]);
    EXPECT_EQ(bob->identifier(), "wxid_bob");
    EXPECT_EQ(bob->aliasName(), "bobby");
    EXPECT_TRUE(bob->image());
    EXPECT_EQ(std::dynamic_pointer_cast<IOSWeChatContactItem>(ann->contacts()[1])->displayName(),
              "cy");

    // Files of the chat only (not of the subscription), deleted messages included: the
    // conversation picture, the photo (its thumbnail is not listed beside it), the thumbnail of a
    // missing video, the file of a location message, and with a device backup the file that is
    // not there yet.
    std::vector<std::string> listed;
    for (const ItemPtr& item : parser.attachments()) {
      auto a = std::dynamic_pointer_cast<IOSAttachmentItem>(item);
      listed.push_back(
          fmt::format("{} {} {} {}", a->type(), a->localPath(), a->thumbPath(), a->devicePath()));
    }
    std::vector<std::string> expected = {
        fmt::format("1 {}  /var/h.jpg", head), fmt::format("1 {}  d/p.jpg", photo),
        fmt::format("1  {} ", thumb), fmt::format("3 {}  d/v.mp3", voice)};
    if (deviceBackup) {
      // Files named but not there (yet) are listed too.
      expected.insert(expected.begin() + 2, "7 /no/clip.mp4  ");
      expected.push_back("3 /arrives/later.aud  d/later.mp3");
    }
    EXPECT_EQ(listed, expected);

    parser.addJSONData(second);
    ASSERT_EQ(parser.items().size(), 4u);
    EXPECT_EQ(accountAt(parser, 1)->account(), "Account2");
    EXPECT_EQ(accountAt(parser, 1)->displayAccount(), "Account2");
    EXPECT_EQ(accountAt(parser, 2)->account(), "Account1");  // the same identifier again
    EXPECT_EQ(accountAt(parser, 2)->displayAccount(), "Ann-Account1");
    EXPECT_EQ(accountAt(parser, 3)->displayAccount(), "cd34");
    EXPECT_TRUE(accountAt(parser, 3)->items().empty());
    EXPECT_EQ(parser.attachments().size(), expected.size());
    EXPECT_EQ(parser.accountAliases().size(), 2u);
    parser.addJSONData(std::nullopt);  // nothing new: nothing added
    EXPECT_EQ(parser.items().size(), 4u);
  }
}

TEST_F(WeChatTest, BadInputCostsOnlyItself) {
  LogCapture logs;
  const std::string broken = dir.write("msg/broken.json", "{\"content\": [");
  const std::string good = messageFile(R"(7, "text", null, [1],
      {"content_type": 12, "text": 5, "money": {"a": 1}, "wcpay_status": "2",
       "data_time": "06-14-2024 09:00:01"},
      {"content_type": 9, "duration": [1], "data_time": "06-14-2024 09:00:02"},
      {"content_type": "0", "text": "typed as text", "is_from_other": "1",
       "data_time": "06-14-2024 09:00:03"},
      {"content_type": 17, "url": "file:///etc/passwd", "data_time": "06-14-2024 09:00:04"},
      {"content_type": 0, "text": "fine", "data_time": "2024-06-14"})");
  const std::string emptyFriends = dir.write("friends-empty.json", "");
  const std::string badFriends = dir.write("friends-bad.json", "{\"FriendList\": ");
  const std::string noFriends = dir.write("friends-none.json", R"({"FriendList": []})");
  const std::string block = R"({"wechat_users": [3, "x", null,
      {"wx_id": 42, "wx_name": ["Ann"], "friend_list_file": ")" +
                            emptyFriends + R"(", "ChatSessions": [1, {"msg_file_list": [")" +
                            broken + R"(", ")" + dir.str() + R"(/msg", 9, ")" + good +
                            R"("], "members": "none", "contents": {"content_type": 0}}]},
      {"friend_list_file": ")" +
                            badFriends +
                            R"(", "ChatSessions": "none", "SubscribeSessions": [[]]},
      {"friend_list_file": ")" +
                            noFriends + R"("}]})";

  IOSWeChatParser parser;
  parser.addJSONData("not JSON at all");
  parser.addJSONData("[1, 2]");
  parser.addJSONData(R"({"wechat_users": {"wx_id": "a"}})");
  EXPECT_TRUE(parser.items().empty());
  parser.addJSONData(block);
  ASSERT_EQ(parser.items().size(), 3u);
  auto first = accountAt(parser, 0);
  EXPECT_EQ(first->account(), "");
  EXPECT_EQ(first->displayAccount(), "");
  ASSERT_EQ(first->items().size(), 1u);
  const MessageList& messages = first->items()[0]->contents();
  ASSERT_EQ(messages.size(), 5u);
  // Dates that do not parse leave the message undated (sorted first).
  EXPECT_EQ(messages[0]->text(), "fine");
  auto money = messages[1]->attachment();
  ASSERT_TRUE(money && money->money());
  EXPECT_EQ(payloadOf(*money), "money ||0|WeChatMoneyTransferUnaccalimed");
  EXPECT_EQ(payloadOf(*messages[2]->attachment()), "call 0");
  EXPECT_EQ(messages[3]->flag(), 0);  // a kind given as text counts as absent: text
  EXPECT_EQ(messages[3]->text(), "typed as text");
  EXPECT_FALSE(messages[3]->isReceived());
  EXPECT_EQ(payloadOf(*messages[4]->attachment()), "emoji file:///etc/passwd|");
  EXPECT_TRUE(first->contacts().empty());

  EXPECT_TRUE(logs.run().contains("download Emoji Faild:file:///etc/passwd"));
  EXPECT_EQ(logs.run().count(">>>WeChat Contacts Parser -- - - - "), 3u);
  EXPECT_EQ(logs.run().count("Data is Null or Empty!"), 1u);
  EXPECT_EQ(logs.run().count("FriendList is Null or Empty!"), 1u);
  // One broken message file, one broken friend list.
  EXPECT_EQ(linesStartingWith(logs.system(), ">>> ERROR: "), 1);
  EXPECT_EQ(linesStartingWith(logs.system(), "ERROR: "), 1);

  parser.stopParser();
  parser.addJSONData(block);
  EXPECT_EQ(parser.items().size(), 3u);  // a stopped parser takes nothing more
}

TEST_F(WeChatTest, StickersAreFetchedOnceIntoFreeNames) {
  testing::HttpTestServer server;
  std::optional<std::string> png = readFile(testing::fixturePath("images/picture.png"));
  server.addFile("smile.png", png.value_or("png"));
  const std::string folder = dir.str() + "/support/org.dataparser.tests/data/thumbnail";
  dir.write("support/org.dataparser.tests/data/thumbnail/weixinEmoji_0.png", "taken");
  const std::string smile = server.url("/files/smile.png");
  const std::string file = messageFile(R"(
      {"content_type": 17, "url": ")" + smile +
                                       R"(", "data_time": "06-14-2024 09:00:01"},
      {"content_type": 17, "url": ")" + smile +
                                       R"(", "data_time": "06-14-2024 09:00:02"},
      {"content_type": 17, "url": ")" + server.url("/files/gone.png") +
                                       R"(", "data_time": "06-14-2024 09:00:03"})");
  LogCapture logs;
  auto parser = feedOnce(accountBlock(R"({"msg_file_list": [")" + file + R"("]})"));
  const MessageList& messages = accountAt(*parser, 0)->items()[0]->contents();
  ASSERT_EQ(messages.size(), 3u);
  const AttachmentPtr& first = messages[0]->attachment();
  EXPECT_EQ(first->thumbPath(), folder + "/weixinEmoji_1.png");
  EXPECT_EQ(first->name(), "weixinEmoji_1.png");
  EXPECT_EQ(readFile(first->thumbPath()), png);
  EXPECT_EQ(messages[1]->attachment()->thumbPath(), first->thumbPath());
  EXPECT_EQ(messages[2]->attachment()->thumbPath(), "");
  EXPECT_TRUE(logs.run().contains("download Emoji Faild:" + server.url("/files/gone.png")));
  EXPECT_EQ(server.requests().size(), 2u);  // one per address
}

}  // namespace
}  // namespace dataparser
