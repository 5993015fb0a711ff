#include "dataparser/util/regex.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace dataparser::regex {
namespace {

TEST(RegexTest, AddressPatternKeepsWhatStandsBeforeTheLastSeparator) {
  const char* kAddress = ".*(?=@|-.*)";
  const std::pair<const char*, const char*> cases[] = {
      {"8613800000000@s.whatsapp.net", "8613800000000"},
      {"8613800000000-1500000000@g.us", "8613800000000-1500000000"},
      {"447700900123-1500000000", "447700900123"},
      {"a@b@c", "a@b"},
  };
  for (const auto& [text, expected] : cases) {
    auto found = search(text, kAddress, kCaseless);
    ASSERT_TRUE(found) << text;
    EXPECT_EQ(*found, expected);
  }
  EXPECT_FALSE(search("+8613800000000", kAddress, kCaseless));
  EXPECT_FALSE(search("", kAddress, kCaseless));
}

TEST(RegexTest, LookBehindCaselessAndWholeMatches) {
  EXPECT_EQ(search("_$!<Mobile>!$_", "(?<=_\\$!<).*(?=>!\\$_)").value_or("-"), "Mobile");
  EXPECT_EQ(search("xxABCxx", "abc", kCaseless).value_or("-"), "ABC");
  EXPECT_FALSE(search("xxABCxx", "abc"));
  EXPECT_EQ(search("\xC3\x84RGER", "\xC3\xA4rger", kCaseless).value_or("-"), "\xC3\x84RGER");
  EXPECT_TRUE(matches("abc", "a.c"));
  EXPECT_FALSE(matches("abcd", "a.c"));
  EXPECT_FALSE(matches("xabc", "a.c"));
  EXPECT_TRUE(matches("a.jpg", ".*\\.jpg$"));
  EXPECT_FALSE(matches("a.jpg\n", ".*\\.jpg$"));  // "$" before a final line end is not the end
  // A text that is not UTF-8 matches nothing.
  EXPECT_FALSE(search("ab\xFF@x", ".*(?=@)"));
  EXPECT_FALSE(matches("\xC3", ".*"));
  EXPECT_TRUE(matches(std::string("a\0b", 3), "a\\x00b"));
}

TEST(RegexTest, InvalidPatternsReportTheirError) {
  std::string error;
  EXPECT_FALSE(Regex::compile("(abc", kNone, &error));
  EXPECT_NE(error.find("offset 4"), std::string::npos) << error;
  EXPECT_FALSE(search("abc", "(abc"));
  EXPECT_FALSE(matches("abc", "[z-a]"));
}

TEST(RegexTest, CompiledOnceAndSharedBetweenThreads) {
  auto first = Regex::compile("a+b", kCaseless);
  EXPECT_EQ(first, Regex::compile("a+b", kCaseless));
  EXPECT_NE(first, Regex::compile("a+b"));

  std::vector<std::thread> threads;
  std::vector<int> hits(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &hits] {
      for (int i = 0; i < 300; ++i) {
        std::string pattern = "x" + std::to_string(i % 7) + "+";
        hits[t] += search("yyx" + std::to_string(i % 7) + "z", pattern).has_value();
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  for (int count : hits)
    EXPECT_EQ(count, 300);
}

TEST(RegexTest, DeepBacktrackingDoesNotCrash) {
  std::string text(2000, 'a');
  EXPECT_TRUE(matches(text, "(a|b)*"));
  EXPECT_FALSE(matches(text + "c", "(a+)+b"));  // gives up at the match limit
  std::string huge(1 << 20, 'a');
  EXPECT_FALSE(matches(huge + "c", "(a|b)*c?d"));
}

}  // namespace
}  // namespace dataparser::regex
