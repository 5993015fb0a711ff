#include "dataparser/util/json.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <limits>

#include "tests/test_support.h"

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

TEST(JsonTest, FieldsFindWhatTheSubscriptFinds) {
  // Members in another order than asked, a duplicate name, null, and keys that are prefixes of
  // one another.
  Value doc = parse(R"({"b":2,"a":1,"ab":"x","":"empty","a":9,"n":null,"o":{"a":5}})");
  auto [a, ab, b, missing, empty, n, nested] = doc.fields({"a", "ab", "b", "zz", "", "n", "o"});
  EXPECT_EQ(a.integer(), 1);  // the first member of that name
  EXPECT_EQ(a, doc["a"]);
  EXPECT_EQ(ab.string(), "x");
  EXPECT_EQ(b.integer(), 2);
  EXPECT_FALSE(missing.present());
  EXPECT_EQ(missing.type(), Type::kAbsent);
  EXPECT_EQ(empty.string(), "empty");
  EXPECT_TRUE(n.isNull());
  EXPECT_EQ(nested["a"].integer(), 5);
  // Records of the same kind one after another: the order hint must not skip members.
  Value list = parse(R"([{"x":1,"y":2,"z":3},{"z":6,"y":5,"x":4},{"y":8}])");
  const int expected[][3] = {{1, 2, 3}, {4, 5, 6}, {0, 8, 0}};
  for (std::size_t i = 0; i < 3; ++i) {
    auto [x, y, z] = list.at(i).fields({"x", "y", "z"});
    EXPECT_EQ(x.integer(), expected[i][0]) << i;
    EXPECT_EQ(y.integer(), expected[i][1]) << i;
    EXPECT_EQ(z.integer(), expected[i][2]) << i;
  }
  // Names whose lengths share a bucket (1 and 33 bytes) are told apart by their text.
  const std::string longName(33, 'a');
  Value bucket = parse(R"({")" + longName + R"(":1,"a":2})");
  auto [shortName, longOne] = bucket.fields({"a", longName});
  EXPECT_EQ(shortName.integer(), 2);
  EXPECT_EQ(longOne.integer(), 1);
  // Not an object: every slot absent.
  for (View v : {list.view(), doc["b"], View()}) {
    auto [only] = v.fields({"x"});
    EXPECT_EQ(only.type(), Type::kAbsent);
  }
}

TEST(JsonTest, TextsEndingAnywhereInAPageParse) {
  // A text is parsed in place when the decoder's read-ahead stays in the text's last page, and
  // copied otherwise: here the page after the text cannot be read at all.
  const long page = ::sysconf(_SC_PAGESIZE);
  void* pages =
      ::mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(pages, MAP_FAILED);
  ASSERT_EQ(::mprotect(static_cast<char*>(pages) + page, page, PROT_NONE), 0);
  const std::string_view text = R"({"k":[1,2,"three"]})";
  for (std::size_t gap : {std::size_t{0}, std::size_t{1}, std::size_t{63}, std::size_t{64},
                          std::size_t{65}, std::size_t{500}}) {
    char* at = static_cast<char*>(pages) + page - gap - text.size();
    std::memcpy(at, text.data(), text.size());
    Value value = parse(std::string_view(at, text.size()));
    EXPECT_EQ(value["k"].at(2).string(), "three") << gap;
  }
  ::munmap(pages, 2 * page);
}

TEST(JsonTest, FilesParsedOneAfterAnotherKeepTheirOwnContent) {
  testing::TempDir dir;
  // A long file, then a short one read into the same buffer, then the first again.
  std::string longText = R"({"items":[)";
  for (int i = 0; i < 5000; ++i)
    longText += (i ? "," : "") + std::to_string(i);
  longText += "]}";
  std::string longPath = dir.write("long.json", longText);
  std::string shortPath = dir.write("short.json", R"({"k":"v"})");
  std::string truncatedPath = dir.write("truncated.json", R"({"k":)");
  Value first = parseFile(longPath);
  Value second = parseFile(shortPath);
  std::string error;
  EXPECT_EQ(parseFile(truncatedPath, &error).type(), Type::kAbsent);
  EXPECT_FALSE(error.empty());
  EXPECT_EQ(first["items"].size(), 5000u);
  EXPECT_EQ(first["items"].at(4999).integer(), 4999);
  EXPECT_EQ(second["k"].string(), "v");
  EXPECT_EQ(second.size(), 1u);
  // A folder is not a file.
  error.clear();
  EXPECT_EQ(parseFile(dir.str(), &error).type(), Type::kAbsent);
  EXPECT_FALSE(error.empty());
}

TEST(JsonTest, RepeatedShortStringsAreStoredOnceAndEveryTextReadsBack) {
  // Records that repeat keys and short values, strings at and around the sharing limit, and a
  // text large enough to be packed in place, with more distinct short strings than are
  // remembered for sharing; each kept alive while the next ones are parsed.
  std::string big = "[";
  for (int i = 0; i < 60000; ++i)
    big += std::string(i ? "," : "") + R"({"id":"n)" + std::to_string(i) +
           R"(","from_id":"4917@s.whatsapp.net","text":"message )" + std::to_string(i) +
           R"( with a text longer than thirty-two bytes"})";
  big += "]";
  const std::string texts[] = {
      big,
      R"({"k":"v","list":[1,-2,1.5,"",true,null,"v"],"k2":{"k":"v"}})",
      R"(["12345678901234567890123456789012","123456789012345678901234567890123",)"
      R"("12345678901234567890123456789012","123456789012345678901234567890123"])",
      R"({"é":"日本語","e":"\u0000x","é2":"日本語"})",
      R"([])",
  };
  std::vector<Value> documents;
  for (const std::string& text : texts)
    documents.push_back(parse(text));
  for (std::size_t i = 0; i < documents.size(); ++i) {
    EXPECT_EQ(documents[i].view().toJsonText(), parse(texts[i]).view().toJsonText()) << i;
  }
  EXPECT_EQ(documents[0].view().at(59999)["text"].string(),
            "message 59999 with a text longer than thirty-two bytes");
  EXPECT_EQ(documents[0].view().at(59999)["id"].string(), "n59999");
  EXPECT_EQ(documents[1]["k2"]["k"].string(), "v");
  EXPECT_EQ(documents[3]["e"].string(), std::string_view("\0x", 2));

  // Equal short strings share their bytes; longer ones keep their own.
  const View big0 = documents[0].view().at(0);
  EXPECT_EQ(big0["from_id"].string().data(),
            documents[0].view().at(59999)["from_id"].string().data());
  const View limits = documents[2].view();
  EXPECT_EQ(limits.at(0).string().data(), limits.at(2).string().data());
  EXPECT_NE(limits.at(1).string().data(), limits.at(3).string().data());
  EXPECT_EQ(limits.at(3).string(), "123456789012345678901234567890123");
}

}  // namespace
}  // namespace dataparser::json
