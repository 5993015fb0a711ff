#include "dataparser/util/text.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/test_support.h"

namespace dataparser {
namespace {

TEST(TextTest, Md5OfBytes) {
  EXPECT_EQ(md5String(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(md5String("The quick brown fox jumps over the lazy dog"),
            "9e107d9d372bb6826bd81d3542a419d6");
  EXPECT_EQ(md5String(std::string("a\0b", 3)), md5String(std::string("a\0b", 3)));
  EXPECT_NE(md5String(std::string("a\0b", 3)), md5String("a"));
  EXPECT_EQ(md5String("\xE4\xB8\xAD"), "aed1dfbc31703955e64806b799b67645");  // "中"
  // The name a device backup gives the messages database.
  EXPECT_EQ(sha1String("HomeDomain-Library/SMS/sms.db"),
            "3d0d7e5fb2ce288813306e4d4636395e047a3d28");
  EXPECT_EQ(sha1String(""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
}

TEST(TextTest, UrlEscapingBothWays) {
  EXPECT_EQ(URLEncodedString("!*'();:@&=+$,/?%#[]"),
            "%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%25%23%5B%5D");
  EXPECT_EQ(URLEncodedString("a b-c._~Z9"), "a%20b-c._~Z9");
  EXPECT_EQ(URLEncodedString("\xC3\xA9"), "%C3%A9");
  EXPECT_EQ(URLEncodedString("bad\xFF"), "");

  EXPECT_EQ(URLDecodedString("John+Smith%20Jr%2E"), "John Smith Jr.");
  EXPECT_EQ(URLDecodedString("%2B+%2b"), "+ +");  // "+" from an escape stays
  EXPECT_EQ(URLDecodedString("%C3%A9t%C3%A9"), "\xC3\xA9t\xC3\xA9");
  EXPECT_EQ(URLDecodedString("plain"), "plain");
  EXPECT_EQ(URLDecodedString(""), "");
  for (const char* bad : {"100%", "%4", "%zz", "%FF", "a%C3"}) {
    EXPECT_EQ(URLDecodedString(bad), "") << bad;
  }
  const std::string original = "Fran\xC3\xA7ois & Zo\xC3\xAB / 50%";
  EXPECT_EQ(URLDecodedString(URLEncodedString(original)), original);
}

TEST(TextTest, HtmlToPlainText) {
  EXPECT_EQ(htmlText("<p>Main&nbsp;St &amp; 2nd</p><p>Springfield</p>"),
            "Main\xC2\xA0St & 2nd\nSpringfield");
  EXPECT_EQ(htmlText("<html><head><title>t</title><style>p{}</style></head>"
                     "<body>Line one<br>Line   two\n  here<script>x()</script></body></html>"),
            "Line one\nLine two here");
  EXPECT_EQ(htmlText("plain text"), "plain text");
  EXPECT_EQ(htmlText("<b>unclosed <i>tags"), "unclosed tags");
  EXPECT_EQ(htmlText(""), "");
  EXPECT_EQ(htmlText("<<<>>>"), htmlText("<<<>>>"));  // broken markup does not fail
  EXPECT_EQ(htmlText(std::string("a\0b", 3)).substr(0, 1), "a");
}

TEST(TextTest, JsonTextOrEmpty) {
  json::Value value = json::parse(R"({"s": "text", "n": 5, "z": null})");
  EXPECT_EQ(nilStrToSpaceStringWithStr(value.view()["s"]), "text");
  EXPECT_EQ(nilStrToSpaceStringWithStr(value.view()["n"]), "");
  EXPECT_EQ(nilStrToSpaceStringWithStr(value.view()["z"]), "");
  EXPECT_EQ(nilStrToSpaceStringWithStr(value.view()["missing"]), "");
  EXPECT_TRUE(empty(""));
  EXPECT_FALSE(empty(" "));
}

TEST(TextTest, MatchWithPattern) {
  testing::LogCapture logs;
  EXPECT_EQ(matchWithPattern("_$!<Mobile>!$_", "(?<=_\\$!<).*(?=>!\\$_)"), "Mobile");
  EXPECT_EQ(matchWithPattern("Work phone", "(?<=_\\$!<).*(?=>!\\$_)"), std::nullopt);
  EXPECT_EQ(matchWithPattern("4477@S.WHATSAPP.NET", ".*(?=@|-.*)"), "4477");
  EXPECT_EQ(matchWithPattern("ABC", "b"), "B");  // case-insensitive
  EXPECT_TRUE(logs.system().lines().empty());

  EXPECT_EQ(matchWithPattern("abc", "(abc"), std::nullopt);
  ASSERT_EQ(logs.system().lines().size(), 1u);
  EXPECT_EQ(logs.system().lines()[0].rfind("***", 0), 0u);
  EXPECT_NE(logs.system().lines()[0].find("missing closing parenthesis"), std::string::npos);
}

TEST(TextTest, Base64RoundTripsAndWraps) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="},
  };
  for (const auto& [data, text] : cases) {
    EXPECT_EQ(jk_base64EncodedString(data), text);
    EXPECT_EQ(jk_dataWithBase64EncodedString(text), data);
  }
  const std::string bytes = std::string("\0\xFF\x10 binary", 10) + std::string(40, 'x');
  const std::string oneLine = jk_base64EncodedString(bytes);
  const std::string wrapped = jk_base64EncodedStringWithWrapWidth(bytes, 16);
  EXPECT_EQ(wrapped.substr(16, 2), "\r\n");
  EXPECT_EQ(wrapped.size(), oneLine.size() + (oneLine.size() - 1) / 16 * 2);
  EXPECT_EQ(jk_dataWithBase64EncodedString(wrapped), bytes);
  EXPECT_EQ(jk_base64EncodedStringWithWrapWidth(bytes, 18), wrapped);  // whole groups per line
  EXPECT_EQ(jk_base64EncodedStringWithWrapWidth(bytes, 0), oneLine);
  EXPECT_EQ(jk_base64EncodedStringWithWrapWidth("foo", 1), "Zm9v");

  EXPECT_EQ(jk_dataWithBase64EncodedString("Zm9vYg"), "foob");  // padding left out
  EXPECT_EQ(jk_dataWithBase64EncodedString(" Zm9v\nYg==\n"), "foob");
  for (const char* bad : {"Z", "Zm9vY", "Zm9v!", "Zg=a", "Z===", "Zm9vYg=", "=Zm9"}) {
    EXPECT_EQ(jk_dataWithBase64EncodedString(bad), std::nullopt) << bad;
  }
}

TEST(TextTest, DiacriticFolding) {
  EXPECT_EQ(foldDiacritics("\xC3\x9Cn\xC3\xAF"
                           "c\xC3\xB6"
                           "d\xC3\xA9"),
            "Unicode");
  EXPECT_EQ(foldDiacritics("plain"), "plain");
  EXPECT_EQ(foldDiacritics("\xE4\xB8\xAD"), "\xE4\xB8\xAD");
  EXPECT_EQ(foldDiacritics("bad\xC3"), std::nullopt);
}

}  // namespace
}  // namespace dataparser

namespace dataparser {
namespace {

TEST(TextTest, ReplacingOccurrences) {
  struct Case {
    const char* text;
    const char* target;
    const char* replacement;
    const char* expected;
  };
  const Case cases[] = {
      {"a{{ROOT}}b{{ROOT}}", "{{ROOT}}", "/r", "a/rb/r"},
      {"aaa", "aa", "b", "ba"},   // left to right, no overlap
      {"xx", "x", "xx", "xxxx"},  // what was put in is not scanned again
      {"abc", "", "z", "abc"},    // an empty target changes nothing
      {"a.webp.webp", ".webp", ".png", "a.png.png"},
      {"", "x", "y", ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(stringByReplacingOccurrences(c.text, c.target, c.replacement), c.expected) << c.text;
  }
}

}  // namespace
}  // namespace dataparser
