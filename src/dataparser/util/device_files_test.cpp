// Every reader of files named by input data refuses what is not a regular file, at once: a pipe
// without a writer would block for ever and a device such as /dev/zero never ends.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <future>
#include <string>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/image.h"
#include "dataparser/util/json.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

using namespace std::chrono_literals;

TEST(SpecialFilesTest, ReadersRefusePipesDevicesAndFoldersWithoutBlocking) {
  testing::TempDir dir;
  const std::string fifo = dir.str() + "/pipe.json";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const std::string json = dir.write("ok.json", "{\"a\": 1}");
  const std::string picture = testing::fixturePath("images/picture.jpg");

  struct Reader {
    const char* name;
    std::function<bool(const std::string&)> reads;
  };
  const Reader readers[] = {
      {"readFile", [](const std::string& p) { return readFile(p).has_value(); }},
      {"parseFile", [](const std::string& p) { return json::parseFile(p).present(); }},
      {"image", [](const std::string& p) { return Image::imageWithContentsOfFile(p) != nullptr; }},
      {"openRegularFile",
       [](const std::string& p) {
         int fd = openRegularFile(p);
         if (fd >= 0) ::close(fd);
         return fd >= 0;
       }},
  };
  const std::string refused[] = {
      fifo,      "/dev/zero",         "/dev/null",
      dir.str(), dir.str() + "/none", std::string("ok.json\0/etc/passwd", 19)};
  for (const Reader& reader : readers) {
    SCOPED_TRACE(reader.name);
    for (const std::string& path : refused) {
      SCOPED_TRACE(path);
      auto result = std::async(std::launch::async, reader.reads, path);
      ASSERT_EQ(result.wait_for(10s), std::future_status::ready) << "blocked";
      EXPECT_FALSE(result.get());
    }
  }
  // The reason names the file.
  std::string error;
  EXPECT_FALSE(json::parseFile(fifo, &error).present());
  EXPECT_NE(error.find(fifo), std::string::npos) << error;
  EXPECT_TRUE(readFile(json).has_value());
  EXPECT_TRUE(json::parseFile(json).present());
  EXPECT_NE(Image::imageWithContentsOfFile(picture), nullptr);
}

}  // namespace
}  // namespace dataparser
