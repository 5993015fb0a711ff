// The run log and the system log: one text line per call, written to a pluggable sink.
//
// The run log ("product log") carries the scan's story ("*** start parse backup: ...");
// by default it goes to a file under the working root's "Logs" folder, opened on first use.
// The system log carries a few low-level messages (JSON decoding errors); it goes to stderr by
// default. Hosts and tests install their own sinks; MemoryLogSink keeps lines for assertions.
//
// Thread safety: every function here may be called from any thread; sinks serialise writes.
#pragma once

#include <fmt/core.h>

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace dataparser {

class LogSink {
 public:
  virtual ~LogSink() = default;
  // Writes one line (without its line end). Must be safe to call from several threads.
  virtual void write(std::string_view line) = 0;
};

// Keeps every line in memory. For tests and for hosts that show the log themselves.
class MemoryLogSink final : public LogSink {
 public:
  void write(std::string_view line) override;
  std::vector<std::string> lines() const;
  // True when some line equals `line` exactly.
  bool contains(std::string_view line) const;
  // Number of lines equal to `line`.
  std::size_t count(std::string_view line) const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

// Writes each line to stderr.
std::shared_ptr<LogSink> makeStderrLogSink();
// Appends time-stamped lines to a file (spdlog); the folder is created when missing. Returns a
// sink that drops everything when the file cannot be opened.
std::shared_ptr<LogSink> makeFileLogSink(const std::string& path);
// Drops every line.
std::shared_ptr<LogSink> makeNullLogSink();

class RunLog {
 public:
  static void writeData(std::string_view line);
  template <class... Args>
  static void write(fmt::format_string<Args...> format, Args&&... args) {
    writeData(fmt::format(format, std::forward<Args>(args)...));
  }
  // Installs `sink`; nullptr brings back the default file sink ("Logs/run.log").
  static void setSink(std::shared_ptr<LogSink> sink);
  static std::shared_ptr<LogSink> sink();
};

class SystemLog {
 public:
  static void writeData(std::string_view line);
  template <class... Args>
  static void write(fmt::format_string<Args...> format, Args&&... args) {
    writeData(fmt::format(format, std::forward<Args>(args)...));
  }
  // Installs `sink`; nullptr brings back stderr.
  static void setSink(std::shared_ptr<LogSink> sink);
  static std::shared_ptr<LogSink> sink();
};

}  // namespace dataparser
