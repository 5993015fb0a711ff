#include "dataparser/core/dispatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "tests/scan_support.h"

namespace dataparser {
namespace {

using ::testing::ElementsAre;

TEST(DispatchTableTest, EveryDataCodeOfTheBridgeHasOneRow) {
  DispatchTable table = DispatchTable::standard();
  std::set<IOSDataType> seen;
  for (const DispatchRow& row : table.rows()) {
    EXPECT_TRUE(seen.insert(row.type).second) << "two rows for " << row.type;
  }
  for (const CallbackRoute& route : callbackRoutes()) {
    if (route.outcome != CallbackOutcome::kData) continue;
    EXPECT_NE(table.row(route.type), nullptr) << route.code;
  }
  EXPECT_EQ(seen.size(), 30u);
  EXPECT_EQ(table.row(kResultPhotoVideos), nullptr);
  EXPECT_EQ(table.row(0), nullptr);
}

TEST(DispatchTableTest, RowsFollowTheReportRules) {
  DispatchTable table = DispatchTable::standard();
  struct Expected {
    IOSDataType type;
    RowKind kind;
    IOSDataType extra;
    AttachmentListName list;
  };
  using L = AttachmentListName;
  const Expected cases[] = {
      {IOSDataTypeWeChatMedia, RowKind::kMedia, 0x80000000, L::kWechat},
      {IOSDataTypeNoteMedia, RowKind::kMedia, 0x40000, L::kNote},
      {IOSDataTypeOtherNote, RowKind::kMade, 0x40000, L::kNone},
      {IOSDataTypeKikMedia, RowKind::kFed, 0, L::kNone},
      {IOSDataTypePhoto, RowKind::kMade, 4, L::kNone},
      {IOSDataTypeCallHistory, RowKind::kMade, 0x1000, L::kNone},
      {IOSDataTypeReminder, RowKind::kFed, 0x200000000, L::kNone},
      {IOSDataTypeNote, RowKind::kMade, 0x40000, L::kNote},
      {IOSDataTypeSMS, RowKind::kMade, 0x100000, L::kNone},
      {IOSDataTypeViber, RowKind::kMade, 0x30000000, L::kViber},
      {IOSDataTypeWhatsApp, RowKind::kMade, 0x400000, L::kWhatsapp},
      {IOSDataTypeWhatsAppBusiness, RowKind::kMade, 0x800000000, L::kWhatsapp},
      {IOSDataTypeWeChat, RowKind::kFed, 0x80000000, L::kWechat},
  };
  for (const Expected& e : cases) {
    const DispatchRow* row = table.row(e.type);
    ASSERT_NE(row, nullptr) << e.type;
    EXPECT_EQ(row->kind, e.kind) << e.type;
    EXPECT_EQ(row->extraReport, e.extra) << e.type;
    EXPECT_EQ(row->attachments, e.list) << e.type;
  }
  // Every attachment code lies inside the attachment mask, every call code inside the call mask.
  for (const DispatchRow& row : table.rows()) {
    IOSDataType rest = row.extraReport & ~(kAttachmentReportMask | kCallReportMask);
    EXPECT_TRUE(rest == 0 || rest == kResultPhotoVideos) << row.type;
  }
  EXPECT_TRUE(table.row(IOSDataTypeKik)->feedsDeviceBackup);
  EXPECT_FALSE(table.row(IOSDataTypeReminder)->feedsDeviceBackup);
  EXPECT_EQ(table.row(IOSDataTypeSMS)->arity, FactoryArity::kThree);
  EXPECT_EQ(table.row(IOSDataTypeContact)->arity, FactoryArity::kTwo);
}

TEST(DispatchTableTest, MergeKeepsEachItemOnce) {
  ItemPtr a = testing::namedItem("ma"), b = testing::namedItem("mb"), c = testing::namedItem("mc");
  EXPECT_THAT(testing::itemNames(mergeAttachments({a, b, a}, {c, b})),
              ElementsAre("ma", "mb", "mc"));
  EXPECT_THAT(testing::itemNames(mergeAttachments({c, a}, {b})), ElementsAre("mc", "ma", "mb"));
  EXPECT_TRUE(mergeAttachments({}, {}).empty());
  // Equal content is not identity: two items of the same name from different sources stay two.
  ItemPtr twin = IOSBaseItem::itemWithDictionary(a->rawData());
  EXPECT_EQ(mergeAttachments({a}, {twin}).size(), 2u);
}

}  // namespace
}  // namespace dataparser
