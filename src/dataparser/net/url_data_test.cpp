#include "dataparser/net/url_data.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/http_test_server.h"

namespace dataparser {
namespace {

TEST(URLDataTest, OnlyWholeWebAnswersWithinTheLimitsGiveData) {
  testing::HttpTestServer server;
  const std::string body(100, 'p');
  server.addFile("sticker.png", body);
  URLDataLimits small;
  small.maxBytes = 99;
  struct Case {
    std::string url;
    URLDataLimits limits;
    bool gives;
  };
  const Case cases[] = {
      {server.url("/files/sticker.png"), {}, true},
      {server.url("/redirect/files/sticker.png"), {}, true},
      {"HTTP" + server.url("/files/sticker.png").substr(4), {}, true},
      {server.url("/files/sticker.png"), small, false},  // above the size limit
      {server.url("/files/absent.png"), {}, false},      // 404
      {server.url("/files/sticker.png?status=500"), {}, false},
      {"file:///etc/hostname", {}, false},
      {"ftp://127.0.0.1/sticker.png", {}, false},
      {"", {}, false},
  };
  for (const Case& c : cases) {
    std::optional<std::string> data = dataWithContentsOfURL(c.url, c.limits);
    EXPECT_EQ(data.has_value(), c.gives) << c.url;
    if (data) {
      EXPECT_EQ(*data, body) << c.url;
    }
  }
}

}  // namespace
}  // namespace dataparser
