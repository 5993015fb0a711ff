// DownloadSession and DownloadTask: the HTTP(S) client under FileDownloader, on libcurl.
//
// A session creates data tasks that stream one GET request each. A task runs its transfer on a
// worker thread of its own and delivers its events to the session's delegate on the MainQueue,
// in this order: at most one didReceiveResponse (the final response, after redirects), any
// number of didReceiveData (the body, in order), then exactly one didCompleteWithError, queued
// behind everything the earlier events posted to the MainQueue themselves.
//
// Redirects are followed (http and https only). HTTPS certificates and host names are verified
// against the system's certificate authorities plus, when set, one extra CA file
// (setAdditionalCAFile), for hosts with a private authority and for tests.
//
// The library never looks at the status code here: an error page is a response with a body like
// any other. Content encodings are not requested, so body lengths are the file's bytes.
//
// Ownership: the session holds its delegate weakly; a running task holds it strongly until its
// completion has been delivered (so a delegate whose transfer runs stays alive, like the
// platform's session retaining its delegate). Tasks hold their session's shared state, not the
// session. Worker threads still running at exit are cancelled and joined.
//
// Thread safety: every operation may be called from any thread. Delegate events run only on
// the MainQueue, one at a time; a delegate that blocks the MainQueue stalls its transfer after a
// few MiB of buffered body.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace dataparser {

// Why a transfer did not succeed. Nothing (an empty optional) means success.
struct DownloadError {
  enum class Kind {
    kCancelled,   // cancel() or the delegate stopped the transfer
    kNetwork,     // code: the libcurl error code
    kHTTPStatus,  // code: the HTTP status (400 and above)
    kFile,        // code: the errno of the failed file operation
  };
  Kind kind = Kind::kNetwork;
  int code = 0;
  std::string message;

  static DownloadError cancelled();
  bool operator==(const DownloadError&) const = default;
};

struct DownloadRequest {
  std::string url;
  // Extra request headers, sent as "Name: value".
  std::vector<std::pair<std::string, std::string>> headers;

  // The value of the first header named `name` (ASCII case-insensitive).
  std::optional<std::string> valueForHTTPHeaderField(std::string_view name) const;
  void setValueForHTTPHeaderField(std::string value, std::string name);
};

struct DownloadResponse {
  std::string url;  // the URL that answered, after redirects
  int statusCode = 0;
  // The body's length from "Content-Length"; -1 when unknown (absent, chunked, malformed).
  std::int64_t expectedContentLength = -1;
  // Header fields in arrival order, names as the server spelled them.
  std::vector<std::pair<std::string, std::string>> headers;
  bool isHTTP = true;  // only http and https are spoken

  std::optional<std::string> valueForHTTPHeaderField(std::string_view name) const;
};

class DownloadTask;

// Receives a session's task events on the MainQueue.
class DownloadTaskDelegate {
 public:
  virtual ~DownloadTaskDelegate() = default;
  virtual void didReceiveResponse(const std::shared_ptr<DownloadTask>& task,
                                  const DownloadResponse& response) = 0;
  virtual void didReceiveData(const std::shared_ptr<DownloadTask>& task,
                              std::span<const char> data) = 0;
  virtual void didCompleteWithError(const std::shared_ptr<DownloadTask>& task,
                                    std::optional<DownloadError> error) = 0;
};

class DownloadTask : public std::enable_shared_from_this<DownloadTask> {
 public:
  enum class State { kSuspended, kRunning, kCanceling, kCompleted };

  ~DownloadTask();
  DownloadTask(const DownloadTask&) = delete;
  DownloadTask& operator=(const DownloadTask&) = delete;

  const DownloadRequest& originalRequest() const { return request_; }
  State state() const;
  // Starts the transfer on the first call; later calls do nothing (a finished task stays
  // finished).
  void resume();
  // Stops the transfer. A running task still completes, with DownloadError::cancelled(); a task
  // never resumed completes at once with it.
  void cancel();

  struct Shared;
  struct Transfer;

 private:
  friend class DownloadSession;
  DownloadTask(std::shared_ptr<Shared> session, DownloadRequest request);

  std::shared_ptr<Shared> session_;
  DownloadRequest request_;
  std::shared_ptr<Transfer> transfer_;
  mutable std::mutex mutex_;
  State state_ = State::kSuspended;
};

class DownloadSession {
 public:
  // A session with the default configuration whose tasks report to `delegate`.
  static std::shared_ptr<DownloadSession> sessionWithDelegate(
      std::weak_ptr<DownloadTaskDelegate> delegate);
  ~DownloadSession();
  DownloadSession(const DownloadSession&) = delete;
  DownloadSession& operator=(const DownloadSession&) = delete;

  // A new, not yet resumed task. After invalidation the task completes with a cancellation
  // as soon as it is resumed.
  std::shared_ptr<DownloadTask> dataTaskWithRequest(DownloadRequest request);
  // Cancels every task of the session and refuses new ones.
  void invalidateAndCancel();
  bool isInvalidated() const;

  // A PEM file of extra certificate authorities trusted by every session from now on, next to
  // the system's own; "" removes it. A file that cannot be read makes HTTPS transfers fail.
  static void setAdditionalCAFile(std::string path);
  static std::string additionalCAFile();

 private:
  explicit DownloadSession(std::shared_ptr<DownloadTask::Shared> shared);
  std::shared_ptr<DownloadTask::Shared> shared_;
};

}  // namespace dataparser
