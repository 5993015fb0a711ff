#include "dataparser/model/conversation.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <utility>

#include "tests/test_support.h"

namespace dataparser {
namespace {

using testing::TempDir;

MessagePtr messageWithFlag(std::int32_t flag) {
  auto message = IOSBaseItem::itemWithDictionary<IOSBaseSingleItem>(json::Value());
  message->setFlag(flag);
  return message;
}

MessagePtr textMessage(std::string text) {
  auto message = messageWithFlag(0);
  message->setText(std::move(text));
  return message;
}

MessagePtr attachmentMessage(std::int32_t flag) {
  auto message = messageWithFlag(flag);
  auto attachment = IOSAttachmentItem::item();
  attachment->setFlag(flag);
  message->setAttachment(attachment);
  return message;
}

std::shared_ptr<IOSBaseSessionItem> sessionWith(MessageList contents) {
  auto session = IOSBaseItem::itemWithDictionary<IOSBaseSessionItem>(json::Value());
  session->setContents(std::move(contents));
  return session;
}

TEST(ConversationTest, MessageClassificationByFlag) {
  struct Case {
    std::int32_t flag;
    bool notice;
    std::uint64_t noticeType;
    bool attachment;
  };
  const Case cases[] = {
      {0, false, 0, false},  {1, false, 0, true},   {2, false, 0, true},   {3, false, 0, true},
      {12, false, 0, true},  {13, true, 0, false},  {14, false, 0, true},  {19, false, 0, true},
      {20, true, 20, false}, {25, true, 25, false}, {29, true, 29, false}, {30, false, 0, true},
      {31, false, 0, true},  {32, true, 32, false}, {33, false, 0, true},  {-1, false, 0, true},
  };
  for (const Case& c : cases) {
    auto message = messageWithFlag(c.flag);
    // The stored values are never consulted.
    message->setIsNotice(!c.notice);
    message->setIsAttachment(!c.attachment);
    message->setNoticeType(99);
    EXPECT_EQ(message->isNotice(), c.notice) << c.flag;
    EXPECT_EQ(message->noticeType(), c.noticeType) << c.flag;
    EXPECT_EQ(message->isAttachment(), c.attachment) << c.flag;
  }
}

TEST(ConversationTest, MessageReadsItsKindAndNoticeTextFromTheRecord) {
  json::Value doc = json::parse(
      R"([{"type":30},{"type":"30"},{},{"type":2.9},{"type":null},{"type":1e12},
          {"type":21,"text":"Ann left"},{"type":0,"text":"hello"},{"type":13}])");
  const std::int32_t flags[] = {30, 0, 0, 2, 0, std::numeric_limits<std::int32_t>::max()};
  for (std::size_t i = 0; i < std::size(flags); ++i) {
    auto message = IOSBaseItem::itemWithDictionary<IOSBaseSingleItem>(doc.sub(doc.at(i)));
    EXPECT_EQ(message->flag(), flags[i]) << i;
  }

  auto notice = IOSBaseItem::itemWithDictionary<IOSBaseSingleItem>(doc.sub(doc.at(6)));
  EXPECT_EQ(notice->strNotice(), "Ann left");
  notice->setFlag(0);
  EXPECT_EQ(notice->strNotice(), "Ann left");  // kept once set
  auto plain = IOSBaseItem::itemWithDictionary<IOSBaseSingleItem>(doc.sub(doc.at(7)));
  EXPECT_EQ(plain->strNotice(), "");  // not a notice
  auto textless = IOSBaseItem::itemWithDictionary<IOSBaseSingleItem>(doc.sub(doc.at(8)));
  EXPECT_TRUE(textless->isNotice());
  EXPECT_EQ(textless->strNotice(), "");
}

TEST(ConversationTest, TransientTextsAreReadButNotKept) {
  json::Value doc = json::parse(R"([{"type":21,"text":"Ann left"},{"type":21,"text":"Bo left"}])");
  auto ann = IOSBaseItem::itemWithDictionary<IOSBaseSingleItem>(doc.sub(doc.at(0)));
  auto bo = IOSBaseItem::itemWithDictionary<IOSBaseSingleItem>(doc.sub(doc.at(1)));
  auto given = textMessage("given");
  {
    const TransientTexts texts;
    EXPECT_EQ(ann->strNotice(), "Ann left");
    EXPECT_EQ(bo->strNotice(), "Bo left");
    EXPECT_EQ(ann->strNotice(), "Ann left");  // worked out again, not another message's
    given->setBelong("kept");                 // a setter keeps its value all the same
    EXPECT_EQ(given->text(), "given");
  }
  // Nothing worked out in the pass stayed behind; the record is read again, then kept.
  ann->setFlag(0);
  EXPECT_EQ(ann->strNotice(), "");
  EXPECT_EQ(bo->strNotice(), "Bo left");
  bo->setFlag(0);
  EXPECT_EQ(bo->strNotice(), "Bo left");
  EXPECT_EQ(given->belong(), "kept");
}

TEST(ConversationTest, DeletionStateIsComputedOnce) {
  json::Value doc = json::parse(R"([{"tag":"deleted"},{"tag":"kept"}])");
  auto deleted = [&] {
    return IOSBaseItem::itemWithDictionary<IOSBaseSingleItem>(doc.sub(doc.at(0)));
  };
  auto kept = [&] {
    return IOSBaseItem::itemWithDictionary<IOSBaseSingleItem>(doc.sub(doc.at(1)));
  };

  struct Case {
    MessageList contents;
    std::int64_t state;
  };
  const Case cases[] = {
      {{}, 0},
      {{kept(), kept()}, 0},
      {{deleted()}, 1},
      {{deleted(), deleted()}, 1},
      {{kept(), deleted(), kept()}, -1},
      {{deleted(), kept()}, -1},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(sessionWith(c.contents)->isDeleted(), c.state) << c.contents.size();
    // Seen as a plain item, the conversation still answers with its own rule.
    const auto session = sessionWith(c.contents);
    EXPECT_EQ(static_cast<const IOSBaseItem&>(*session).isDeleted(), c.state);
  }

  auto session = sessionWith({kept(), kept(), kept()});
  EXPECT_EQ(session->isDeleted(), 0);
  session->contents().push_back(deleted());
  EXPECT_EQ(session->isDeleted(), 0);  // not recomputed
  session->resetRecentFields();
  EXPECT_EQ(session->isDeleted(), -1);
  session->setIsDeleted(IOSBaseSessionItem::kDeletionNotComputed);
  session->setContents({deleted()});
  EXPECT_EQ(session->isDeleted(), 1);
  session->setTag("");  // the conversation's own "tag" plays no part
  const IOSBaseItem& asItem = *session;
  EXPECT_EQ(asItem.isDeleted(), 1);
}

TEST(ConversationTest, FilteredContentsIsACopyUntilSet) {
  auto first = textMessage("a");
  auto second = textMessage("b");
  auto session = sessionWith({first, second});
  MessageList one = session->filteredContents();
  MessageList two = session->filteredContents();
  EXPECT_EQ(one, session->contents());
  one.pop_back();
  EXPECT_EQ(two.size(), 2u);
  EXPECT_EQ(session->contents().size(), 2u);
  session->contents().push_back(textMessage("c"));
  EXPECT_EQ(session->filteredContents().size(), 3u);  // nothing was stored

  session->setFilteredContents(MessageList{second});
  EXPECT_EQ(session->filteredContents(), MessageList{second});
  session->setFilteredContents(MessageList{});
  EXPECT_TRUE(session->filteredContents().empty());  // a set empty filter stays empty
  session->setFilteredContents(std::nullopt);
  EXPECT_EQ(session->filteredContents().size(), 3u);
}

TEST(ConversationTest, RecentFieldsOfAnEmptyConversationAreRetried) {
  auto session = sessionWith({});
  EXPECT_EQ(session->isDeleted(), 0);
  EXPECT_FALSE(session->recentDate());
  EXPECT_EQ(session->strRecentDate(), "");
  EXPECT_EQ(session->recentMessage(), "");

  auto last = textMessage("first line\nsecond line\n");
  const Date when{std::chrono::seconds(1'700'000'000)};
  last->setSendDate(when);
  last->setStrSendDate("2023/11/14 22:13:20");
  session->setContents({textMessage("older"), last});
  EXPECT_EQ(session->recentDate(), when);
  EXPECT_EQ(session->strRecentDate(), "2023/11/14 22:13:20");
  EXPECT_EQ(session->recentMessage(), "first linesecond line");

  // Kept once set, even when contents change.
  session->setContents({textMessage("newer")});
  EXPECT_EQ(session->recentMessage(), "first linesecond line");
  EXPECT_EQ(session->recentDate(), when);
  session->resetRecentFields();
  EXPECT_EQ(session->recentMessage(), "newer");
  EXPECT_FALSE(session->recentDate());
}

TEST(ConversationTest, RecentMessageSummaries) {
  auto link = attachmentMessage(30);
  auto linkItem = std::make_shared<LinkItem>();
  linkItem->setTitle("Read this\nnow");
  link->attachment()->setLink(linkItem);

  auto notice = messageWithFlag(24);
  notice->setText("Bob joined\n");
  auto noAttachmentObject = messageWithFlag(1);
  auto linkWithoutPayload = attachmentMessage(30);
  // A payload message whose code the table does not know goes by its file name.
  auto pdf = attachmentMessage(33);
  pdf->attachment()->setFlag(25);
  pdf->attachment()->setDevicePath("/a/b.pdf");

  const std::pair<MessagePtr, std::string> cases[] = {
      {attachmentMessage(1), "Social Message Attachment - [a photo]"},
      {attachmentMessage(6), "Social Message Attachment - [a photo]"},
      {attachmentMessage(3), "Social Message Attachment - [a video]"},
      {attachmentMessage(2), "Social Message Attachment - [a audio]"},
      {attachmentMessage(4), "Social Message Attachment - [a attachment]"},
      {attachmentMessage(15), "Social Message Attachment - [a attachment]"},
      {pdf, "Social Message Attachment - [a attachment]"},
      {link, "Read this\nnow"},  // the title as it stands
      {linkWithoutPayload, ""},
      {attachmentMessage(8), "Social Message Attachment - [contact card]"},
      {attachmentMessage(34), "Social Message Attachment - [location]"},
      {attachmentMessage(9), "Social Message Attachment - [voice call]"},
      {attachmentMessage(10), "Social Message Attachment - [video call]"},
      {attachmentMessage(11), "Social Message Attachment - [redpacket]"},
      {attachmentMessage(12), "Social Message Attachment - [money transfer]"},
      {attachmentMessage(16), ""},  // kind 14 has no label
      {attachmentMessage(17), "Social Message Attachment - [emoji]"},
      {attachmentMessage(18), "Social Message Attachment - [samll app]"},
      {attachmentMessage(19), "Social Message Attachment - [subscribenews]"},
      {notice, "Bob joined"},
      {noAttachmentObject, ""},
  };
  for (const auto& [message, summary] : cases) {
    auto session = sessionWith({textMessage("earlier"), message});
    EXPECT_EQ(session->recentMessage(), summary) << "flag " << message->flag();
  }
  EXPECT_EQ(attachmentSummaryKey(6), "");
  EXPECT_EQ(attachmentSummaryKey(18), "");
}

TEST(ConversationTest, MemberPicturesFallBackAndRetry) {
  TempDir dir;
  const std::string picture = testing::fixturePath("model/pixel.png");
  IOSMemberItem member;
  member.setImagePath(dir.str() + "/missing.jpg");
  member.setThumbPath(picture);
  ASSERT_NE(member.image(), nullptr);
  EXPECT_NE(member.thumb(), nullptr);

  IOSMemberItem later;
  const std::string thumbFile = dir.str() + "/thumb.png";
  later.setThumbPath(thumbFile);
  EXPECT_EQ(later.thumb(), nullptr);
  EXPECT_EQ(later.image(), nullptr);
  dir.write("thumb.png", "not a picture");
  EXPECT_EQ(later.thumb(), nullptr);  // a file that does not decode leaves it empty
  std::filesystem::copy_file(picture, thumbFile, std::filesystem::copy_options::overwrite_existing);
  EXPECT_NE(later.thumb(), nullptr);
  EXPECT_NE(later.image(), nullptr);

  IOSMemberItem none;
  EXPECT_EQ(none.image(), nullptr);
  EXPECT_EQ(none.thumb(), nullptr);
}

// Records the field names and kinds that `describe` lists, one level deep.
class NameRecorder final : public FieldVisitor {
 public:
  std::vector<std::string> names;
  std::string deletedKind;

 protected:
  void onNull(std::string_view name) override { add(name); }
  void onString(std::string_view name, std::string_view) override { add(name); }
  void onInteger(std::string_view name, std::int64_t) override {
    add(name);
    if (depth_ == 0 && name == "isDeleted") deletedKind = "integer";
  }
  void onUnsigned(std::string_view name, std::uint64_t) override { add(name); }
  void onDouble(std::string_view name, double) override { add(name); }
  void onBool(std::string_view name, bool) override {
    add(name);
    if (depth_ == 0 && name == "isDeleted") deletedKind = "bool";
  }
  void onDate(std::string_view name, Date) override { add(name); }
  void onImage(std::string_view name, const Image&) override { add(name); }
  void onObjectBegin(std::string_view name, std::string_view) override {
    add(name);
    ++depth_;
  }
  void onObjectEnd() override { --depth_; }
  void onArrayBegin(std::string_view name) override {
    add(name);
    ++depth_;
  }
  void onArrayEnd() override { --depth_; }

 private:
  void add(std::string_view name) {
    if (depth_ == 0) names.emplace_back(name);
  }
  int depth_ = 0;
};

TEST(ConversationTest, DescribeListsEveryFieldOnce) {
  auto session = sessionWith({attachmentMessage(1), textMessage("x")});
  session->setMembers({std::make_shared<IOSMemberItem>()});
  NameRecorder recorder;
  session->describe(recorder);
  EXPECT_EQ(session->className(), "IOSBaseSessionItem");
  const std::vector<std::string> expected = {"tag",
                                             "isDeleted",
                                             "selected",
                                             "highlighed",
                                             "dragHighlighted",
                                             "visible",
                                             "identifier",
                                             "name",
                                             "isGroup",
                                             "broadcast",
                                             "members",
                                             "contents",
                                             "selectedContents",
                                             "filteredContents",
                                             "imagePath",
                                             "thumbPath",
                                             "image",
                                             "recentDate",
                                             "strRecentDate",
                                             "recentMessage"};
  EXPECT_EQ(recorder.names, expected);
  EXPECT_EQ(recorder.deletedKind, "integer");

  NameRecorder messageFields;
  session->contents().front()->describe(messageFields);
  EXPECT_EQ(messageFields.deletedKind, "bool");
  EXPECT_EQ(messageFields.names.size(), 6u + 16u);

  NameRecorder attachmentFields;
  session->contents().front()->attachment()->describe(attachmentFields);
  EXPECT_EQ(attachmentFields.names.size(), 6u + 25u);

  NameRecorder accountFields;
  IOSAccountItem account;
  account.setItems({session});
  account.describe(accountFields);
  EXPECT_EQ(accountFields.names.size(), 6u + 10u);
}

}  // namespace
}  // namespace dataparser
