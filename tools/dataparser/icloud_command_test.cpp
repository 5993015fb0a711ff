#include "tools/dataparser/icloud_command.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/json.h"
#include "dataparser/util/text.h"
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

std::string contents(std::FILE* file) {
  std::rewind(file);
  std::string text;
  for (int c = std::fgetc(file); c != EOF; c = std::fgetc(file))
    text.push_back(char(c));
  return text;
}

TEST(ICloudCommandTest, ProgressLinesAndFreeSpaceWarning) {
  EXPECT_EQ(progressLine({"/d/0cc1.jpg", 19, true, ""}), "0cc1.jpg  19 bytes  done");
  EXPECT_EQ(progressLine({"/d/x.png", -1, false, "timed out"}),
            "x.png  0 bytes  failed: timed out");

  auto hundredFree = [](std::uint64_t size, const std::string&) -> std::uint64_t {
    return size > 100 ? size - 100 : 0;
  };
  EXPECT_EQ(freeSpaceWarning(100, "/d", hundredFree), std::nullopt);
  EXPECT_EQ(freeSpaceWarning(0, "/d", [](std::uint64_t, const std::string&) { return 7u; }),
            std::nullopt);  // nothing to fetch
  EXPECT_EQ(freeSpaceWarning(150, "/d", hundredFree),
            "dataparser: /d may be short of 50 bytes for the download (estimate 150 bytes); "
            "going on");

  // Through the command, with no free space at all: a warning, and the run still goes on. The
  // output is not a terminal, so no progress lines.
  testing::TempDir dir;
  ICloudOptions options;
  options.folder = testing::fixturePath("../../samples/icloud-demo");
  options.downloadPath = dir.str() + "/fetched";
  std::string probed;
  options.freeSpace = [&](std::uint64_t size, const std::string& folder) {
    probed = folder;
    return size;
  };
  std::FILE* out = std::tmpfile();
  std::FILE* err = std::tmpfile();
  EXPECT_EQ(runICloud(options, out, err), 0);
  EXPECT_EQ(probed, options.downloadPath);
  EXPECT_NE(contents(err).find("may be short of"), std::string::npos);
  EXPECT_EQ(contents(out).find(" bytes  "), std::string::npos);
  EXPECT_TRUE(isDirectory(options.downloadPath));
  std::fclose(out);
  std::fclose(err);
}

TEST(ICloudCommandTest, ATerminalGetsOneLinePerFile) {
  int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
    if (master >= 0) close(master);
    GTEST_SKIP() << "no pseudo-terminal here";
  }
  std::FILE* terminal = std::fopen(ptsname(master), "w");
  ASSERT_NE(terminal, nullptr);
  testing::TempDir dir;
  ICloudOptions options;
  options.folder = testing::fixturePath("../../samples/icloud-demo");
  options.downloadPath = dir.str() + "/fetched";
  options.kinds = "photos";
  std::FILE* err = std::tmpfile();
  EXPECT_EQ(runICloud(options, terminal, err), 0);
  std::fclose(terminal);
  std::string shown;
  char buffer[4096];
  for (ssize_t n; (n = read(master, buffer, sizeof buffer)) > 0;)
    shown.append(buffer, n);
  close(master);
  // The sample's one missing picture points at a closed port.
  EXPECT_NE(shown.find(md5String("P2") + ".jpg  805 bytes  failed: "), std::string::npos) << shown;
  std::fclose(err);
}

}  // namespace
}  // namespace dataparser::cli
