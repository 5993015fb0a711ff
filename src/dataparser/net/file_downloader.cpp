#include "dataparser/net/file_downloader.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "dataparser/util/date_format.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/json.h"
#include "dataparser/util/main_queue.h"
#include "dataparser/util/path.h"
#include "dataparser/util/run_log.h"

namespace dataparser {

namespace {

std::string cacheFileFor(const std::string& localPath) {
  std::string folder = path::appendingPathComponent(userCachesPath(), "Quillmark");
  if (!isDirectory(folder)) createDirectories(folder);
  return path::appendingPathComponent(folder, path::safeComponent(localPath));
}

// The record beside a cache file: which URL its bytes came from, the file's total length and
// the server's validator for that file. Three lines; a cache file without one is never continued.
struct CacheRecord {
  std::string url;
  std::int64_t length = 0;
  std::string validator;  // "" when the server gave none
};

// In a folder of its own beside the cache files, so that no cache file name can be a record's.
std::string recordFileFor(const std::string& cache) {
  std::string folder =
      path::appendingPathComponent(path::deletingLastPathComponent(cache), ".records");
  if (!isDirectory(folder)) createDirectories(folder);
  return path::appendingPathComponent(folder, path::lastPathComponent(cache));
}

std::optional<CacheRecord> readCacheRecord(const std::string& cache) {
  std::optional<std::string> text = readFile(recordFileFor(cache));
  if (!text) return std::nullopt;
  std::string_view rest = *text;
  std::string_view lines[3];
  for (std::string_view& line : lines) {
    std::size_t end = rest.find('\n');
    if (end == std::string_view::npos) return std::nullopt;
    line = rest.substr(0, end);
    rest.remove_prefix(end + 1);
  }
  return CacheRecord{std::string(lines[0]), json::integerFromText(lines[1]), std::string(lines[2])};
}

void writeCacheRecord(const std::string& cache, const CacheRecord& record) {
  // A text that cannot stand on its line cannot be recorded; the cache then restarts next time.
  if (record.url.find('\n') != std::string::npos ||
      record.validator.find('\n') != std::string::npos) {
    ::unlink(recordFileFor(cache).c_str());
    return;
  }
  writeFileAtomically(recordFileFor(cache),
                      fmt::format("{}\n{}\n{}\n", record.url, record.length, record.validator));
}

void removeCacheFile(const std::string& cache) {
  ::unlink(cache.c_str());
  ::unlink(recordFileFor(cache).c_str());
}

// What "If-Range" may carry for the file of this response: a strong entity tag, else the date
// of "Last-Modified"; "" when the response has neither (a weak tag does not count).
std::string validatorOf(const DownloadResponse& response) {
  if (!response.isHTTP) return {};
  std::optional<std::string> tag = response.valueForHTTPHeaderField("ETag");
  if (tag && !tag->empty() && !tag->starts_with("W/")) return *tag;
  return response.valueForHTTPHeaderField("Last-Modified").value_or(std::string());
}

DownloadError fileError(int code, std::string_view what, std::string_view path) {
  return DownloadError{DownloadError::Kind::kFile, code,
                       fmt::format("{} {}: {}", what, path, std::strerror(code))};
}

DownloadError httpError(int status) {
  return DownloadError{DownloadError::Kind::kHTTPStatus, status,
                       fmt::format("the server answered with HTTP status {}", status)};
}

// The first byte position of "Content-Range: bytes S-E/T"; nothing when absent or unreadable.
std::optional<std::int64_t> contentRangeStart(const DownloadResponse& response) {
  std::optional<std::string> range = response.valueForHTTPHeaderField("Content-Range");
  if (!range) return std::nullopt;
  std::string_view text = *range;
  std::size_t digits = text.find_first_of("0123456789*");
  if (digits == std::string_view::npos || text[digits] == '*') return std::nullopt;
  return json::integerFromText(text.substr(digits));
}

// The total of "Content-Range": the integer after its first "/"; 0 without one.
std::int64_t contentRangeTotal(const DownloadResponse& response) {
  std::optional<std::string> range = response.valueForHTTPHeaderField("Content-Range");
  if (!range) return 0;
  std::size_t slash = range->find('/');
  if (slash == std::string::npos) return 0;
  return json::integerFromText(std::string_view(*range).substr(slash + 1));
}

// Copies `source` into a hidden temporary file beside `destination`, so that the destination
// only ever appears complete.
bool copyBeside(const std::string& source, const std::string& destination, std::string* temporary,
                int* code) {
  std::string hidden = ".";
  hidden += path::lastPathComponent(destination);
  hidden += ".XXXXXX";
  std::string pattern =
      path::appendingPathComponent(path::deletingLastPathComponent(destination), hidden);
  int descriptor = ::mkstemp(pattern.data());
  if (descriptor < 0) {
    *code = errno;
    return false;
  }
  ::close(descriptor);
  std::error_code error;
  std::filesystem::copy_file(source, pattern, std::filesystem::copy_options::overwrite_existing,
                             error);
  if (error) {
    *code = error.value();
    ::unlink(pattern.c_str());
    return false;
  }
  *temporary = std::move(pattern);
  return true;
}

// Moves a file without ever replacing an existing one at `destination`: a hard link and an
// unlink on one file system, a copy (complete before it is linked into place) across file
// systems. Gives 0 or the errno of the failure.
int moveItemWithoutReplacing(const std::string& source, const std::string& destination) {
  if (::link(source.c_str(), destination.c_str()) == 0) {
    ::unlink(source.c_str());
    return 0;
  }
  int code = errno;
  if (code != EXDEV && code != EPERM && code != ENOTSUP && code != EOPNOTSUPP && code != EMLINK) {
    return code;
  }
  std::string temporary;
  if (!copyBeside(source, destination, &temporary, &code)) return code;
  int result = 0;
  if (::link(temporary.c_str(), destination.c_str()) != 0) {
    result = errno;
    if (result != EEXIST && ::access(destination.c_str(), F_OK) != 0 &&
        ::rename(temporary.c_str(), destination.c_str()) == 0) {
      result = 0;  // a file system without hard links
    }
  }
  ::unlink(temporary.c_str());
  if (result == 0) ::unlink(source.c_str());
  return result;
}

}  // namespace

// --- FileHandle -------------------------------------------------------------------------------

std::shared_ptr<FileHandle> FileHandle::fileHandleForWritingAtPath(const std::string& path,
                                                                   std::string* error) {
  int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (descriptor < 0) {
    if (error != nullptr) *error = std::strerror(errno);
    return nullptr;
  }
  return std::shared_ptr<FileHandle>(new FileHandle(descriptor));
}

FileHandle::~FileHandle() {
  closeFile();
}

std::int64_t FileHandle::seekToEndOfFile() {
  if (descriptor_ < 0) return -1;
  return ::lseek(descriptor_, 0, SEEK_END);
}

bool FileHandle::writeData(std::span<const char> data) {
  if (descriptor_ < 0) {
    errno = EBADF;
    return false;
  }
  while (!data.empty()) {
    ssize_t written = ::write(descriptor_, data.data(), data.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data = data.subspan(static_cast<std::size_t>(written));
  }
  return true;
}

bool FileHandle::truncateFileAtOffset(std::int64_t offset) {
  return descriptor_ >= 0 && ::ftruncate(descriptor_, offset) == 0 &&
         ::lseek(descriptor_, offset, SEEK_SET) == offset;
}

void FileHandle::closeFile() {
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
}

// --- FileDownloader: creation and operations ---------------------------------------------------

FileDownloader::FileDownloader(Token, std::string url, std::string localPath,
                               ProgressHandler progressHandler, CompletionHandler completionHandler)
    : url_(std::move(url)),
      localPath_(std::move(localPath)),
      progressHandler_(std::move(progressHandler)),
      completionHandler_(std::move(completionHandler)) {}

std::shared_ptr<FileDownloader> FileDownloader::initWithURL(std::string url, std::string localPath,
                                                            ProgressHandler progressHandler,
                                                            CompletionHandler completionHandler) {
  return std::make_shared<FileDownloader>(Token{}, std::move(url), std::move(localPath),
                                          std::move(progressHandler), std::move(completionHandler));
}

FileDownloader::~FileDownloader() {
  RunLog::write("{} dealloc", description());
}

std::string FileDownloader::description() const {
  return fmt::format("<FileDownloader: {}>", fmt::ptr(this));
}

void FileDownloader::start() {
  std::shared_ptr<DownloadTask> task;
  {
    std::lock_guard lock(mutex_);
    if (!session_) session_ = DownloadSession::sessionWithDelegate(weak_from_this());
    if (!downloadTask_) downloadTask_ = makeTaskLocked();
    task = downloadTask_;
    if (task->state() == DownloadTask::State::kSuspended) {
      owner_ = task;
      responseReceived_ = false;
      discardBody_ = false;
      judgeCacheFile_ = true;
      failure_.reset();
    }
  }
  task->resume();
}

std::shared_ptr<DownloadTask> FileDownloader::makeTaskLocked() {
  std::string cache = cacheFileFor(localPath_);
  currentLength_ = 0;
  resumed_.reset();
  if (resumable_) {
    // Only bytes recorded as this URL's, with a validator to prove the file unchanged, are
    // continued; a cache file of another URL (the name is the destination's only) starts over.
    std::int64_t length = fileLengthForPath(cache);
    std::optional<CacheRecord> record = length > 0 ? readCacheRecord(cache) : std::nullopt;
    if (record && record->url == url_ && !record->validator.empty() &&
        (record->length <= 0 || length <= record->length)) {
      currentLength_ = length;
      resumed_ = Resumed{record->length, record->validator};
    }
  }
  if (currentLength_ == 0) removeCacheFile(cache);
  DownloadRequest request;
  request.url = url_;
  // Every request is a range request: bytes=0- for a fresh download. A continued one names the
  // file it continues: a server whose file changed answers 200 with the whole new file.
  request.setValueForHTTPHeaderField(fmt::format("bytes={}-", currentLength_), "Range");
  if (resumed_) request.setValueForHTTPHeaderField(resumed_->validator, "If-Range");
  return session_->dataTaskWithRequest(std::move(request));
}

void FileDownloader::cancel() {
  stopTransfer(/*forgetCallbacks=*/false);
}

void FileDownloader::suspend() {
  stopTransfer(/*forgetCallbacks=*/true);
  // A callback that is running right now on the MainQueue finishes before suspend returns.
  std::lock_guard waitForCallback(callbackMutex_);
}

void FileDownloader::stopTransfer(bool forgetCallbacks) {
  std::shared_ptr<DownloadTask> task;
  std::shared_ptr<DownloadSession> session;
  {
    std::lock_guard lock(mutex_);
    task = std::move(downloadTask_);
    session = std::move(session_);
    if (forgetCallbacks) {
      progressHandler_ = nullptr;
      completionHandler_ = nullptr;
      owner_ = nullptr;  // events already queued for the transfer are ignored from now on
      fileHandle_.reset();
    }
  }
  if (task) task->cancel();
  if (session) session->invalidateAndCancel();
}

// --- Sizes, paths, dates ----------------------------------------------------------------------

std::string FileDownloader::cacheFilePath() const {
  std::lock_guard lock(mutex_);
  return cacheFileFor(localPath_);
}

std::int64_t FileDownloader::expectedLength(const DownloadResponse& response) const {
  std::lock_guard lock(mutex_);
  return expectedLengthLocked(response);
}

std::int64_t FileDownloader::expectedLengthLocked(const DownloadResponse& response) const {
  if (expectedContentLength_ >= 1) return expectedContentLength_;
  if (response.expectedContentLength > 0) {
    std::int64_t total = response.expectedContentLength + currentLength_;
    if (total != 0) return total;
  }
  if (response.isHTTP) {
    if (std::optional<std::string> length = response.valueForHTTPHeaderField("Content-Length")) {
      std::int64_t value = json::integerFromText(*length);
      if (value != 0) return value;
    }
    return contentRangeTotal(response);
  }
  return 0;
}

std::int64_t FileDownloader::fileLengthForPath(const std::string& path) {
  struct stat info {};
  if (path.empty() || ::stat(path.c_str(), &info) != 0) return 0;
  return static_cast<std::int64_t>(info.st_size);
}

std::string FileDownloader::convertDate(Date date) {
  return stringWithLocalDateFormatter(date, "yyyyMMddHHmmss");
}

std::string FileDownloader::destinationPath() const {
  std::lock_guard lock(mutex_);
  return destinationPath_;
}

// --- Transfer events (MainQueue) ----------------------------------------------------------------

void FileDownloader::abandonTransferLocked(const std::shared_ptr<DownloadTask>& task,
                                           DownloadError failure, bool judgeCacheFile) {
  failure_ = std::move(failure);
  discardBody_ = true;
  judgeCacheFile_ = judgeCacheFile;
  task->cancel();
}

void FileDownloader::didReceiveResponse(const std::shared_ptr<DownloadTask>& task,
                                        const DownloadResponse& response) {
  std::lock_guard lock(mutex_);
  if (task != owner_) return;
  responseReceived_ = true;
  const int status = response.isHTTP ? response.statusCode : 0;
  const std::string cache = cacheFileFor(localPath_);

  if (status == 416) {
    // The range starts at or beyond the end: complete when the cache file is the whole file.
    discardBody_ = true;
    fileLength_ = contentRangeTotal(response);
    if (fileLength_ <= 0 || fileLengthForPath(cache) != fileLength_) failure_ = httpError(status);
    return;
  }
  if (status >= 400) {
    // An error page is not the file: keep the cache file as it is for a later attempt.
    abandonTransferLocked(task, httpError(status), false);
    return;
  }

  bool restart = false;
  if (status == 200 && currentLength_ > 0) {
    restart = true;  // the server ignored the range, or the file changed: the whole file comes
  } else if (status == 206 && resumed_ && currentLength_ > 0) {
    // A server that ignores "If-Range" may send a range of another file: its validator or total
    // tells. Those bytes never join the cached ones; the cache starts over next time.
    const std::string validator = validatorOf(response);
    const std::int64_t total = contentRangeTotal(response);
    if ((!validator.empty() && validator != resumed_->validator) ||
        (total > 0 && resumed_->length > 0 && total != resumed_->length)) {
      removeCacheFile(cache);
      currentLength_ = 0;
      abandonTransferLocked(
          task,
          DownloadError{DownloadError::Kind::kHTTPStatus, status,
                        "the file changed on the server since its first part was fetched; the "
                        "cached part was removed, start again"},
          false);
      return;
    }
  }
  if (status == 206) {
    std::optional<std::int64_t> first = contentRangeStart(response);
    if (first && *first != currentLength_) {
      if (*first != 0) {
        abandonTransferLocked(
            task,
            DownloadError{
                DownloadError::Kind::kHTTPStatus, status,
                fmt::format("the server sent bytes from {} instead of {}", *first, currentLength_)},
            false);
        return;
      }
      restart = true;
    }
  }
  if (restart) currentLength_ = 0;

  fileLength_ = expectedLengthLocked(response);
  // A file fetched from its first byte: record what the cache file will hold.
  if (currentLength_ == 0) writeCacheRecord(cache, {url_, fileLength_, validatorOf(response)});
  std::string reason;
  fileHandle_ = FileHandle::fileHandleForWritingAtPath(cache, &reason);
  if (!fileHandle_ || (restart && !fileHandle_->truncateFileAtOffset(0))) {
    int code = fileHandle_ ? errno : ENOENT;
    fileHandle_.reset();
    abandonTransferLocked(task, fileError(code, "cannot open the cache file", cache), false);
  }
}

void FileDownloader::didReceiveData(const std::shared_ptr<DownloadTask>& task,
                                    std::span<const char> data) {
  {
    std::lock_guard lock(mutex_);
    if (task != owner_ || discardBody_ || !fileHandle_) return;
    if (fileHandle_->seekToEndOfFile() < 0 || !fileHandle_->writeData(data)) {
      int code = errno;
      std::string cache = cacheFileFor(localPath_);
      currentLength_ = fileLengthForPath(cache);
      // What was written is still a prefix of the file: judged (and kept) as usual.
      abandonTransferLocked(task, fileError(code, "cannot write the cache file", cache), true);
      return;
    }
    currentLength_ += static_cast<std::int64_t>(data.size());
  }
  postProgressStep();
}

void FileDownloader::postProgressStep() {
  MainQueue::post([weak = weak_from_this()] {
    std::shared_ptr<FileDownloader> self = weak.lock();
    if (!self) return;
    std::lock_guard callbackLock(self->callbackMutex_);
    ProgressHandler handler;
    std::int64_t total = 0;
    std::int64_t received = 0;
    {
      std::lock_guard lock(self->mutex_);
      handler = self->progressHandler_;
      total = self->fileLength_;
      received = self->currentLength_;
    }
    // An unknown total gives no progress reports.
    if (handler && received > 0 && total >= 1) handler(total, received);
  });
}

void FileDownloader::didCompleteWithError(const std::shared_ptr<DownloadTask>& task,
                                          std::optional<DownloadError> error) {
  std::lock_guard callbackLock(callbackMutex_);
  std::unique_lock lock(mutex_);
  if (task != owner_) return;
  owner_ = nullptr;
  if (fileHandle_) fileHandle_->closeFile();
  fileHandle_.reset();

  std::optional<DownloadError> result = failure_ ? failure_ : std::move(error);
  const std::string cache = cacheFileFor(localPath_);
  const std::int64_t length = fileLengthForPath(cache);
  if (!judgeCacheFile_ || !responseReceived_) {
    // Nothing was learned about the file (no answer, or an error page): the cache file stays.
  } else if (length == 0 || length != fileLength_) {
    // Incomplete. A shorter cache file stays for a later resume; a longer one can never be
    // continued.
    if (length > fileLength_ && fileExists(cache) && ::unlink(cache.c_str()) != 0) {
      RunLog::write("FileDownloader ERROR: {}", fileError(errno, "cannot remove", cache).message);
    }
    if (!fileExists(cache)) ::unlink(recordFileFor(cache).c_str());
  } else {
    // The destination itself when it is free, else "{name}_{time}.{ext}"; when that is taken
    // too (a second download in the same second), "{name}_{time}_{n}.{ext}" for the first free n.
    std::string destination = localPath_;
    int code = fileExists(destination) ? EEXIST : moveItemWithoutReplacing(cache, destination);
    const std::string extension = path::pathExtension(localPath_);
    const std::string stamped =
        fmt::format("{}_{}", path::deletingPathExtension(localPath_),
                    convertDate(std::chrono::time_point_cast<std::chrono::microseconds>(
                        std::chrono::system_clock::now())));
    for (int n = 0; code == EEXIST && n < 1000; ++n) {
      destination = n == 0 ? stamped : fmt::format("{}_{}", stamped, n);
      if (!extension.empty()) destination = fmt::format("{}.{}", destination, extension);
      code = moveItemWithoutReplacing(cache, destination);
    }
    if (code != 0) {
      result = fileError(code, "cannot move the download to", destination);
    } else {
      destinationPath_ = destination;
      ::unlink(recordFileFor(cache).c_str());
    }
  }

  currentLength_ = 0;
  fileLength_ = 0;
  CompletionHandler handler = completionHandler_;
  lock.unlock();
  if (handler) handler(std::move(result));
}

// --- Getters and setters -----------------------------------------------------------------------

#define DATAPARSER_FIELD(Type, getter, setter, member) \
  Type FileDownloader::getter() const {                \
    std::lock_guard lock(mutex_);                      \
    return member;                                     \
  }                                                    \
  void FileDownloader::setter(Type value) {            \
    std::lock_guard lock(mutex_);                      \
    member = std::move(value);                         \
  }

DATAPARSER_FIELD(bool, resumable, setResumable, resumable_)
DATAPARSER_FIELD(std::int64_t, expectedContentLength, setExpectedContentLength,
                 expectedContentLength_)
DATAPARSER_FIELD(std::int64_t, fileLength, setFileLength, fileLength_)
DATAPARSER_FIELD(std::int64_t, currentLength, setCurrentLength, currentLength_)
DATAPARSER_FIELD(std::shared_ptr<FileHandle>, fileHandle, setFileHandle, fileHandle_)
DATAPARSER_FIELD(std::shared_ptr<DownloadTask>, downloadTask, setDownloadTask, downloadTask_)
DATAPARSER_FIELD(std::shared_ptr<DownloadTask>, downloadTaskAF, setDownloadTaskAF, downloadTaskAF_)
DATAPARSER_FIELD(std::shared_ptr<DownloadSession>, session, setSession, session_)
DATAPARSER_FIELD(std::string, url, setUrl, url_)
DATAPARSER_FIELD(std::string, localPath, setLocalPath, localPath_)
DATAPARSER_FIELD(FileDownloader::ProgressHandler, progressHandler, setProgressHandler,
                 progressHandler_)
DATAPARSER_FIELD(FileDownloader::CompletionHandler, completionHandler, setCompletionHandler,
                 completionHandler_)

#undef DATAPARSER_FIELD

}  // namespace dataparser
