#include "dataparser/net/file_downloader.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <semaphore>
#include <set>
#include <thread>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/main_queue.h"
#include "tests/http_test_server.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::HttpTestServer;
using testing::TempDir;

// Bytes that differ at every position, so a misplaced range shows.
std::string makeContent(std::size_t size, unsigned seed = 7) {
  std::mt19937 random(seed);
  std::string content(size, '\0');
  for (char& c : content)
    c = static_cast<char>(random() & 0xff);
  return content;
}

std::string readAll(const std::string& path) {
  return readFile(path).value_or("<missing>");
}

using Progress = std::pair<std::int64_t, std::int64_t>;  // (total, received)

// What a download reported, recorded from the MainQueue.
struct Outcome {
  std::mutex mutex;
  std::condition_variable changed;
  int completions = 0;
  std::optional<DownloadError> error;
  std::vector<Progress> progress;
  bool allOnMainQueue = true;

  std::size_t progressCount() { return std::lock_guard(mutex), progress.size(); }
  int completionCount() { return std::lock_guard(mutex), completions; }
  bool waitForCompletion(std::chrono::seconds limit = 30s) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, limit, [this] { return completions > 0; });
  }
  bool waitForProgress() {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, 30s, [this] { return !progress.empty() || completions > 0; });
  }
  // Runs `record` under the lock, on the MainQueue.
  template <typename F>
  void record(F record) {
    std::lock_guard lock(mutex);
    allOnMainQueue = allOnMainQueue && MainQueue::isCurrent();
    record();
    changed.notify_all();
  }
};

std::shared_ptr<FileDownloader> makeDownloader(const std::string& url, const std::string& path,
                                               const std::shared_ptr<Outcome>& outcome) {
  return FileDownloader::initWithURL(
      url, path,
      [outcome](std::int64_t total, std::int64_t received) {
        outcome->record([&] { outcome->progress.emplace_back(total, received); });
      },
      [outcome](std::optional<DownloadError> error) {
        outcome->record([&] { ++outcome->completions, outcome->error = std::move(error); });
      });
}

struct Attempt {
  std::shared_ptr<Outcome> outcome = std::make_shared<Outcome>();
  std::shared_ptr<FileDownloader> downloader;
};

// Starts a download and waits for its completion.
Attempt download(const std::string& url, const std::string& path, bool resumable = false,
                 std::int64_t expectedContentLength = 0) {
  Attempt run;
  run.downloader = makeDownloader(url, path, run.outcome);
  run.downloader->setResumable(resumable);
  run.downloader->setExpectedContentLength(expectedContentLength);
  run.downloader->start();
  EXPECT_TRUE(run.outcome->waitForCompletion()) << url;
  MainQueue::drain();
  return run;
}

std::string cacheFileFor(const std::string& name) {
  return (fs::path(userCachesPath()) / "Quillmark" / name).string();
}

// A cache file, with the record of an earlier attempt at `url` when one is given.
std::string writeCacheFile(const std::string& name, std::string_view content,
                           const std::string& url = "", std::int64_t total = 0,
                           const std::string& validator = "") {
  std::string path = cacheFileFor(name);
  fs::create_directories(fs::path(path).parent_path() / ".records");
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
  if (!url.empty()) {
    std::ofstream(fs::path(path).parent_path() / ".records" / name, std::ios::trunc)
        << url << "\n"
        << total << "\n"
        << validator << "\n";
  }
  return path;
}

Date now() {
  return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
}

class FileDownloaderTest : public ::testing::Test {
 protected:
  HttpTestServer server;
  TempDir dir;
  std::string dest(std::string_view name) const { return (dir.path() / name).string(); }
};

TEST_F(FileDownloaderTest, FreshDownloadAsksForEverythingAndMovesTheFileIntoPlace) {
  std::string content = makeContent(300'000);
  server.addFile("photo.jpg", content);
  writeCacheFile("photo.jpg", "stale bytes of an earlier attempt");  // not resumable: dropped

  Attempt run = download(server.url("/files/photo.jpg"), dest("photo.jpg"));

  ASSERT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(server.requests()[0].range, "bytes=0-");
  EXPECT_FALSE(run.outcome->error);
  EXPECT_EQ(run.outcome->completions, 1);
  EXPECT_EQ(readAll(dest("photo.jpg")), content);
  EXPECT_FALSE(fileExists(cacheFileFor("photo.jpg")));
  EXPECT_EQ(run.downloader->destinationPath(), dest("photo.jpg"));
  // Progress runs up to the total before the completion, on the MainQueue.
  ASSERT_FALSE(run.outcome->progress.empty());
  EXPECT_EQ(run.outcome->progress.back(), Progress(300'000, 300'000));
  EXPECT_TRUE(std::is_sorted(run.outcome->progress.begin(), run.outcome->progress.end()));
  EXPECT_TRUE(run.outcome->allOnMainQueue);
  EXPECT_EQ(run.downloader->currentLength(), 0);
  EXPECT_EQ(run.downloader->fileLength(), 0);
  // A second start after completion resumes nothing.
  run.downloader->start();
  MainQueue::drain();
  EXPECT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(run.outcome->completionCount(), 1);
}

TEST_F(FileDownloaderTest, ResumableDownloadAsksForTheRemainderOfTheCacheFile) {
  std::string content = makeContent(2000);
  server.addFile("doc.pdf", content);
  writeCacheFile("doc.pdf", content.substr(0, 500), server.url("/files/doc.pdf"), 2000,
                 HttpTestServer::etagOf(content));

  Attempt run = download(server.url("/files/doc.pdf"), dest("doc.pdf"), /*resumable=*/true);

  ASSERT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(server.requests()[0].range, "bytes=500-");
  EXPECT_EQ(server.requests()[0].ifRange, HttpTestServer::etagOf(content));
  EXPECT_FALSE(run.outcome->error);
  EXPECT_EQ(readAll(dest("doc.pdf")), content);
  // 1500 announced bytes on top of the 500 in the cache file.
  ASSERT_FALSE(run.outcome->progress.empty());
  EXPECT_EQ(run.outcome->progress.front().first, 2000);
  EXPECT_EQ(run.outcome->progress.back().second, 2000);
}

TEST(FileDownloaderSizeTest, ExpectedLengthTakesTheFirstRuleThatApplies) {
  using Header = std::pair<std::string, std::string>;
  struct Case {
    const char* name;
    std::int64_t callerTotal, currentLength, bodyLength;
    std::vector<Header> headers;
    bool http;
    std::int64_t expected;
  };
  const Header length1500{"Content-Length", "1500"};
  auto range = [](const char* value) { return Header{"Content-Range", value}; };
  const Case cases[] = {
      {"caller's total wins", 77, 500, 1500, {length1500}, true, 77},
      {"body plus cache file", 0, 500, 1500, {length1500}, true, 2000},
      {"body alone", 0, 0, 10, {}, true, 10},
      {"header, body length unknown", 0, 500, -1, {{"content-length", "4096"}}, true, 4096},
      {"Content-Range total", 0, 0, -1, {range("bytes 0-99/4096")}, true, 4096},
      {"zero length falls through",
       0,
       0,
       -1,
       {{"Content-Length", "0"}, range("bytes 0-9/10")},
       true,
       10},
      {"unknown total", 0, 0, -1, {range("bytes */*")}, true, 0},
      {"nothing after the slash", 0, 0, -1, {range("bytes 0-99/")}, true, 0},
      {"no slash", 0, 0, -1, {range("bytes 0-99")}, true, 0},
      {"no size at all", 0, 300, -1, {}, true, 0},
      {"headers only count for HTTP", 0, 0, -1, {{"Content-Length", "5"}}, false, 0},
  };
  for (const Case& c : cases) {
    auto downloader = FileDownloader::initWithURL("http://127.0.0.1:1/x", "/tmp/x", {}, {});
    downloader->setExpectedContentLength(c.callerTotal);
    downloader->setCurrentLength(c.currentLength);
    DownloadResponse response;
    response.expectedContentLength = c.bodyLength;
    response.headers = c.headers;
    response.isHTTP = c.http;
    EXPECT_EQ(downloader->expectedLength(response), c.expected) << c.name;
  }
}

TEST_F(FileDownloaderTest, ContentRangeAloneGivesTheTotal) {
  std::string content = makeContent(4096);
  server.addFile("a.bin", content);
  // Chunked (no Content-Length), only "Content-Range: bytes 0-4095/4096" tells the size.
  Attempt run = download(server.url("/files/a.bin?chunked=1&contentRange=1"), dest("a.bin"));
  EXPECT_FALSE(run.outcome->error);
  EXPECT_EQ(readAll(dest("a.bin")), content);
  ASSERT_FALSE(run.outcome->progress.empty());
  EXPECT_EQ(run.outcome->progress.back(), Progress(4096, 4096));
}

TEST_F(FileDownloaderTest, UnknownTotalGivesNoProgressAndNothingMovedUnlessTheCallerKnowsIt) {
  std::string content = makeContent(50'000);
  server.addFile("song.mp3", content);

  Attempt unknown = download(server.url("/files/song.mp3?chunked=1"), dest("song.mp3"));
  EXPECT_TRUE(unknown.outcome->progress.empty());
  EXPECT_FALSE(unknown.outcome->error);  // the caller has to look at the destination
  EXPECT_FALSE(fileExists(dest("song.mp3")));
  EXPECT_FALSE(fileExists(cacheFileFor("song.mp3")));

  Attempt known =
      download(server.url("/files/song.mp3?chunked=1"), dest("song.mp3"), false, 50'000);
  EXPECT_FALSE(known.outcome->error);
  EXPECT_EQ(readAll(dest("song.mp3")), content);
  ASSERT_FALSE(known.outcome->progress.empty());
  EXPECT_EQ(known.outcome->progress.back(), Progress(50'000, 50'000));
}

TEST_F(FileDownloaderTest, ExistingDestinationIsNeverOverwritten) {
  std::string content = makeContent(1000);
  server.addFile("b.jpg", content);
  server.addFile("notes", content);
  fs::create_directories(dir.path() / "a");
  struct Case {
    std::string name;
    std::string extension;  // "" for none: no trailing dot
  };
  for (const Case& c : {Case{"a/b.jpg", ".jpg"}, Case{"a/notes", ""}}) {
    std::string existing = dir.write(c.name, "precious");
    Date before = now();
    Attempt run = download(server.url("/files/" + fs::path(c.name).filename().string()), existing);
    Date after = now();
    EXPECT_FALSE(run.outcome->error) << c.name;
    EXPECT_EQ(readAll(existing), "precious") << c.name;

    std::string used = run.downloader->destinationPath();
    std::string stem = dest(fs::path(c.name).replace_extension().string()) + "_";
    ASSERT_TRUE(used.starts_with(stem)) << used;
    ASSERT_TRUE(used.ends_with(c.extension)) << used;
    std::string stamp = used.substr(stem.size(), used.size() - stem.size() - c.extension.size());
    EXPECT_EQ(stamp.size(), 14u) << used;
    EXPECT_GE(stamp, FileDownloader::convertDate(before));
    EXPECT_LE(stamp, FileDownloader::convertDate(after));
    EXPECT_EQ(readAll(used), content);
  }
}

TEST_F(FileDownloaderTest, ASecondClashInTheSameSecondTakesTheNextFreeName) {
  std::string content = makeContent(100);
  server.addFile("c.txt", content);
  std::string existing = dir.write("c.txt", "precious");
  // Every stamped name of the next few seconds is taken already.
  Date start = now();
  std::vector<std::string> taken;
  for (int s = 0; s < 5; ++s) {
    taken.push_back(dir.write(
        "c_" + FileDownloader::convertDate(start + std::chrono::seconds(s)) + ".txt", "older"));
  }
  Attempt run = download(server.url("/files/c.txt"), existing);
  EXPECT_FALSE(run.outcome->error) << run.outcome->error->message;
  std::string used = run.downloader->destinationPath();
  EXPECT_TRUE(used.ends_with("_1.txt")) << used;
  EXPECT_EQ(readAll(used), content);
  EXPECT_EQ(readAll(existing), "precious");
  for (const std::string& file : taken)
    EXPECT_EQ(readAll(file), "older");
}

TEST(FileDownloaderDateTest, ConvertDateUsesTheLocalTimeZone) {
  Date date = *dateWithSecondsSince1970(1706738399.75);  // 2024-01-31 21:59:59.75 UTC
  for (auto [zone, text] : {std::pair{"UTC0", "20240131215959"}, {"<+02>-2", "20240131235959"}}) {
    testing::LocalZone local(zone);
    EXPECT_EQ(FileDownloader::convertDate(date), text) << zone;
  }
}

TEST(FileDownloaderPathTest, CacheFileLivesInTheCachesFolderUnderTheDestinationsName) {
  std::string folder = (fs::path(userCachesPath()) / "Quillmark").string();
  fs::remove_all(folder);
  struct Case {
    const char* localPath;
    const char* cacheName;
  };
  for (Case c :
       {Case{"/some/where/IMG_0001.HEIC", "IMG_0001.HEIC"}, Case{"relative/clip.mov", "clip.mov"},
        Case{"/a/folder/", "folder"}, Case{"/a/..", "_"}, Case{"", "_"}}) {
    auto downloader = FileDownloader::initWithURL("http://127.0.0.1:1/x", c.localPath, {}, {});
    EXPECT_EQ(downloader->cacheFilePath(), folder + "/" + c.cacheName) << c.localPath;
  }
  EXPECT_TRUE(fs::is_directory(folder));
  EXPECT_EQ(FileDownloader::fileLengthForPath(folder + "/missing"), 0);
  EXPECT_EQ(FileDownloader::fileLengthForPath(writeCacheFile("x", "12345")), 5);
}

TEST_F(FileDownloaderTest, SlowTrickleReportsGrowingProgress) {
  std::string content = makeContent(8 * 1024);
  server.addFile("slow.bin", content);
  Attempt run = download(server.url("/files/slow.bin?trickle=512&every=10"), dest("slow.bin"));
  EXPECT_FALSE(run.outcome->error);
  EXPECT_EQ(readAll(dest("slow.bin")), content);
  ASSERT_GE(run.outcome->progress.size(), 4u);
  for (std::size_t i = 1; i < run.outcome->progress.size(); ++i) {
    EXPECT_EQ(run.outcome->progress[i].first, 8 * 1024);
    EXPECT_GT(run.outcome->progress[i].second, run.outcome->progress[i - 1].second);
  }
}

TEST_F(FileDownloaderTest, DroppedConnectionKeepsThePartialFileForALaterResume) {
  std::string content = makeContent(5000);
  server.addFile("v.mp4", content);

  server.setFaults("dropAt=1000");
  Attempt dropped = download(server.url("/files/v.mp4"), dest("v.mp4"));
  server.setFaults("");
  ASSERT_TRUE(dropped.outcome->error);
  EXPECT_EQ(dropped.outcome->error->kind, DownloadError::Kind::kNetwork);
  EXPECT_FALSE(dropped.outcome->error->message.empty());
  EXPECT_FALSE(fileExists(dest("v.mp4")));
  EXPECT_EQ(readAll(cacheFileFor("v.mp4")), content.substr(0, 1000));

  server.clearRequests();
  Attempt resumed = download(server.url("/files/v.mp4"), dest("v.mp4"), /*resumable=*/true);
  EXPECT_FALSE(resumed.outcome->error);
  EXPECT_EQ(server.requests().at(0).range, "bytes=1000-");
  EXPECT_EQ(server.requests().at(0).ifRange, HttpTestServer::etagOf(content));
  EXPECT_EQ(readAll(dest("v.mp4")), content);
}

TEST_F(FileDownloaderTest, HttpErrorStatusIsAFailureAndTheErrorPageIsNeverKept) {
  const std::string image = makeContent(3000);
  server.addFile("img.png", image);
  for (auto [path, status] : {std::pair{"/files/img.png?status=404", 404},
                              {"/files/img.png?status=500", 500},
                              {"/files/missing.png", 404}}) {
    SCOPED_TRACE(path);
    std::string partial = writeCacheFile("img.png", "partial-prefix", server.url(path), 3000,
                                         HttpTestServer::etagOf(image));
    Attempt run = download(server.url(path), dest("img.png"), /*resumable=*/true);
    ASSERT_TRUE(run.outcome->error);
    EXPECT_EQ(run.outcome->error->kind, DownloadError::Kind::kHTTPStatus);
    EXPECT_EQ(run.outcome->error->code, status);
    EXPECT_FALSE(fileExists(dest("img.png")));
    EXPECT_EQ(readAll(partial), "partial-prefix");
    EXPECT_TRUE(run.outcome->progress.empty());
  }
}

TEST_F(FileDownloaderTest, RedirectsAreFollowedWithTheRange) {
  std::string content = makeContent(4000);
  server.addFile("r.bin", content);
  writeCacheFile("r.bin", content.substr(0, 1234), server.url("/redirect/files/r.bin"), 4000,
                 HttpTestServer::etagOf(content));
  Attempt run = download(server.url("/redirect/files/r.bin"), dest("r.bin"), /*resumable=*/true);
  EXPECT_FALSE(run.outcome->error);
  EXPECT_EQ(readAll(dest("r.bin")), content);
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].path, "/redirect/files/r.bin");
  EXPECT_EQ(requests[1].path, "/files/r.bin");
  EXPECT_EQ(requests[1].range, "bytes=1234-");
}

TEST_F(FileDownloaderTest, ServerIgnoringTheRangeRestartsTheCacheFile) {
  std::string content = makeContent(6000);
  server.addFile("i.bin", content);
  writeCacheFile("i.bin", std::string(700, 'x'), server.url("/files/i.bin?ignoreRange=1"), 6000,
                 HttpTestServer::etagOf(content));
  Attempt run =
      download(server.url("/files/i.bin?ignoreRange=1"), dest("i.bin"), /*resumable=*/true);
  EXPECT_EQ(server.requests().at(0).range, "bytes=700-");
  EXPECT_FALSE(run.outcome->error);
  EXPECT_EQ(readAll(dest("i.bin")), content);  // not 700 stale bytes plus a second copy
  ASSERT_FALSE(run.outcome->progress.empty());
  EXPECT_EQ(run.outcome->progress.back(), Progress(6000, 6000));
}

TEST_F(FileDownloaderTest, CacheFileLongerThanTheTotalIsDeleted) {
  std::string content = makeContent(3000);
  server.addFile("l.bin", content);
  // The caller's total is wrong: the body outgrows it.
  Attempt run = download(server.url("/files/l.bin"), dest("l.bin"), false, 100);
  EXPECT_FALSE(run.outcome->error);
  EXPECT_FALSE(fileExists(dest("l.bin")));
  EXPECT_FALSE(fileExists(cacheFileFor("l.bin")));
}

TEST_F(FileDownloaderTest, UnsatisfiableRangeFinishesAWholeCacheFileAndDropsALongerOne) {
  std::string content = makeContent(3000);
  server.addFile("w.bin", content);
  writeCacheFile("w.bin", content, server.url("/files/w.bin"), 3000,
                 HttpTestServer::etagOf(content));
  Attempt whole = download(server.url("/files/w.bin"), dest("w.bin"), /*resumable=*/true);
  EXPECT_EQ(server.requests().at(0).range, "bytes=3000-");
  EXPECT_FALSE(whole.outcome->error);
  EXPECT_EQ(readAll(dest("w.bin")), content);

  // Recorded without a total, so only the server can tell that the cache file is too long.
  writeCacheFile("w2.bin", content + "extra", server.url("/files/w2.bin"), 0,
                 HttpTestServer::etagOf(content));
  server.addFile("w2.bin", content);
  Attempt longer = download(server.url("/files/w2.bin"), dest("w2.bin"), /*resumable=*/true);
  ASSERT_TRUE(longer.outcome->error);
  EXPECT_EQ(longer.outcome->error->code, 416);
  EXPECT_FALSE(fileExists(dest("w2.bin")));
  EXPECT_FALSE(fileExists(cacheFileFor("w2.bin")));
}

TEST_F(FileDownloaderTest, FailureBeforeAnyAnswerKeepsTheCacheFile) {
  int closedPort = 0;
  {
    HttpTestServer gone;
    closedPort = gone.port();
  }
  const std::string url = "http://127.0.0.1:" + std::to_string(closedPort) + "/files/c.bin";
  std::string cache = writeCacheFile("c.bin", "first half", url, 20, "\"tag\"");
  Attempt run = download(url, dest("c.bin"), /*resumable=*/true);
  ASSERT_TRUE(run.outcome->error);
  EXPECT_EQ(run.outcome->error->kind, DownloadError::Kind::kNetwork);
  EXPECT_EQ(readAll(cache), "first half");
  EXPECT_FALSE(fileExists(dest("c.bin")));
}

TEST_F(FileDownloaderTest, UnwritableCacheFolderIsAFileFailure) {
  server.addFile("u.bin", makeContent(100));
  std::string folder = (fs::path(userCachesPath()) / "Quillmark").string();
  fs::remove_all(folder);
  fs::create_directories(userCachesPath());
  std::ofstream(folder) << "a file, not a folder";
  Attempt run = download(server.url("/files/u.bin"), dest("u.bin"));
  ASSERT_TRUE(run.outcome->error);
  EXPECT_EQ(run.outcome->error->kind, DownloadError::Kind::kFile);
  EXPECT_FALSE(fileExists(dest("u.bin")));
  fs::remove(folder);
}

TEST_F(FileDownloaderTest, CancelDeliversACancellationAndKeepsThePartialFile) {
  std::string content = makeContent(64 * 1024);
  server.addFile("t.bin", content);
  Attempt run;
  run.downloader =
      makeDownloader(server.url("/files/t.bin?trickle=1024&every=20"), dest("t.bin"), run.outcome);
  run.downloader->start();
  ASSERT_TRUE(run.outcome->waitForProgress());
  run.downloader->cancel();
  EXPECT_FALSE(run.downloader->downloadTask());
  EXPECT_FALSE(run.downloader->session());
  ASSERT_TRUE(run.outcome->waitForCompletion(5s));
  MainQueue::drain();
  EXPECT_EQ(run.outcome->completionCount(), 1);
  ASSERT_TRUE(run.outcome->error);
  EXPECT_EQ(*run.outcome->error, DownloadError::cancelled());
  EXPECT_FALSE(fileExists(dest("t.bin")));
  std::string partial = readAll(cacheFileFor("t.bin"));
  EXPECT_GT(partial.size(), 0u);
  EXPECT_LT(partial.size(), content.size());
  EXPECT_EQ(partial, content.substr(0, partial.size()));
}

TEST_F(FileDownloaderTest, NothingIsReportedAfterSuspendEvenForQueuedEvents) {
  std::string content = makeContent(256 * 1024);
  server.addFile("s.bin", content);

  // Events queue up behind a blocked MainQueue, then suspend comes first.
  std::binary_semaphore gate{0};
  MainQueue::post([&] { gate.acquire(); });
  Attempt queued;
  queued.downloader = makeDownloader(server.url("/files/s.bin"), dest("s.bin"), queued.outcome);
  queued.downloader->start();
  for (int i = 0; i < 500 && server.requests().empty(); ++i)
    std::this_thread::sleep_for(2ms);
  std::this_thread::sleep_for(200ms);  // the whole answer arrives and waits on the queue
  queued.downloader->suspend();
  gate.release();
  std::this_thread::sleep_for(100ms);
  MainQueue::drain();
  MainQueue::drain();
  EXPECT_EQ(queued.outcome->progressCount(), 0u);
  EXPECT_EQ(queued.outcome->completionCount(), 0);
  EXPECT_FALSE(fileExists(dest("s.bin")));
  EXPECT_FALSE(queued.downloader->progressHandler());
  EXPECT_FALSE(queued.downloader->completionHandler());

  // Suspended from its own progress callback, in the middle of a slow answer.
  Attempt inner;
  std::weak_ptr<FileDownloader> weak;
  inner.downloader = FileDownloader::initWithURL(
      server.url("/files/s.bin?trickle=4096&every=10"), dest("s2.bin"),
      [&inner, &weak](std::int64_t, std::int64_t) {
        inner.outcome->record([&] { inner.outcome->progress.emplace_back(0, 0); });
        if (auto self = weak.lock()) self->suspend();
      },
      [&inner](std::optional<DownloadError>) {
        inner.outcome->record([&] { ++inner.outcome->completions; });
      });
  weak = inner.downloader;
  inner.downloader->start();
  for (int i = 0; i < 1000 && inner.outcome->progressCount() == 0; ++i)
    std::this_thread::sleep_for(2ms);
  std::this_thread::sleep_for(150ms);
  MainQueue::drain();
  EXPECT_EQ(inner.outcome->progressCount(), 1u);
  EXPECT_EQ(inner.outcome->completionCount(), 0);
  EXPECT_FALSE(fileExists(dest("s2.bin")));
}

TEST_F(FileDownloaderTest, StartedDownloadOutlivesItsCallersReferenceAndLogsDealloc) {
  testing::LogCapture logs;
  server.addFile("d.bin", makeContent(10'000));
  auto outcome = std::make_shared<Outcome>();
  auto downloader = makeDownloader(server.url("/files/d.bin"), dest("d.bin"), outcome);
  std::string description = downloader->description();
  EXPECT_TRUE(description.starts_with("<FileDownloader: 0x")) << description;
  EXPECT_TRUE(description.ends_with(">")) << description;
  std::weak_ptr<FileDownloader> weak = downloader;
  downloader->start();
  downloader.reset();

  ASSERT_TRUE(outcome->waitForCompletion());
  EXPECT_FALSE(outcome->error);
  EXPECT_TRUE(fileExists(dest("d.bin")));
  for (int i = 0; i < 1000 && !weak.expired(); ++i) {
    MainQueue::drain();
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(logs.run().count(description + " dealloc"), 1u);
}

// The cache file is named after the destination only: what it holds is checked before a byte
// is appended to it.
TEST_F(FileDownloaderTest, ResumeContinuesOnlyTheSameUnchangedFile) {
  const std::string first = makeContent(3000, 1);
  const std::string second = makeContent(3000, 2);
  struct Case {
    const char* name;
    const char* firstPath;    // dropped at byte 1000
    const char* firstFaults;  // beside the drop
    const char* secondPath;   // the resumed attempt, after the file at firstPath became `second`
                              // when `changed`
    const char* secondFaults;
    bool changed;
    const char* range;  // of the resumed request
    bool ifRange;
    bool fails;  // the resumed attempt fails and drops the cache file
  };
  const Case cases[] = {
      {"same file", "/files/a/x.bin", "", "/files/a/x.bin", "", false, "bytes=1000-", true, false},
      {"another URL, same name", "/files/a/x.bin", "", "/files/b/x.bin", "", false, "bytes=0-",
       false, false},
      {"changed file", "/files/a/x.bin", "", "/files/a/x.bin", "", true, "bytes=1000-", true,
       false},
      {"changed file, If-Range ignored", "/files/a/x.bin", "", "/files/a/x.bin", "ignoreIfRange=1",
       true, "bytes=1000-", true, true},
      {"no validator", "/files/a/x.bin", "noValidator=1", "/files/a/x.bin", "", false, "bytes=0-",
       false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    server.addFile("a/x.bin", first);
    server.addFile("b/x.bin", second);
    server.setFaults(std::string("dropAt=1000&") + c.firstFaults);
    Attempt dropped = download(server.url(c.firstPath), dest("x.bin"), /*resumable=*/true);
    ASSERT_TRUE(dropped.outcome->error);
    ASSERT_EQ(FileDownloader::fileLengthForPath(cacheFileFor("x.bin")), 1000);

    if (c.changed) server.addFile("a/x.bin", second);
    server.setFaults(c.secondFaults);
    server.clearRequests();
    Attempt resumed = download(server.url(c.secondPath), dest("x.bin"), /*resumable=*/true);
    ASSERT_EQ(server.requests().size(), 1u);
    EXPECT_EQ(server.requests()[0].range, c.range);
    EXPECT_EQ(server.requests()[0].ifRange.empty(), !c.ifRange);
    if (c.fails) {
      EXPECT_TRUE(resumed.outcome->error);
      EXPECT_FALSE(fileExists(dest("x.bin")));
      EXPECT_FALSE(fileExists(cacheFileFor("x.bin")));
      // The next attempt starts over.
      server.setFaults("");
      resumed = download(server.url(c.secondPath), dest("x.bin"), /*resumable=*/true);
    }
    EXPECT_FALSE(resumed.outcome->error);
    const bool expectSecond = c.changed || std::string_view(c.secondPath) != c.firstPath;
    EXPECT_EQ(readAll(dest("x.bin")), expectSecond ? second : first);
    fs::remove(dest("x.bin"));
  }
}

// --- soak ---------------------------------------------------------------------------------------

std::string sha256(std::string_view bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr);
  return std::string(reinterpret_cast<char*>(digest), length);
}

TEST_F(FileDownloaderTest, SoakManyDroppedConnectionsEndByteIdentical) {
  constexpr std::size_t kSize = 64u << 20;
  constexpr int kDrops = 20;
  const std::string content = makeContent(kSize, 2024);
  const std::string expectedDigest = sha256(content);
  server.addFile("big.bin", content);

  std::mt19937_64 random(99);
  std::set<std::size_t> cuts;
  while (cuts.size() < kDrops)
    cuts.insert(1 + random() % (kSize - 1));

  // Watches the destination the whole time: it may only ever appear complete.
  const std::string destination = dest("big.bin");
  std::atomic<bool> watching = true;
  std::atomic<bool> partialSeen = false;
  std::thread watcher([&] {
    while (watching) {
      std::error_code error;
      auto size = fs::file_size(destination, error);
      if (!error && size != kSize) partialSeen = true;
      std::this_thread::sleep_for(200us);
    }
  });

  std::size_t previous = 0;
  for (std::size_t cut : cuts) {
    server.clearRequests();
    server.setFaults("dropAt=" + std::to_string(cut));
    Attempt run = download(server.url("/files/big.bin"), destination, /*resumable=*/true);
    ASSERT_TRUE(run.outcome->error) << cut;
    EXPECT_EQ(server.requests().at(0).range, "bytes=" + std::to_string(previous) + "-");
    EXPECT_EQ(FileDownloader::fileLengthForPath(cacheFileFor("big.bin")),
              static_cast<std::int64_t>(cut));
    EXPECT_FALSE(fileExists(destination));
    previous = cut;
  }
  server.setFaults("");
  Attempt last = download(server.url("/files/big.bin"), destination, /*resumable=*/true);
  watching = false;
  watcher.join();

  EXPECT_FALSE(last.outcome->error);
  EXPECT_FALSE(partialSeen);
  std::optional<std::string> result = readFile(destination);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->size(), kSize);
  EXPECT_TRUE(sha256(*result) == expectedDigest);
}

}  // namespace
}  // namespace dataparser
