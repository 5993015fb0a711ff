#include "tools/dataparser/icloud_command.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/json.h"
#include "tests/test_support.h"

namespace dataparser::cli {
namespace {

TEST(ICloudCommandTest, SampleFolderExportsEveryListAndBadInputExitsNonZero) {
  testing::TempDir dir;
  ICloudOptions options;
  options.folder = testing::fixturePath("../../samples/icloud-demo");
  options.jsonPath = dir.str() + "/out.json";
  std::FILE* sink = std::tmpfile();
  ASSERT_EQ(runICloud(options, sink, sink), 0);
  json::Value out = json::parseFile(options.jsonPath);
  ASSERT_TRUE(out.isObject());
  // Photos on disk (one of them in the deleted album), contacts, events, reminders, notes, note
  // attachments and the calendar attachment file.
  for (const char* code : {"2", "1024", "32768", "65536", "131072", "262144", "4294967296"}) {
    EXPECT_TRUE(out["lists"][code].isArray()) << code;
  }
  EXPECT_EQ(out["lists"]["2"].size(), 2u);

  ICloudOptions bad = options;
  bad.folder = dir.str();  // no index
  EXPECT_EQ(runICloud(bad, sink, sink), 1);
  bad = options;
  bad.kinds = "calendar,films";
  EXPECT_EQ(runICloud(bad, sink, sink), 1);
  std::fclose(sink);
  EXPECT_EQ(downloadKinds("photos,videos"), 0x6u);
  EXPECT_EQ(downloadKinds("calendar,notes"), 0x500u);
}

}  // namespace
}  // namespace dataparser::cli
