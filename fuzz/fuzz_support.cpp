#include "fuzz/fuzz_support.h"

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "dataparser/core/file_helper.h"
#include "dataparser/util/run_log.h"

namespace dataparser::fuzz {

namespace fs = std::filesystem;

FuzzEnvironment& FuzzEnvironment::instance() {
  static FuzzEnvironment environment;
  return environment;
}

FuzzEnvironment::FuzzEnvironment() {
  std::string pattern = (fs::temp_directory_path() / "dataparser-fuzz-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    std::perror("mkdtemp");
    std::abort();
  }
  root_ = pattern;
  fs::create_directories(root_ + "/home");
  // Anything that still asks the environment lands in the private folder too.
  ::setenv("HOME", (root_ + "/home").c_str(), 1);
  ::setenv("XDG_DATA_HOME", (root_ + "/support").c_str(), 1);
  ::setenv("XDG_CACHE_HOME", (root_ + "/caches").c_str(), 1);
  setApplicationSupportRoot(root_ + "/support");
  setCachesRoot(root_ + "/caches");
  RunLog::setSink(makeNullLogSink());
  SystemLog::setSink(makeNullLogSink());
}

FuzzEnvironment::~FuzzEnvironment() {
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

std::string FuzzEnvironment::writeFile(std::string_view relative, std::string_view content) const {
  fs::path path = fs::path(root_) / relative;
  fs::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  return path.string();
}

void check(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "fuzz check failed: %s\n", what);
  std::abort();
}

}  // namespace dataparser::fuzz
