#include "dataparser/util/run_log.h"

#include <gtest/gtest.h>

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
  // A file that cannot be opened gives a sink that drops lines instead of failing.
  auto broken = makeFileLogSink("/proc/forbidden/run.log");
  broken->write("dropped");
}

}  // namespace
}  // namespace dataparser
