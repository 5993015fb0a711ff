#include "tools/dataparser/scan_command.h"

#include <gtest/gtest.h>

#include "dataparser/core/data_type.h"
#include "dataparser/model/attachment.h"
#include "dataparser/model/conversation.h"

namespace dataparser::cli {
namespace {

TEST(ScanSummaryTest, EveryAttachmentCountsOnceAndSharedListsOnce) {
  ItemPtr a = IOSAttachmentItem::item(), b = IOSAttachmentItem::item();
  ItemPtr c = IOSAttachmentItem::item(), d = IOSAttachmentItem::item();
  ItemPtr member = IOSBaseItem::itemWithDictionary<IOSMemberItem>(json::Value());
  // A second object for a's file, as a message's attachment and a list's entry may be.
  auto e = IOSAttachmentItem::item();
  std::static_pointer_cast<IOSAttachmentItem>(a)->setLocalPath("/backup/a.jpg");
  e->setLocalPath("/backup/a.jpg");
  // WhatsApp and WhatsApp Business report one list; the Kik lists share an attachment.
  const std::map<std::int64_t, ItemList> lists = {
      {kResultWhatsAppAttachments, {a, b}}, {kResultWhatsAppBusinessAttachments, {a, b}},
      {IOSDataTypeKikMedia, {c}},           {kResultKikAttachments, {c, d, d, e}},
      {IOSDataTypeContact, {member}},       {1, {}},
  };
  struct Row {
    std::int64_t type;
    const char* name;
    std::size_t items;
    std::size_t attachments;
    const char* sameAs;
  };
  const Row expected[] = {
      {IOSDataTypeKikMedia, "Kik media", 1, 1, ""},
      {1, "Type 1", 0, 0, ""},
      {IOSDataTypeContact, "Contacts", 1, 0, ""},
      {kResultWhatsAppAttachments, "WhatsApp attachments", 2, 2, ""},
      {kResultKikAttachments, "Kik attachments", 4, 3, ""},
      {kResultWhatsAppBusinessAttachments, "WhatsApp Business attachments", 2, 0,
       "WhatsApp attachments"},
      {0, "All attachments", 0, 4, ""},
  };
  const std::vector<SummaryRow> rows = summaryRows(lists);
  ASSERT_EQ(rows.size(), std::size(expected));
  for (std::size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(rows[i].name);
    EXPECT_EQ(rows[i].type, expected[i].type);
    EXPECT_EQ(rows[i].name, expected[i].name);
    EXPECT_EQ(rows[i].items, expected[i].items);
    EXPECT_EQ(rows[i].attachments, expected[i].attachments);
    EXPECT_EQ(rows[i].sameAs, expected[i].sameAs);
  }
}

}  // namespace
}  // namespace dataparser::cli
