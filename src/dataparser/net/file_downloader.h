// FileDownloader: fetches one URL into one local file over HTTP(S), resumably.
//
// The body is appended to a cache file, "{user caches folder}/Quillmark/{last path component of
// localPath}", as it arrives. Every request asks for the remainder only ("Range: bytes=N-", N the
// cache file's length when `resumable`, else 0 after deleting the cache file). Beside the cache
// file, "Quillmark/.records/{same name}" records what it holds: the URL, the total length and the
// server's validator (a strong "ETag", else "Last-Modified"). A cache file is continued only when
// that record names the same URL and a validator, and the request then carries "If-Range" with it;
// otherwise it is deleted and the download starts from zero. A 206 answer whose validator or
// total differs from the record fails and deletes the cache file; a 200 answer restarts it. When
// the cache file reaches the total size learned from the response (or given in advance through
// `expectedContentLength`), it is moved to `localPath`; an existing file there is never
// overwritten: the file lands beside it as "{path without extension}_{yyyyMMddHHmmss}.{ext}".
// A shorter cache file stays for a later resumable attempt; one longer than the total is
// deleted. Progress is reported only while the total is known.
//
// Beyond the plain algorithm: an answer with status 400 or above is a failure passed to the
// completion (DownloadError::Kind::kHTTPStatus) and its body never reaches the cache file; a
// server that ignores the range and sends the whole file again (status 200) restarts the cache
// file from zero; 416 (range not satisfiable) completes the download when the cache file
// already holds the whole file.
//
// Threads: the transfer runs on a worker thread; every event, the progress callback and the
// completion callback run on the MainQueue. A caller that waits for the completion must not
// wait on the MainQueue. Getters and setters may be called from any thread.
//
// Lifetime: create with `initWithURL` (shared ownership). A started download keeps its
// downloader alive until the completion has been delivered; `cancel` and `suspend` let it go.
// After `suspend` returns, neither callback is called again, even for events already queued
// (a callback running at that moment on the MainQueue is waited for, so do not call `suspend`
// from another thread while holding something that callback needs). `cancel` still delivers
// the completion, with DownloadError::cancelled(). One downloader serves one attempt: a second
// `start` after completion does nothing; create a new downloader to resume.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "dataparser/net/download_session.h"
#include "dataparser/util/date.h"

namespace dataparser {

// A writable handle on one file (POSIX descriptor), closed with the object. Not thread-safe.
class FileHandle {
 public:
  // Opens an existing file for writing; nullptr when it cannot be opened. `error` gets the
  // reason.
  static std::shared_ptr<FileHandle> fileHandleForWritingAtPath(const std::string& path,
                                                                std::string* error = nullptr);
  ~FileHandle();
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;

  // The new offset, -1 on failure.
  std::int64_t seekToEndOfFile();
  // Writes all of `data` at the current offset; false (errno kept) when that fails.
  bool writeData(std::span<const char> data);
  bool truncateFileAtOffset(std::int64_t offset);
  void closeFile();
  bool isOpen() const { return descriptor_ >= 0; }

 private:
  explicit FileHandle(int descriptor) : descriptor_(descriptor) {}
  int descriptor_ = -1;
};

class FileDownloader final : public DownloadTaskDelegate,
                             public std::enable_shared_from_this<FileDownloader> {
 public:
  using ProgressHandler = std::function<void(std::int64_t total, std::int64_t received)>;
  // Nothing means success.
  using CompletionHandler = std::function<void(std::optional<DownloadError> error)>;

  // Stores the four values; `resumable` is false. Nothing is sent yet.
  static std::shared_ptr<FileDownloader> initWithURL(std::string url, std::string localPath,
                                                     ProgressHandler progressHandler,
                                                     CompletionHandler completionHandler);
  // Logs "<FileDownloader: 0x...> dealloc" to the run log.
  ~FileDownloader() override;

  // Creates the session and the task when missing and starts the task.
  void start();
  // Stops the transfer and drops the task and the session; the completion still arrives.
  void cancel();
  // Stops the transfer, drops the task, the session and both callbacks: nothing is reported
  // afterwards.
  void suspend();

  // The cache file's path; creates the "Quillmark" folder when missing.
  std::string cacheFilePath() const;
  // The total size: the caller's `expectedContentLength` when 1 or more; else the response's
  // body length plus `currentLength` when positive; else "Content-Length"; else the number
  // after the first "/" of "Content-Range"; else 0.
  std::int64_t expectedLength(const DownloadResponse& response) const;
  // Size of the file at `path`; 0 when it is missing or cannot be read.
  static std::int64_t fileLengthForPath(const std::string& path);
  // `date` as "yyyyMMddHHmmss" in the local time zone.
  static std::string convertDate(Date date);
  // "<FileDownloader: 0x...>".
  std::string description() const;
  // Where the last completed download was moved to (`localPath` or the time-stamped name
  // beside it); "" until then.
  std::string destinationPath() const;

  bool resumable() const;
  void setResumable(bool resumable);
  std::int64_t expectedContentLength() const;
  void setExpectedContentLength(std::int64_t length);
  std::int64_t fileLength() const;
  void setFileLength(std::int64_t length);
  std::int64_t currentLength() const;
  void setCurrentLength(std::int64_t length);
  std::shared_ptr<FileHandle> fileHandle() const;
  void setFileHandle(std::shared_ptr<FileHandle> fileHandle);
  std::shared_ptr<DownloadTask> downloadTask() const;
  void setDownloadTask(std::shared_ptr<DownloadTask> task);
  // A spare task slot; the downloader never uses it.
  std::shared_ptr<DownloadTask> downloadTaskAF() const;
  void setDownloadTaskAF(std::shared_ptr<DownloadTask> task);
  std::shared_ptr<DownloadSession> session() const;
  void setSession(std::shared_ptr<DownloadSession> session);
  std::string url() const;
  void setUrl(std::string url);
  std::string localPath() const;
  void setLocalPath(std::string localPath);
  ProgressHandler progressHandler() const;
  void setProgressHandler(ProgressHandler handler);
  CompletionHandler completionHandler() const;
  void setCompletionHandler(CompletionHandler handler);

  // Transfer events, called by the session on the MainQueue.
  void didReceiveResponse(const std::shared_ptr<DownloadTask>& task,
                          const DownloadResponse& response) override;
  void didReceiveData(const std::shared_ptr<DownloadTask>& task,
                      std::span<const char> data) override;
  void didCompleteWithError(const std::shared_ptr<DownloadTask>& task,
                            std::optional<DownloadError> error) override;

 private:
  struct Token {};

 public:
  FileDownloader(Token, std::string url, std::string localPath, ProgressHandler progressHandler,
                 CompletionHandler completionHandler);

 private:
  std::int64_t expectedLengthLocked(const DownloadResponse& response) const;
  std::shared_ptr<DownloadTask> makeTaskLocked();
  // Cancels the task and the session and drops both; with `forgetCallbacks`, also the callbacks
  // and the claim on the cache file, so that nothing is reported afterwards.
  void stopTransfer(bool forgetCallbacks);
  // Stops the running transfer: its body is no longer written, `failure` replaces its outcome.
  void abandonTransferLocked(const std::shared_ptr<DownloadTask>& task, DownloadError failure,
                             bool judgeCacheFile);
  void postProgressStep();

  mutable std::mutex mutex_;
  // Held while a callback runs, so that `suspend` can wait for it; recursive because a
  // callback may call `suspend` itself.
  std::recursive_mutex callbackMutex_;

  bool resumable_ = false;
  std::int64_t expectedContentLength_ = 0;
  std::int64_t fileLength_ = 0;
  std::int64_t currentLength_ = 0;
  std::shared_ptr<FileHandle> fileHandle_;
  std::shared_ptr<DownloadTask> downloadTask_;
  std::shared_ptr<DownloadTask> downloadTaskAF_;
  std::shared_ptr<DownloadSession> session_;
  std::string url_;
  std::string localPath_;
  ProgressHandler progressHandler_;
  CompletionHandler completionHandler_;

  // The transfer whose events own the cache file. Events of any other task (one that was
  // suspended, or replaced after `cancel`) are ignored.
  std::shared_ptr<DownloadTask> owner_;
  bool responseReceived_ = false;
  bool discardBody_ = false;    // the body is not part of the file (error page, failed write)
  bool judgeCacheFile_ = true;  // false: the completion neither moves nor deletes the cache file
  std::optional<DownloadError> failure_;  // replaces the transfer's own outcome
  std::string destinationPath_;
  // The recorded file that the cache file continues: its total length and validator.
  struct Resumed {
    std::int64_t length = 0;
    std::string validator;
  };
  std::optional<Resumed> resumed_;
};

}  // namespace dataparser
