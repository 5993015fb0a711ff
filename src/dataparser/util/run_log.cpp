#include "dataparser/util/run_log.h"

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "dataparser/util/file_helper.h"

namespace dataparser {
namespace {

class StderrLogSink final : public LogSink {
 public:
  void write(std::string_view line) override {
    std::lock_guard lock(mutex_);
    std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
  }

 private:
  std::mutex mutex_;
};

class NullLogSink final : public LogSink {
 public:
  void write(std::string_view) override {}
};

class FileLogSink final : public LogSink {
 public:
  explicit FileLogSink(std::shared_ptr<spdlog::logger> logger) : logger_(std::move(logger)) {}
  void write(std::string_view line) override {
    logger_->info(line);
    logger_->flush();
  }

 private:
  std::shared_ptr<spdlog::logger> logger_;
};

// One sink slot with a lazily built default.
class SinkSlot {
 public:
  using Factory = std::shared_ptr<LogSink> (*)();
  explicit SinkSlot(Factory makeDefault) : makeDefault_(makeDefault) {}

  std::shared_ptr<LogSink> get() {
    std::lock_guard lock(mutex_);
    if (!sink_) sink_ = makeDefault_();
    return sink_;
  }
  void set(std::shared_ptr<LogSink> sink) {
    std::lock_guard lock(mutex_);
    sink_ = std::move(sink);
  }

 private:
  std::mutex mutex_;
  std::shared_ptr<LogSink> sink_;
  Factory makeDefault_;
};

// The slots are never destroyed: background tasks (the delayed engine release, the main
// queue) may still log while the process exits and static objects are torn down.
SinkSlot& runLogSlot() {
  static SinkSlot* slot =
      new SinkSlot(+[] { return makeFileLogSink(productDomainPath() + "/Logs/run.log"); });
  return *slot;
}

SinkSlot& systemLogSlot() {
  static SinkSlot* slot = new SinkSlot(+[] { return makeStderrLogSink(); });
  return *slot;
}

}  // namespace

void MemoryLogSink::write(std::string_view line) {
  std::lock_guard lock(mutex_);
  lines_.emplace_back(line);
}

std::vector<std::string> MemoryLogSink::lines() const {
  std::lock_guard lock(mutex_);
  return lines_;
}

bool MemoryLogSink::contains(std::string_view line) const {
  return count(line) > 0;
}

std::size_t MemoryLogSink::count(std::string_view line) const {
  std::lock_guard lock(mutex_);
  return static_cast<std::size_t>(std::count(lines_.begin(), lines_.end(), line));
}

void MemoryLogSink::clear() {
  std::lock_guard lock(mutex_);
  lines_.clear();
}

std::shared_ptr<LogSink> makeStderrLogSink() {
  return std::make_shared<StderrLogSink>();
}

std::shared_ptr<LogSink> makeNullLogSink() {
  return std::make_shared<NullLogSink>();
}

std::shared_ptr<LogSink> makeFileLogSink(const std::string& path) {
  // A long-lived host writes for months: the file rotates at 10 MB, three old ones are kept
  // (run.1.log ... run.3.log).
  constexpr std::size_t kMaxBytes = 10 * 1024 * 1024;
  constexpr std::size_t kOldFiles = 3;
  try {
    auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, kMaxBytes, kOldFiles);
    auto logger = std::make_shared<spdlog::logger>("dataparser", std::move(sink));
    logger->set_pattern("[%Y-%m-%d %H:%M:%S.%e] %v");
    return std::make_shared<FileLogSink>(std::move(logger));
  } catch (const spdlog::spdlog_ex&) {
    return makeNullLogSink();
  }
}

void RunLog::writeData(std::string_view line) {
  runLogSlot().get()->write(line);
}
void RunLog::setSink(std::shared_ptr<LogSink> sink) {
  runLogSlot().set(std::move(sink));
}
std::shared_ptr<LogSink> RunLog::sink() {
  return runLogSlot().get();
}

void SystemLog::writeData(std::string_view line) {
  systemLogSlot().get()->write(line);
}
void SystemLog::setSink(std::shared_ptr<LogSink> sink) {
  systemLogSlot().set(std::move(sink));
}
std::shared_ptr<LogSink> SystemLog::sink() {
  return systemLogSlot().get();
}

}  // namespace dataparser
