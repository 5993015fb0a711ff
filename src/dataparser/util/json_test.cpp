#include "dataparser/util/json.h"

#include <gtest/gtest.h>

#include <limits>

namespace dataparser::json {
namespace {

TEST(JsonTest, NullAndWrongTypesReadAsEmpty) {
  Value doc = parse(R"({"s":"text","n":null,"i":7,"o":{"k":1},"a":[1,2]})");
  ASSERT_TRUE(doc.isObject());
  EXPECT_FALSE(doc["n"].present());
  EXPECT_TRUE(doc["n"].isNull());
  EXPECT_FALSE(doc["missing"].present());
  EXPECT_EQ(doc["n"].string(), "");
  EXPECT_FALSE(doc["n"].optionalString());
  EXPECT_EQ(doc["i"].string(), "");  // a number is not a string
  EXPECT_EQ(doc["s"].integer(), 0);  // a string is not a number
  EXPECT_EQ(doc["o"].size(), 1u);
  EXPECT_EQ(doc["s"].size(), 0u);
  EXPECT_TRUE(doc["s"].elements().empty());
  EXPECT_FALSE(doc["a"]["k"].present());   // member of an array
  EXPECT_FALSE(doc["o"].at(0).present());  // element of an object
  EXPECT_EQ(doc["o"]["k"].integer(), 1);
  EXPECT_EQ(doc["a"].at(1).integer(), 2);
  EXPECT_FALSE(doc["a"].at(2).present());
  // Absent handles chain safely.
  EXPECT_EQ(doc["x"]["y"].at(3)["z"].string(), "");
}

TEST(JsonTest, IntegersTruncateAndSaturate) {
  struct Case {
    const char* text;
    std::int64_t integer;
  };
  const Case cases[] = {
      {"[3.99]", 3},
      {"[-3.99]", -3},
      {"[1e300]", std::numeric_limits<std::int64_t>::max()},
      {"[-1e300]", std::numeric_limits<std::int64_t>::min()},
      {"[18446744073709551615]", std::numeric_limits<std::int64_t>::max()},
      {"[-9223372036854775808]", std::numeric_limits<std::int64_t>::min()},
      {"[true]", 1},
      {"[false]", 0},
      {"[\"12\"]", 0},
      {"[null]", 0},
  };
  for (const Case& c : cases) {
    Value doc = parse(c.text);
    ASSERT_TRUE(doc.isArray()) << c.text;
    EXPECT_EQ(doc.at(0).integer(), c.integer) << c.text;
  }
}

TEST(JsonTest, TextHoldingANumberOnlyThroughTheTextReaders) {
  struct Case {
    const char* text;
    std::int64_t integer;
    double number;
  };
  const Case cases[] = {
      {R"([" 42abc"])", 42, 42.0}, {R"(["-7"])", -7, -7.0},
      {R"(["+5.5"])", 5, 5.5},     {R"(["abc"])", 0, 0.0},
      {R"([""])", 0, 0.0},         {R"(["99999999999999999999"])", INT64_MAX, 1e20},
      {R"([12.75])", 12, 12.75},   {R"([null])", 0, 0.0},
  };
  for (const Case& c : cases) {
    Value doc = parse(c.text);
    EXPECT_EQ(doc.at(0).integerFromText(), c.integer) << c.text;
    EXPECT_DOUBLE_EQ(doc.at(0).numberFromText(), c.number) << c.text;
  }
}

TEST(JsonTest, MalformedTextGivesAnAbsentValueAndAMessage) {
  for (const char* text : {"", "{", "[1,]", "{\"a\":}", "\xff\xfe", "nul", "42", "\"x\"", "null"}) {
    std::string error;
    Value doc = parse(std::string_view(text), &error);
    EXPECT_EQ(doc.type(), Type::kAbsent) << text;
    EXPECT_FALSE(error.empty()) << text;
  }
  std::string error;
  EXPECT_EQ(parseFile("/nonexistent/file.json", &error).type(), Type::kAbsent);
  EXPECT_FALSE(error.empty());
}

TEST(JsonTest, ValuesShareTheirDocumentAndOutliveTheParseCall) {
  Value element;
  {
    Value doc = parse(std::string(R"({"messages":[{"text":"hello"},{"text":"world"}]})"));
    View second = doc["messages"].at(1);
    element = doc.sub(second);
  }
  // The document stays alive through `element` alone.
  EXPECT_EQ(element["text"].string(), "world");
}

TEST(JsonTest, IterationVisitsEveryElementAndMemberInOrder) {
  Value doc = parse(R"({"a":[1,{"x":2},[3],"s",null],"b":{"k1":1,"k2":[2],"k3":{"z":3}}})");
  std::vector<Type> types;
  for (View v : doc["a"].elements())
    types.push_back(v.type());
  EXPECT_EQ(types, (std::vector<Type>{Type::kInteger, Type::kObject, Type::kArray, Type::kString,
                                      Type::kNull}));
  std::vector<std::string> keys;
  for (Member m : doc["b"].members())
    keys.emplace_back(m.key);
  EXPECT_EQ(keys, (std::vector<std::string>{"k1", "k2", "k3"}));
  EXPECT_EQ(doc["a"].size(), 5u);
  EXPECT_EQ(doc["b"].size(), 3u);
}

TEST(JsonTest, RvalueParseAndWriterRoundTrip) {
  std::string text = R"({"u":"é\n\"q\"","d":1.5,"l":[true,false,null,-1]})";
  text.reserve(text.size() + paddingBytes());
  Value doc = parse(std::move(text));
  ASSERT_TRUE(doc.isObject());
  EXPECT_EQ(doc.view().toJsonText(), R"({"u":"é\n\"q\"","d":1.5,"l":[true,false,null,-1]})");
  EXPECT_EQ(parse(std::string_view("[1]")).view().toJsonText(true), "[\n  1\n]");
  EXPECT_EQ(View().toJsonText(), "");
}

}  // namespace
}  // namespace dataparser::json
