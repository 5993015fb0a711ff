#include "dataparser/util/path.h"

#include <gtest/gtest.h>

namespace dataparser::path {
namespace {

TEST(PathTest, ComponentsAndExtensionsFollowThePlatformRules) {
  struct Case {
    const char* path;
    const char* last;
    const char* parent;
    const char* extension;
    const char* withoutExtension;
  };
  const Case cases[] = {
      {"/tmp/scratch.tiff", "scratch.tiff", "/tmp", "tiff", "/tmp/scratch"},
      {"/tmp/lock/", "lock", "/tmp", "", "/tmp/lock"},
      {"/tmp/", "tmp", "/", "", "/tmp"},
      {"/", "/", "/", "", "/"},
      {"", "", "", "", ""},
      {"a.tar.gz", "a.tar.gz", "", "gz", "a.tar"},
      {".profile", ".profile", "", "", ".profile"},
      {"/x/.hidden.txt", ".hidden.txt", "/x", "txt", "/x/.hidden"},
      {"file.", "file.", "", "", "file"},
      {"..", "..", "", "", ".."},
      {"a//b///c.JPG", "c.JPG", "a/b", "JPG", "a/b/c"},
      {"/dir.d/file", "file", "/dir.d", "", "/dir.d/file"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(lastPathComponent(c.path), c.last) << c.path;
    EXPECT_EQ(deletingLastPathComponent(c.path), c.parent) << c.path;
    EXPECT_EQ(pathExtension(c.path), c.extension) << c.path;
    EXPECT_EQ(deletingPathExtension(c.path), c.withoutExtension) << c.path;
  }
}

TEST(PathTest, JoiningAndSafeComponents) {
  EXPECT_EQ(appendingPathComponent("/tmp", "a"), "/tmp/a");
  EXPECT_EQ(appendingPathComponent("/tmp/", "a"), "/tmp/a");
  EXPECT_EQ(appendingPathComponent("", "a"), "a");
  EXPECT_EQ(appendingPathComponent("/tmp", ""), "/tmp");
  EXPECT_EQ(safeComponent("../../etc/passwd"), "passwd");
  EXPECT_EQ(safeComponent(".."), "_");
  EXPECT_EQ(safeComponent(""), "_");
  EXPECT_EQ(safeComponent("/"), "_");
  EXPECT_EQ(safeComponent(std::string_view("a\0b", 3)), "ab");
}

}  // namespace
}  // namespace dataparser::path
