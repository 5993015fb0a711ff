#include "dataparser/model/base_item.h"

#include <gtest/gtest.h>

namespace dataparser {
namespace {

TEST(BaseItemTest, TagAndDeletion) {
  json::Value doc =
      json::parse(R"([{"tag":"deleted"},{"tag":1},{"tag":null},{},{"tag":"Deleted"},[1,2],"s"])");
  struct Case {
    std::size_t index;
    bool hasRawData;
    const char* tag;
    bool deleted;
  };
  const Case cases[] = {
      {0, true, "deleted", true}, {1, true, "", false},        {2, true, "", false},
      {3, true, "", false},       {4, true, "Deleted", false}, {5, false, "", false},
  };
  for (const Case& c : cases) {
    auto item = IOSBaseItem::itemWithDictionary(doc.sub(doc.at(c.index)));
    EXPECT_EQ(item->rawData().isObject(), c.hasRawData) << c.index;
    EXPECT_EQ(item->tag(), c.tag) << c.index;
    EXPECT_EQ(item->isDeleted(), c.deleted) << c.index;
  }
  auto none = IOSBaseItem::itemWithDictionary(json::Value());
  EXPECT_FALSE(none->rawData().present());
  EXPECT_FALSE(none->isDeleted());
}

TEST(BaseItemTest, TagIsCachedOnFirstRead) {
  json::Value plain = json::parse(R"({"text":"x"})");
  json::Value deleted = json::parse(R"({"tag":"deleted"})");
  auto item = IOSBaseItem::itemWithDictionary(plain);
  EXPECT_EQ(item->tag(), "");
  item->setRawData(deleted);
  EXPECT_FALSE(item->isDeleted());  // the empty tag was cached
  item->setTag("deleted");
  EXPECT_TRUE(item->isDeleted());

  auto fresh = IOSBaseItem::itemWithDictionary(plain);
  fresh->setRawData(deleted);  // replaced before the first read
  EXPECT_TRUE(fresh->isDeleted());

  // Any tag text survives, including the switch between kept and shared ones.
  for (const char* text : {"hidden", "", "deleted", "deleted ", "hidden"}) {
    item->setTag(text);
    EXPECT_EQ(item->tag(), text);
    EXPECT_EQ(item->isDeleted(), std::string_view(text) == "deleted") << text;
  }
}

TEST(BaseItemTest, DisplayFlagsStoreWhatTheyAreGiven) {
  IOSBaseItem item;
  EXPECT_EQ(item.isSelected(), 0);
  EXPECT_FALSE(item.isHighlighed() || item.isDragHighlighted() || item.isVisible());
  item.setSelected(-7);
  item.setHighlighed(true);
  item.setVisible(true);
  EXPECT_EQ(item.isSelected(), -7);
  EXPECT_TRUE(item.isHighlighed());
  EXPECT_TRUE(item.isVisible());
  EXPECT_FALSE(item.isDragHighlighted());
}

}  // namespace
}  // namespace dataparser
