// End-to-end tests of "dataparser download": the real CLI binary against the loopback server.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "dataparser/util/file_helper.h"
#include "tests/http_test_server.h"
#include "tests/test_support.h"

namespace dataparser::testing {
namespace {

#ifdef DATAPARSER_CLI_PATH

struct CliResult {
  int status = -1;
  std::string out;
  std::string err;
};

std::string shellQuoted(const std::string& text) {
  std::string result = "'";
  for (char c : text) {
    if (c == '\'') {
      result += "'\\''";
    } else {
      result += c;
    }
  }
  return result + "'";
}

// Runs "dataparser download URL DEST [extra]" with its output kept in `dir`.
CliResult runCli(const TempDir& dir, const std::string& url, const std::string& dest,
                 const std::string& extra = "") {
  std::string arguments = shellQuoted(url) + " " + shellQuoted(dest) + extra;
  std::string out = (dir.path() / "cli.out").string();
  std::string err = (dir.path() / "cli.err").string();
  std::string command = shellQuoted(DATAPARSER_CLI_PATH) + " download " + arguments + " >" +
                        shellQuoted(out) + " 2>" + shellQuoted(err) + " </dev/null";
  int raw = std::system(command.c_str());
  CliResult result;
  result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  result.out = readFile(out).value_or("");
  result.err = readFile(err).value_or("");
  return result;
}

TEST(CliDownloadTest, PrintsThePathUsedAndNeverReplacesAnExistingFile) {
  HttpTestServer server;
  server.addFile("a.txt", "hello from the server");
  TempDir dir;
  std::string dest = (dir.path() / "a.txt").string();

  CliResult first = runCli(dir, server.url("/files/a.txt"), dest);
  EXPECT_EQ(first.status, 0) << first.err;
  EXPECT_EQ(first.out, dest + "\n");
  EXPECT_EQ(readFile(dest), "hello from the server");
  EXPECT_EQ(first.err, "");  // no progress bar without a terminal

  CliResult second = runCli(dir, server.url("/files/a.txt"), dest);
  EXPECT_EQ(second.status, 0) << second.err;
  std::string used = second.out.substr(0, second.out.size() - 1);
  EXPECT_TRUE(used.starts_with((dir.path() / "a_").string())) << used;
  EXPECT_TRUE(used.ends_with(".txt")) << used;
  EXPECT_EQ(readFile(used), "hello from the server");
}

TEST(CliDownloadTest, FailuresExitNonZeroWithTheReason) {
  HttpTestServer server;
  server.addFile("c.bin", std::string(5000, 'c'));
  TempDir dir;
  std::string dest = (dir.path() / "c.bin").string();

  CliResult missing = runCli(dir, server.url("/files/nope"), dest);
  EXPECT_NE(missing.status, 0);
  EXPECT_NE(missing.err.find("404"), std::string::npos) << missing.err;
  EXPECT_EQ(missing.out, "");

  // No size announced: nothing is moved into place unless the caller names the size.
  CliResult unsized = runCli(dir, server.url("/files/c.bin?chunked=1"), dest);
  EXPECT_NE(unsized.status, 0);
  EXPECT_NE(unsized.err.find("--size"), std::string::npos) << unsized.err;
  EXPECT_FALSE(fileExists(dest));
  CliResult sized = runCli(dir, server.url("/files/c.bin?chunked=1"), dest, " --size 5000");
  EXPECT_EQ(sized.status, 0) << sized.err;
  EXPECT_EQ(readFile(dest), std::string(5000, 'c'));
}

TEST(CliDownloadTest, FolderDestinationsAndDestinationsThatCannotBe) {
  HttpTestServer server;
  server.addFile("d.txt", "data");
  TempDir dir;
  std::filesystem::create_directories(dir.path() / "box");
  const std::string box = (dir.path() / "box").string();
  struct Case {
    std::string url;
    std::string dest;
    int status;
    std::string out;  // the path printed
    std::string err;  // part of the reason
  };
  const Case cases[] = {
      {"/files/d.txt", box, 0, box + "/d.txt\n", ""},
      {"/files/d.txt?x=1", box + "/", 0, box + "/d_", ""},  // d.txt exists now
      {"/files/", box, 1, "", "names no file"},
      {"/files/d.txt", "", 1, "", "DEST is empty"},
      {"/files/d.txt", box + "/missing/d.txt", 1, "", "does not exist"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.url + " -> " + c.dest);
    const std::size_t before = server.requests().size();
    CliResult result = runCli(dir, server.url(c.url), c.dest);
    EXPECT_EQ(result.status, c.status) << result.err;
    EXPECT_TRUE(result.out.starts_with(c.out)) << result.out;
    EXPECT_NE(result.err.find(c.err), std::string::npos) << result.err;
    // A destination that cannot be is refused before anything is fetched.
    if (c.status != 0) {
      EXPECT_EQ(server.requests().size(), before);
    }
  }
  EXPECT_EQ(readFile(box + "/d.txt"), "data");
  EXPECT_FALSE(fileExists((dir.path() / "box_").string()));
}

TEST(CliDownloadTest, ResumesAfterADropAndTrustsTheNamedAuthority) {
  TempDir dir;
  TestCertificates certificates = TestCertificates::make();
  std::string authority = dir.write("ca.pem", certificates.authorityPem);
  HttpTestServer server(certificates);
  std::string content(40'000, 'r');
  content[12'345] = '!';
  server.addFile("r.bin", content);
  std::string dest = (dir.path() / "r.bin").string();

  CliResult untrusted = runCli(dir, server.url("/files/r.bin"), dest);
  EXPECT_NE(untrusted.status, 0);

  server.setFaults("dropAt=12345");
  CliResult dropped =
      runCli(dir, server.url("/files/r.bin"), dest, " --cacert " + shellQuoted(authority));
  server.setFaults("");
  EXPECT_NE(dropped.status, 0);
  EXPECT_FALSE(fileExists(dest));
  server.clearRequests();
  CliResult resumed =
      runCli(dir, server.url("/files/r.bin"), dest, " --resume --cacert " + shellQuoted(authority));
  EXPECT_EQ(resumed.status, 0) << resumed.err;
  ASSERT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(server.requests()[0].range, "bytes=12345-");
  EXPECT_EQ(readFile(dest), content);
}

#endif  // DATAPARSER_CLI_PATH

}  // namespace
}  // namespace dataparser::testing
