#include "tests/test_support.h"

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <fstream>

namespace dataparser::testing {
namespace fs = std::filesystem;

TempDir::TempDir() {
  static std::atomic<int> counter = 0;
  path_ = processTempRoot() / ("tmp" + std::to_string(counter++));
  fs::create_directories(path_);
}

TempDir::~TempDir() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::string TempDir::write(std::string_view relative, std::string_view content) const {
  fs::path file = path_ / relative;
  fs::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  return file.string();
}

LogCapture::LogCapture() {
  RunLog::setSink(run_);
  SystemLog::setSink(system_);
}

LogCapture::~LogCapture() {
  RunLog::setSink(makeNullLogSink());
  SystemLog::setSink(makeNullLogSink());
}

LocalZone::LocalZone(const char* zone) {
  if (const char* old = std::getenv("TZ")) saved_ = old;
  ::setenv("TZ", zone, 1);
  ::tzset();
}

LocalZone::~LocalZone() {
  if (saved_) {
    ::setenv("TZ", saved_->c_str(), 1);
  } else {
    ::unsetenv("TZ");
  }
  ::tzset();
}

std::string fixturePath(std::string_view relative) {
  return (fs::path(DATAPARSER_TEST_FIXTURES) / relative).string();
}

}  // namespace dataparser::testing
