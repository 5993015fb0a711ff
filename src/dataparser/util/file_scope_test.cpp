#include "dataparser/util/file_scope.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "dataparser/util/file_helper.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

namespace fs = std::filesystem;

// A backup folder with a file, links that stay inside or leave it, and a file outside it.
struct Layout {
  testing::TempDir dir;
  std::string backup = dir.str() + "/backup";
  std::string file = dir.write("backup/files/a.jpg", "abc");
  std::string outside = dir.write("outside/secret.txt", "secret");
  std::string own = productDomainPath() + "/data/own.png";
  Layout() {
    fs::create_symlink(outside, backup + "/files/link-out");
    fs::create_symlink("../../outside/secret.txt", backup + "/files/rel-out");
    fs::create_symlink(file, backup + "/files/link-in");
    ::mkfifo((backup + "/files/pipe").c_str(), 0600);
    createDirectories(productDomainPath() + "/data");
    writeFileAtomically(own, "own");
  }
};

TEST(BackupScopeTest, PathsOutsideTheBackupAreMissing) {
  Layout layout;
  const std::string& backup = layout.backup;
  struct Case {
    std::string path;
    bool unscoped;  // without any scope
    bool scoped;    // while the backup folder is registered
  };
  const Case cases[] = {
      {layout.file, true, true},
      {backup + "//files/./../files/a.jpg", true, true},
      {backup + "/files/link-in", true, true},
      {layout.own, true, true},
      {backup + "/../outside/secret.txt", true, false},
      {backup + "/files/../../outside/secret.txt", true, false},
      {layout.outside, true, false},
      {"/etc/passwd", true, false},
      {backup + "/files/link-out", true, false},
      {backup + "/files/rel-out", true, false},
      {backup + "/files/missing.jpg", false, false},
      {layout.file + std::string("\0/x", 3), false, false},
      {"", false, false},
  };
  auto check = [&](bool scoped) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.path);
      const bool expected = scoped ? c.scoped : c.unscoped;
      // Without a scope, any path without a NUL byte may be looked at.
      EXPECT_EQ(isInsideBackup(c.path),
                scoped ? expected : c.unscoped || c.path == backup + "/files/missing.jpg");
      EXPECT_EQ(backupFileExists(c.path), expected);
      EXPECT_EQ(isBackupFile(c.path), expected);
      EXPECT_EQ(readBackupFile(c.path).has_value(), expected);
      EXPECT_EQ(backupFileSize(c.path) > 0, expected);
      EXPECT_EQ(firstExistingBackupFile({"", c.path}).has_value(), expected);
    }
  };
  check(false);
  {
    BackupScope scope({backup, ""});
    check(true);
    // Relative paths count only without a scope, wherever the current folder is.
    const fs::path saved = fs::current_path();
    fs::current_path(backup);
    EXPECT_FALSE(backupFileExists("files/a.jpg"));
    {
      BackupScope none;
      BackupScope moved = std::move(scope);
      EXPECT_FALSE(backupFileExists("files/a.jpg"));
      moved.reset();
      EXPECT_TRUE(backupFileExists("files/a.jpg"));
    }
    fs::current_path(saved);
  }
  check(false);
  EXPECT_EQ(readBackupFile(layout.file), "abc");
}

TEST(BackupScopeTest, SeveralScopesAndSpecialFiles) {
  Layout layout;
  BackupScope first({layout.backup});
  BackupScope second({layout.dir.str() + "/outside/"});
  EXPECT_TRUE(backupFileExists(layout.outside));
  EXPECT_TRUE(backupFileExists(layout.file));
  second.reset();
  EXPECT_FALSE(backupFileExists(layout.outside));
  // A pipe inside the backup exists but is no file to open.
  const std::string pipe = layout.backup + "/files/pipe";
  EXPECT_TRUE(backupFileExists(pipe));
  EXPECT_FALSE(isBackupFile(pipe));
  EXPECT_EQ(openBackupFile(pipe), -1);
  std::uint64_t size = 0;
  int fd = openBackupFile(layout.file, &size);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(size, 3u);
  ::close(fd);
}

TEST(BackupScopeTest, KnownFilesAnswerForTheirPathsOnlyWhileHeld) {
  Layout layout;
  BackupScope scope({layout.backup});
  const std::string later = layout.backup + "/files/later.jpg";
  // The table refers to the paths' bytes, as it does to a document's strings.
  const std::string paths[] = {layout.file, later, layout.backup + "/files/link-out"};
  KnownBackupFiles known;
  // Looked up under the scope's rule: a link out of the backup is missing.
  for (const std::string& path : paths)
    known.lookUp(path);
  fs::remove(layout.file);
  layout.dir.write("backup/files/later.jpg", "x");
  layout.dir.write("backup/files/other.jpg", "x");
  {
    KnownBackupFiles::Scope held(&known);
    EXPECT_TRUE(backupFileExists(layout.file));  // the answer of the look ahead
    EXPECT_FALSE(backupFileExists(later));
    EXPECT_FALSE(backupFileExists(layout.backup + "/files/link-out"));
    EXPECT_TRUE(backupFileExists(layout.backup + "/files/other.jpg"));  // looked up now
    {
      KnownBackupFiles::Scope none(nullptr);
      EXPECT_TRUE(backupFileExists(later));
    }
    EXPECT_FALSE(backupFileExists(later));
  }
  EXPECT_FALSE(backupFileExists(layout.file));
  EXPECT_TRUE(backupFileExists(later));

  // Remembered looks: the first answer holds, found or not, until the pass ends.
  {
    const RememberedBackupLooks looks;
    EXPECT_FALSE(isBackupFile(layout.file));
    EXPECT_EQ(existingBackupFileSize(later), 1u);
    layout.dir.write("backup/files/a.jpg", "abcd");
    fs::remove(later);
    EXPECT_FALSE(backupFileExists(layout.file));
    EXPECT_EQ(existingBackupFileSize(later), 1u);
  }
  EXPECT_EQ(existingBackupFileSize(layout.file), 4u);
  EXPECT_FALSE(backupFileExists(later));
}

}  // namespace
}  // namespace dataparser
