#include "dataparser/model/base_parser.h"

#include <gtest/gtest.h>

#include "tests/test_support.h"

namespace dataparser {
namespace {

// A subclass with its own three-argument factory and no two-argument one.
class ThreeArgumentParser : public IOSBaseParser {
 public:
  using IOSBaseParser::parserWithJSONData;
  std::string_view className() const override { return "ThreeArgumentParser"; }
  static std::shared_ptr<ThreeArgumentParser> parserWithJSONData(JSONData data, bool parseDeleted,
                                                                 bool deviceBackup) {
    auto parser = makeWithJSONData<ThreeArgumentParser>(data, parseDeleted, deviceBackup);
    for (json::View record : parser->rawData().elements()) {
      parser->items().push_back(IOSBaseItem::itemWithDictionary(parser->rawData().sub(record)));
    }
    return parser;
  }
};

TEST(BaseParserTest, Factories) {
  auto list = IOSBaseParser::parserWithJSONData(std::string_view("[1, 2]"), false, true);
  EXPECT_TRUE(list->rawData().isArray());
  EXPECT_TRUE(list->items().empty());
  EXPECT_FALSE(list->parseDeleted());
  EXPECT_TRUE(list->deviceBackup());

  auto sub = ThreeArgumentParser::parserWithJSONData(std::string_view("[{}, {}]"), true, false);
  EXPECT_EQ(sub->className(), "ThreeArgumentParser");
  EXPECT_EQ(sub->items().size(), 2u);
  // The two-argument factory sent to the subclass builds a plain base parser.
  auto viaTwo = ThreeArgumentParser::parserWithJSONData(std::string_view("[{}, {}]"), true);
  EXPECT_EQ(viaTwo->className(), "IOSBaseParser");
  EXPECT_TRUE(viaTwo->items().empty());
  EXPECT_FALSE(viaTwo->deviceBackup());
}

TEST(BaseParserTest, MalformedJsonGivesNoRawDataAndALogLine) {
  testing::LogCapture logs;
  auto parser = IOSBaseParser::parserWithJSONData(std::string_view("{oops"), false);
  EXPECT_FALSE(parser->rawData().present());
  EXPECT_TRUE(parser->items().empty());
  EXPECT_FALSE(parser->parseDeleted());
  ASSERT_EQ(logs.system().lines().size(), 1u);
  EXPECT_TRUE(logs.system().lines()[0].starts_with(">>> "));

  EXPECT_FALSE(IOSBaseParser::JSONWithData(std::string_view("]")).present());
  ASSERT_EQ(logs.system().lines().size(), 2u);
  EXPECT_TRUE(logs.system().lines()[1].starts_with("JSONWithData ERROR:"));

  // addJSONData replaces rawData, ignores none and reports nothing.
  parser->addJSONData(std::string_view(R"({"a":1})"));
  EXPECT_TRUE(parser->rawData().isObject());
  parser->addJSONData(std::nullopt);
  EXPECT_TRUE(parser->rawData().isObject());
  parser->addJSONData(std::string_view("not json"));
  EXPECT_FALSE(parser->rawData().present());
  EXPECT_EQ(logs.system().lines().size(), 2u);
}

}  // namespace
}  // namespace dataparser
