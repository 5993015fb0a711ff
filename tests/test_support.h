// Shared test helpers: a temporary folder per test, the working roots pointed into it, log
// capture, and small file writers.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "dataparser/util/run_log.h"

namespace dataparser::testing {

// The folder that test_main created for this process; removed at exit.
const std::filesystem::path& processTempRoot();

// A fresh folder under the process root, removed with the object.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string str() const { return path_.string(); }
  // Writes `content` to `relative` below the folder (parents created); returns the full path.
  std::string write(std::string_view relative, std::string_view content) const;

 private:
  std::filesystem::path path_;
};

// Captures the run log and the system log into memory for the lifetime of the object.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  MemoryLogSink& run() { return *run_; }
  MemoryLogSink& system() { return *system_; }

 private:
  std::shared_ptr<MemoryLogSink> run_ = std::make_shared<MemoryLogSink>();
  std::shared_ptr<MemoryLogSink> system_ = std::make_shared<MemoryLogSink>();
};

// Points the local time zone (TZ) at `zone` for the lifetime of the object.
class LocalZone {
 public:
  explicit LocalZone(const char* zone);
  ~LocalZone();
  LocalZone(const LocalZone&) = delete;
  LocalZone& operator=(const LocalZone&) = delete;

 private:
  std::optional<std::string> saved_;
};

// Path of a file under tests/fixtures.
std::string fixturePath(std::string_view relative);

}  // namespace dataparser::testing
