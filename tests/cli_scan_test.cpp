// End-to-end tests of the CLI binary as a person meets it: stopping a long scan with signals, the
// usage, exit statuses and a working folder that cannot be made.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "dataparser/util/file_helper.h"
#include "tests/test_support.h"

extern char** environ;

namespace dataparser::testing {
namespace {

#ifdef DATAPARSER_CLI_PATH

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// One SMS block naming the same 1,000-conversation file many times over: minutes of work that
// only a stop cuts short. The file goes through the replay's templates copy.
std::string writeLongRecording(const TempDir& dir) {
  std::string text = "{\"chat_sessions\": [";
  for (int i = 0; i < 1000; ++i) {
    text += (i ? "," : "") + std::string("{\"chat_id\": ") + std::to_string(i) +
            ", \"chat_identifier\": \"+1555" + std::to_string(i) +
            "\", \"messages\": [{\"text\": \"hi\", \"send_date\": \"06-14-2024 09:12:05\", "
            "\"is_from_me\": 0}]}";
  }
  dir.write("recording/templates/chats.json", text + "]}");
  std::string block = "{\"sms_file_path\": [";
  for (int i = 0; i < 20000; ++i)
    block += (i ? "," : "") + std::string("\"{{TEMPLATES}}/chats.json\"");
  dir.write("recording/stream/000001-56.json", block + "]}");
  return (dir.path() / "recording").string();
}

// Starts the CLI with `arguments`, its working folders inside `dir` (the data folder may be
// replaced) and its output in dir/cli.out and dir/cli.err.
pid_t startCli(const TempDir& dir, std::vector<std::string> arguments, std::string dataHome = "") {
  if (dataHome.empty()) dataHome = (dir.path() / "data").string();
  std::vector<std::string> env;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    std::string_view text(*entry);
    if (!text.starts_with("XDG_DATA_HOME=") && !text.starts_with("XDG_CACHE_HOME=")) {
      env.emplace_back(text);
    }
  }
  env.push_back("XDG_DATA_HOME=" + dataHome);
  env.push_back("XDG_CACHE_HOME=" + (dir.path() / "cache").string());
  std::vector<char*> envp;
  for (std::string& entry : env)
    envp.push_back(entry.data());
  envp.push_back(nullptr);
  std::string program = DATAPARSER_CLI_PATH;
  std::vector<char*> argv = {program.data()};
  for (std::string& argument : arguments)
    argv.push_back(argument.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const std::string out = (dir.path() / "cli.out").string();
  const std::string err = (dir.path() / "cli.err").string();
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t pid = -1;
  if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0) {
    pid = -1;
  }
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

// The raw wait status, or -1 (after killing it) when the process outlived `limit`.
int waitAtMost(pid_t pid, std::chrono::milliseconds limit) {
  auto until = std::chrono::steady_clock::now() + limit;
  int status = 0;
  while (std::chrono::steady_clock::now() < until) {
    if (::waitpid(pid, &status, WNOHANG) == pid) return status;
    std::this_thread::sleep_for(20ms);
  }
  ::kill(pid, SIGKILL);
  ::waitpid(pid, &status, 0);
  return -1;
}

std::vector<std::string> replayCopies(const TempDir& dir) {
  std::vector<std::string> names;
  std::error_code error;
  fs::path temp = dir.path() / "data/org.dataparser.cli/temp";
  for (const auto& entry : fs::directory_iterator(temp, error)) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

TEST(CliStopTest, SignalsStopALongScanQuicklyAndLeaveNoTemporaryFiles) {
  struct Case {
    std::vector<int> signals;
    bool killed;  // ended by the signal itself rather than by the stopped scan
  };
  const Case cases[] = {
      {{SIGINT}, false},
      {{SIGTERM}, false},
      {{SIGINT, SIGINT}, true},  // a second Ctrl-C ends the process at once
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.signals.size() == 2 ? "twice" : strsignal(c.signals[0]));
    TempDir dir;
    std::string folder = writeLongRecording(dir);
    // A copy that a killed run left behind; no process has this id.
    fs::path stale = dir.path() / "data/org.dataparser.cli/temp/replay-2000000000-1-0";
    fs::create_directories(stale / "sms");
    pid_t pid = startCli(dir, {"scan", folder});
    ASSERT_GT(pid, 0);
    std::this_thread::sleep_for(1500ms);  // the SMS block is being parsed by now
    for (std::size_t i = 0; i < c.signals.size(); ++i) {
      // Signals sent back to back would merge into one.
      if (i > 0) std::this_thread::sleep_for(30ms);
      ::kill(pid, c.signals[i]);
    }
    int status = waitAtMost(pid, 5s);
    ASSERT_NE(status, -1) << "the scan went on after the stop";
    if (c.killed) {
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT);
      continue;
    }
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_TRUE(readFile(dir.str() + "/cli.out").value_or("").starts_with("type"));
    EXPECT_TRUE(replayCopies(dir).empty()) << replayCopies(dir).front();
  }
}

TEST(CliScanTest, UsageStatusesAndAWorkingFolderThatCannotBeMade) {
  TempDir dir;
  dir.write("rec/stream/000001-56.json", "{}");
  const std::string notAFolder = dir.write("plain-file", "x");
  struct Case {
    std::vector<std::string> arguments;
    bool blockedDataHome;  // the data folder is a file: nothing can be made below it
    int status;
    const char* out;  // expected at the start of stdout
    const char* err;  // expected somewhere in stderr
  };
  const Case cases[] = {
      {{}, false, 0, "dataparser: turns phone backups", ""},
      {{"--version"}, false, 0, "dataparser ", ""},
      {{"scan"}, false, 64, "", "folder is required"},
      {{"scan", "--no-such-option", "x"}, false, 64, "", "no-such-option"},
      {{"frobnicate"}, false, 64, "", "frobnicate"},
      {{"scan", dir.str() + "/nowhere"}, false, 1, "", "is not a folder"},
      {{"scan", (dir.path() / "rec").string()}, true, 1, "", "cannot create the working folder"},
      {{"scan", (dir.path() / "rec").string()}, false, 0, "type", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.arguments.empty() ? std::string("(none)") : c.arguments.back());
    pid_t pid = startCli(dir, c.arguments, c.blockedDataHome ? notAFolder : "");
    ASSERT_GT(pid, 0);
    int status = waitAtMost(pid, 20s);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), c.status);
    std::string out = readFile(dir.str() + "/cli.out").value_or("");
    std::string err = readFile(dir.str() + "/cli.err").value_or("");
    EXPECT_TRUE(out.starts_with(c.out)) << out;
    EXPECT_NE(err.find(c.err), std::string::npos) << err;
  }
}

#endif

}  // namespace
}  // namespace dataparser::testing
