#include "dataparser/util/file_helper.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "tests/test_support.h"

namespace dataparser {
namespace {

namespace fs = std::filesystem;

TEST(FileHelperTest, WorkingRootFollowsHostAndXdgAndIsCreated) {
  testing::TempDir dir;
  setApplicationSupportRoot(dir.str() + "/support");
  setBundleIdentifier("com.example.host");
  std::string root = productDomainPath();
  EXPECT_EQ(root, dir.str() + "/support/com.example.host");
  EXPECT_TRUE(isDirectory(root));
  EXPECT_EQ(productDomainPath(), root);

  setApplicationSupportRoot("");
  EXPECT_EQ(applicationSuportPath(), std::string(std::getenv("XDG_DATA_HOME")));
  setCachesRoot(dir.str() + "/caches");
  EXPECT_EQ(userCachesPath(), dir.str() + "/caches");
  setCachesRoot("");
  EXPECT_EQ(userCachesPath(), std::string(std::getenv("XDG_CACHE_HOME")));
}

TEST(FileHelperTest, WorkingRootThatCannotBeCreatedIsLoggedAndReturned) {
  testing::LogCapture logs;
  testing::TempDir dir;
  std::string blocker = dir.write("file", "x");
  setApplicationSupportRoot(blocker);
  setBundleIdentifier("host");
  EXPECT_EQ(productDomainPath(), blocker + "/host");
  ASSERT_EQ(logs.system().lines().size(), 1u);
  EXPECT_TRUE(logs.system().lines()[0].starts_with("Create path failed: " + blocker + "/host, "));
  setApplicationSupportRoot("");
  setBundleIdentifier("org.dataparser.tests");
}

TEST(FileHelperTest, FileSizeAtPath) {
  testing::TempDir dir;
  EXPECT_EQ(fileSizeAtPath(""), 0u);
  EXPECT_EQ(fileSizeAtPath(dir.str() + "/missing"), 0u);
  dir.write("tree/ten.bin", "0123456789");
  fs::create_directories(dir.path() / "tree/empty");
  EXPECT_EQ(fileSizeAtPath(dir.str() + "/tree"), 10u);
  EXPECT_EQ(fileSizeAtPath(dir.str() + "/tree/ten.bin"), 10u);
  dir.write("tree/sub/deeper/three.bin", "abc");
  EXPECT_EQ(fileSizeAtPath(dir.str() + "/tree"), 13u);
  // A link to its own parent must not loop; it counts as the link itself.
  fs::create_directory_symlink("..", dir.path() / "tree/sub/up");
  std::uint64_t withLink = fileSizeAtPath(dir.str() + "/tree");
  EXPECT_GE(withLink, 13u);
  EXPECT_LT(withLink, 13u + 64u);
}

TEST(FileHelperTest, ChargeFileKeepsThePlatformsOddNames) {
  testing::TempDir dir;
  std::string photo = dir.str() + "/photo.jpg";
  EXPECT_EQ(chargeFileHasExistWithFile(photo), photo);
  dir.write("photo.jpg", "");
  EXPECT_EQ(chargeFileHasExistWithFile(photo), dir.str() + "/photo_1.");
  dir.write("photo_1.", "");
  EXPECT_EQ(chargeFileHasExistWithFile(photo), dir.str() + "/photo_2.");
  dir.write("a.tar.gz", "");
  EXPECT_EQ(chargeFileHasExistWithFile(dir.str() + "/a.tar.gz"), dir.str() + "/a.tar_1.tar");
  dir.write("noext", "");
  EXPECT_EQ(chargeFileHasExistWithFile(dir.str() + "/noext"), dir.str() + "/noext_1.");
}

TEST(FileHelperTest, IsSpaceEnoughGivesTheShortfall) {
  EXPECT_EQ(isSpaceEnough(0, ""), 0u);
  EXPECT_EQ(isSpaceEnough(1, ""), 0u);
  EXPECT_EQ(isSpaceEnough(100, "/nonexistent/folder"), 100u);  // unreadable: no free space
  std::uint64_t huge = std::uint64_t{1} << 62;
  std::uint64_t missing = isSpaceEnough(huge, "/");
  EXPECT_GT(missing, 0u);
  EXPECT_LE(missing, huge);
}

TEST(FileHelperTest, FirstExistingFileAndReadFile) {
  testing::TempDir dir;
  std::string b = dir.write("b.txt", "bee");
  EXPECT_EQ(firstExistingFile({"", dir.str() + "/a.txt", b}), b);
  EXPECT_FALSE(firstExistingFile({dir.str() + "/a.txt"}));
  EXPECT_EQ(readFile(b), "bee");
  EXPECT_FALSE(readFile(dir.str() + "/a.txt"));
}

}  // namespace
}  // namespace dataparser
