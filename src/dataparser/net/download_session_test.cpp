#include "dataparser/net/download_session.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "dataparser/util/main_queue.h"
#include "tests/http_test_server.h"
#include "tests/test_support.h"

namespace dataparser {
namespace {

using namespace std::chrono_literals;
using testing::HttpTestServer;

// Records a task's events as one line each: "response", "data", "complete".
class RecordingDelegate final : public DownloadTaskDelegate {
 public:
  void didReceiveResponse(const std::shared_ptr<DownloadTask>&,
                          const DownloadResponse& response) override {
    std::lock_guard lock(mutex_);
    events_.push_back("response");
    response_ = response;
    onQueue_ = onQueue_ && MainQueue::isCurrent();
  }
  void didReceiveData(const std::shared_ptr<DownloadTask>&, std::span<const char> data) override {
    std::lock_guard lock(mutex_);
    if (events_.empty() || events_.back() != "data") events_.push_back("data");
    body_.append(data.data(), data.size());
    onQueue_ = onQueue_ && MainQueue::isCurrent();
  }
  void didCompleteWithError(const std::shared_ptr<DownloadTask>&,
                            std::optional<DownloadError> error) override {
    std::lock_guard lock(mutex_);
    events_.push_back("complete");
    error_ = std::move(error);
    onQueue_ = onQueue_ && MainQueue::isCurrent();
    completed_.notify_all();
  }

  bool waitForCompletion() {
    std::unique_lock lock(mutex_);
    return completed_.wait_for(lock, 30s,
                               [this] { return !events_.empty() && events_.back() == "complete"; });
  }

  std::mutex mutex_;
  std::condition_variable completed_;
  std::vector<std::string> events_;
  DownloadResponse response_;
  std::string body_;
  std::optional<DownloadError> error_;
  bool onQueue_ = true;
};

struct Fetch {
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
  std::shared_ptr<DownloadSession> session = DownloadSession::sessionWithDelegate(delegate);
};

Fetch fetch(const std::string& url, std::string range = "") {
  Fetch f;
  DownloadRequest request{url, {}};
  if (!range.empty()) request.setValueForHTTPHeaderField(range, "Range");
  auto task = f.session->dataTaskWithRequest(request);
  EXPECT_EQ(task->state(), DownloadTask::State::kSuspended);
  task->resume();
  EXPECT_TRUE(f.delegate->waitForCompletion()) << url;
  EXPECT_EQ(task->state(), DownloadTask::State::kCompleted);
  return f;
}

TEST(DownloadSessionTest, DeliversTheFinalResponseThenTheBodyThenTheCompletion) {
  HttpTestServer server;
  std::string content(100'000, 'q');
  content[500] = 'A';
  server.addFile("f.bin", content);

  Fetch f = fetch(server.url("/redirect/files/f.bin"), "bytes=500-");
  EXPECT_EQ(f.delegate->events_, (std::vector<std::string>{"response", "data", "complete"}));
  EXPECT_TRUE(f.delegate->onQueue_);
  EXPECT_FALSE(f.delegate->error_);
  const DownloadResponse& response = f.delegate->response_;
  EXPECT_EQ(response.statusCode, 206);  // not the redirect
  EXPECT_EQ(response.url, server.url("/files/f.bin"));
  EXPECT_EQ(response.expectedContentLength, 99'500);
  EXPECT_EQ(response.valueForHTTPHeaderField("content-range"), "bytes 500-99999/100000");
  EXPECT_EQ(f.delegate->body_, content.substr(500));

  Fetch chunked = fetch(server.url("/files/f.bin?chunked=1"));
  EXPECT_EQ(chunked.delegate->response_.expectedContentLength, -1);
  EXPECT_EQ(chunked.delegate->body_, content);

  // An error page is a response with a body like any other at this level.
  Fetch missing = fetch(server.url("/files/nothing"));
  EXPECT_FALSE(missing.delegate->error_);
  EXPECT_EQ(missing.delegate->response_.statusCode, 404);
}

TEST(DownloadSessionTest, TasksThatNeverRanCompleteWithACancellation) {
  Fetch f;
  auto cancelled = f.session->dataTaskWithRequest({"http://127.0.0.1:1/never", {}});
  cancelled->cancel();
  EXPECT_TRUE(f.delegate->waitForCompletion());
  EXPECT_EQ(f.delegate->events_, std::vector<std::string>{"complete"});
  EXPECT_EQ(f.delegate->error_, DownloadError::cancelled());

  Fetch g;
  g.session->invalidateAndCancel();
  EXPECT_TRUE(g.session->isInvalidated());
  g.session->dataTaskWithRequest({"http://127.0.0.1:1/never", {}})->resume();
  EXPECT_TRUE(g.delegate->waitForCompletion());
  EXPECT_EQ(g.delegate->error_, DownloadError::cancelled());
}

TEST(DownloadSessionTest, HttpsVerifiesCertificatesAgainstTheExtraAuthority) {
  testing::TempDir dir;
  testing::TestCertificates certificates = testing::TestCertificates::make();
  std::string authority = dir.write("authority.pem", certificates.authorityPem);
  HttpTestServer server(certificates);
  server.addFile("secret.bin", "over TLS");

  DownloadSession::setAdditionalCAFile("");
  Fetch untrusted = fetch(server.url("/files/secret.bin"));
  ASSERT_TRUE(untrusted.delegate->error_);
  EXPECT_EQ(untrusted.delegate->error_->kind, DownloadError::Kind::kNetwork);
  EXPECT_TRUE(untrusted.delegate->body_.empty());

  DownloadSession::setAdditionalCAFile(authority);
  Fetch trusted = fetch(server.url("/files/secret.bin"));
  EXPECT_FALSE(trusted.delegate->error_) << trusted.delegate->error_->message;
  EXPECT_EQ(trusted.delegate->body_, "over TLS");

  // An authority file that cannot be read fails the transfer instead of trusting nothing new.
  DownloadSession::setAdditionalCAFile(dir.write("unreadable.pem", "not a certificate"));
  Fetch broken = fetch(server.url("/files/secret.bin"));
  EXPECT_TRUE(broken.delegate->error_);
  DownloadSession::setAdditionalCAFile("");
}

}  // namespace
}  // namespace dataparser
