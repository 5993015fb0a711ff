#include "dataparser/util/run_log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "tests/test_support.h"

namespace dataparser {
namespace {

TEST(RunLogTest, SinksReceiveOneLinePerCallAndCanBeSwapped) {
  testing::LogCapture capture;
  RunLog::write("*** start parse backup: {}", "/b");
  SystemLog::writeData(">>> bad");
  EXPECT_EQ(capture.run().lines(), std::vector<std::string>{"*** start parse backup: /b"});
  EXPECT_EQ(capture.system().lines(), std::vector<std::string>{">>> bad"});

  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 100; ++i)
        RunLog::writeData("line");
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(capture.run().count("line"), 400u);
}

TEST(RunLogTest, FileSinkAppendsTimestampedLinesAndCreatesItsFolder) {
  testing::TempDir dir;
  std::string file = dir.str() + "/Logs/run.log";
  {
    auto sink = makeFileLogSink(file);
    sink->write("first");
    sink->write("second");
  }
  std::ifstream in(file);
  std::stringstream content;
  content << in.rdbuf();
  EXPECT_NE(content.str().find("] first\n"), std::string::npos);
  EXPECT_NE(content.str().find("] second\n"), std::string::npos);
  // The file rotates instead of growing without end.
  {
    auto sink = makeFileLogSink(file);
    const std::string line(10000, 'x');
    for (int i = 0; i < 2200; ++i)
      sink->write(line);
  }
  EXPECT_TRUE(std::filesystem::exists(dir.str() + "/Logs/run.1.log"));
  EXPECT_TRUE(std::filesystem::exists(dir.str() + "/Logs/run.2.log"));
  EXPECT_LE(std::filesystem::file_size(file), 10u * 1024 * 1024);
  // A file that cannot be opened gives a sink that drops lines instead of failing.
  auto broken = makeFileLogSink("/proc/forbidden/run.log");
  broken->write("dropped");
}

// Counts the lines it receives.
class CountingSink final : public LogSink {
 public:
  void write(std::string_view) override { ++lines; }
  std::atomic<int> lines = 0;
};

// Set in the exiting child below. This global is built before main, so it is destroyed after
// every static object the library builds on first use: its destructor logs the way a background
// task that outlives main does (the delayed engine release logs one second after its callback).
// Leaves the process with 3 when the lines did not arrive.
std::atomic<CountingSink*> gExitSink = nullptr;
struct LogAfterStatics {
  ~LogAfterStatics() {
    CountingSink* sink = gExitSink.load();
    if (sink == nullptr) return;
    RunLog::writeData("late run-log line");
    SystemLog::writeData("late system-log line");
    if (sink->lines != 2) std::_Exit(3);
  }
} gLogAfterStatics;

[[noreturn]] void exitWhileSomethingStillLogs() {
  // The sink is owned by the logs alone, as a host's sink usually is.
  auto sink = std::make_shared<CountingSink>();
  gExitSink = sink.get();
  RunLog::setSink(sink);
  SystemLog::setSink(sink);
  sink.reset();
  std::exit(0);
}

TEST(RunLogDeathTest, LogsStillWorkWhileTheProcessExits) {
  EXPECT_EXIT(exitWhileSomethingStillLogs(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace dataparser
