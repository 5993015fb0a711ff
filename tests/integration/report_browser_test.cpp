// The HTML report in a real browser: headless Chromium opens the report of a recording from
// disk, and the test reads the page it built (--dump-dom) and a screenshot of it.
#include <gtest/gtest.h>
#include <vips/vips.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "tests/test_support.h"
#include "tools/dataparser/scan_command.h"

namespace dataparser::cli {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

const char* chromium() {
  for (const char* path : {"/usr/bin/chromium", "/usr/bin/chromium-browser"}) {
    if (fs::exists(path)) return path;
  }
  return nullptr;
}

std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs headless Chromium on `url` with `arguments`; its standard output.
std::string runChromium(const std::string& url, const std::string& arguments, const TempDir& dir) {
  const fs::path out = dir.path() / "chromium.out";
  const std::string command = std::string(chromium()) +
                              " --headless --no-sandbox --disable-gpu --no-first-run"
                              " --user-data-dir='" +
                              (dir.path() / "profile").string() + "' --virtual-time-budget=5000 " +
                              arguments + " '" + url + "' > '" + out.string() + "' 2>/dev/null";
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
  return slurp(out);
}

// A recording of one conversation whose texts try to become markup.
std::string probeRecording(const TempDir& dir) {
  // The picture lies inside the recording: files elsewhere count as missing.
  const std::string picture = (dir.path() / "probe/files/beach.png").string();
  fs::create_directories(dir.path() / "probe/files");
  fs::copy_file(testing::fixturePath("../../samples/sms-demo/files/Attachments/cd/02/beach.png"),
                picture);
  const std::string chats =
      dir.write("probe/chats.json", R"({"chat_sessions": [{"chat_id": 1,
      "chat_identifier": "+1555", "display_name": "<b>Probe</b> Person",
      "messages": [
    {"text": "<img src=x onerror=alert(1)>", "send_date": "01-02-2020 03:04:05"},
    {"text": "", "type": 1, "media_path": "~/Library/SMS/Attachments/beach.png",
     "media_backup_path": ")" + picture +
                                        R"(", "send_date": "01-02-2020 03:04:06"},
    {"text": "see you at <script>alert(2)</script> noon", "is_from_me": 1,
     "send_date": "01-02-2020 03:04:07"}]}]})");
  dir.write("probe/stream/000001-56.json", "{\"sms_file_path\": [\"" + chats + "\"]}");
  return (dir.path() / "probe").string();
}

// Two conversations of 600 messages each ("c1-m0" ... "c2-m599"): the one stored second crosses
// the boundary between two message files.
std::string pagedRecording(const TempDir& dir) {
  std::string chats = R"({"chat_sessions": [)";
  for (int c = 1; c <= 2; ++c) {
    chats += (c > 1 ? "," : "") + std::string(R"({"chat_id": )") + std::to_string(c) +
             R"(, "chat_identifier": "+155)" + std::to_string(c) + R"(", "messages": [)";
    for (int m = 0; m < 600; ++m) {
      chats += (m > 0 ? "," : "") + std::string(R"({"text": "c)") + std::to_string(c) + "-m" +
               std::to_string(m) + R"(", "send_date": "01-02-2020 03:)" + (m / 60 < 10 ? "0" : "") +
               std::to_string(m / 60) + ":" + (m % 60 < 10 ? "0" : "") + std::to_string(m % 60) +
               "\"}";
    }
    chats += "]}";
  }
  const std::string file = dir.write("paged/chats.json", chats + "]}");
  dir.write("paged/stream/000001-56.json", "{\"sms_file_path\": [\"" + file + "\"]}");
  return (dir.path() / "paged").string();
}

fs::path report(const std::string& folder, const TempDir& dir, const std::string& name) {
  ScanOptions options;
  options.folder = folder;
  options.reportDir = (dir.path() / name).string();
  options.progressBar = false;
  options.timeoutSeconds = 60;
  std::FILE* out = std::tmpfile();
  std::FILE* err = std::tmpfile();
  EXPECT_EQ(runScan(options, out, err), 0);
  std::fclose(out);
  std::fclose(err);
  return dir.path() / name / "index.html";
}

TEST(ReportBrowserTest, SampleReportShowsItsDataAndKeepsProbesAsText) {
  if (chromium() == nullptr) GTEST_SKIP() << "chromium is not installed (scripts/setup.sh)";
  TempDir dir;

  // The sample: its types with their counts, the first conversation open, a visible page.
  const fs::path sample =
      report((fs::path(DATAPARSER_TEST_FIXTURES) / "../../samples/sms-demo").lexically_normal(),
             dir, "sample");
  const std::string url = "file://" + sample.string() + "#type=524288&conversation=0";
  const std::string dom = runChromium(url, "--dump-dom", dir);
  for (const char* expected : {"Ann Lee", "Weekend trip", "Are we still on for Saturday?",
                               "Yes! 10am at the pier.", "bubble-row sent", "IMG_0001.JPG"}) {
    EXPECT_NE(dom.find(expected), std::string::npos) << expected << "\n" << dom;
  }
  const fs::path shot = dir.path() / "shot.png";
  runChromium(url, "--window-size=1200,800 --screenshot='" + shot.string() + "'", dir);
  VipsImage* image = vips_image_new_from_file(shot.c_str(), nullptr);
  ASSERT_NE(image, nullptr) << "no screenshot";
  double deviation = 0;
  ASSERT_EQ(vips_deviate(image, &deviation, nullptr), 0);
  g_object_unref(image);
  EXPECT_GT(deviation, 10.0) << "the screenshot is blank";

  // The probes: every hostile text shows as its characters, none became an element.
  const fs::path probe = report(probeRecording(dir), dir, "probe-report");
  const std::string probeDom =
      runChromium("file://" + probe.string() + "#type=524288&conversation=0", "--dump-dom", dir);
  EXPECT_NE(probeDom.find("&lt;img src=x onerror=alert(1)&gt;"), std::string::npos) << probeDom;
  EXPECT_NE(probeDom.find("see you at &lt;script&gt;alert(2)&lt;/script&gt; noon"),
            std::string::npos);
  EXPECT_NE(probeDom.find("&lt;b&gt;Probe&lt;/b&gt; Person"), std::string::npos);
  EXPECT_EQ(probeDom.find("<img src=\"x\""), std::string::npos);
  EXPECT_EQ(probeDom.find("<b>Probe"), std::string::npos);
  EXPECT_NE(probeDom.find("<img src=\"media/t"), std::string::npos) << "the picture's thumbnail";
  EXPECT_NE(slurp(probe).find("default-src 'none'"), std::string::npos);

  // Navigation names the types for people; a conversation shows all its messages, in order,
  // also where they span two message files.
  EXPECT_NE(probeDom.find(">SMS<"), std::string::npos) << probeDom;
  EXPECT_EQ(probeDom.find("IOSDataType"), std::string::npos);
  const fs::path paged = report(pagedRecording(dir), dir, "paged-report");
  std::set<std::string> shown;
  for (const char* conversation : {"0", "1"}) {
    const std::string pageDom =
        runChromium("file://" + paged.string() + "#type=524288&conversation=" + conversation,
                    "--dump-dom", dir);
    const std::string name = pageDom.find("\"text\">c1-m") != std::string::npos ? "c1" : "c2";
    std::size_t count = 0;
    std::size_t last = 0;
    for (int m = 0; m < 600; ++m) {
      std::size_t at = pageDom.find("\"text\">" + name + "-m" + std::to_string(m) + "<");
      if (at == std::string::npos || at < last) continue;
      last = at;
      ++count;
    }
    EXPECT_EQ(count, 600u) << name;
    shown.insert(name);
  }
  EXPECT_EQ(shown.size(), 2u);
}

}  // namespace
}  // namespace dataparser::cli
