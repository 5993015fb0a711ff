// Test entry point. Before any test runs, every root the library may write to (application
// support, caches, HOME itself) is pointed into a fresh temporary folder, so no test can touch
// the real home folder. Logs go nowhere unless a test captures them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/run_log.h"
#include "tests/test_support.h"

namespace dataparser::testing {
namespace {
std::filesystem::path gRoot;
}

const std::filesystem::path& processTempRoot() {
  return gRoot;
}

}  // namespace dataparser::testing

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::string pattern = (fs::temp_directory_path() / "dataparser-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) return 2;
  dataparser::testing::gRoot = pattern;
  const fs::path& root = dataparser::testing::gRoot;
  fs::create_directories(root / "home");
  setenv("HOME", (root / "home").c_str(), 1);
  setenv("XDG_DATA_HOME", (root / "home/.local/share").c_str(), 1);
  setenv("XDG_CACHE_HOME", (root / "home/.cache").c_str(), 1);
  dataparser::setBundleIdentifier("org.dataparser.tests");
  dataparser::RunLog::setSink(dataparser::makeNullLogSink());
  dataparser::SystemLog::setSink(dataparser::makeNullLogSink());

  ::testing::InitGoogleTest(&argc, argv);
  int status = RUN_ALL_TESTS();
  std::error_code ignored;
  fs::remove_all(root, ignored);
  return status;
}
