#include "dataparser/util/json_files.h"

#include <algorithm>
#include <utility>

namespace dataparser::json {

DecodedFile decodeFile(const std::string& path,
                       const std::function<bool(const std::string&)>& admit) {
  DecodedFile decoded;
  if (admit && !admit(path)) {
    decoded.refused = true;
    return decoded;
  }
  decoded.document = parseFile(path, &decoded.error, &decoded.mended);
  return decoded;
}

FileReadAhead::FileReadAhead(std::vector<std::string> paths, Admission admit, std::size_t depth,
                             Preparation prepare)
    : paths_(std::move(paths)),
      admit_(std::move(admit)),
      depth_(std::max<std::size_t>(depth, 1)),
      prepare_(std::move(prepare)) {
  if (paths_.size() > 1) decoder_ = std::thread([this] { decodeAll(); });
}

FileReadAhead::~FileReadAhead() {
  {
    std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  changed_.notify_all();
  if (decoder_.joinable()) decoder_.join();
}

// The helper prepares a file itself only while at least this many wait for the caller.
constexpr std::size_t kPrepareAhead = 1;

void FileReadAhead::decodeAll() {
  for (const std::string& path : paths_) {
    {
      std::unique_lock lock(mutex_);
      if (!stopped_ && ready_.size() >= depth_) {
        // Full: sleep until the reader has taken half, so that it wakes this thread once per
        // half a queue rather than once per file.
        decoderWaiting_ = true;
        changed_.wait(lock, [&] { return stopped_ || ready_.size() <= depth_ / 2; });
        decoderWaiting_ = false;
      }
      if (stopped_) return;
    }
    DecodedFile decoded = decodeFile(path, admit_);
    if (prepare_ && decoded.document.present()) {
      bool ahead;
      {
        std::lock_guard lock(mutex_);
        ahead = !readerWaiting_ && ready_.size() >= kPrepareAhead;
      }
      if (ahead) prepareOnce(decoded);
    }
    bool wake = false;
    {
      std::lock_guard lock(mutex_);
      ready_.push_back(std::move(decoded));
      wake = readerWaiting_;
    }
    if (wake) changed_.notify_all();
  }
}

DecodedFile FileReadAhead::take() {
  DecodedFile decoded = decoder_.joinable() ? takeReady() : decodeFile(paths_[taken_], admit_);
  ++taken_;
  if (prepare_ && decoded.document.present()) prepareOnce(decoded);
  return decoded;
}

void FileReadAhead::prepareOnce(DecodedFile& file) const {
  if (file.prepared) return;
  prepare_(file);
  file.prepared = true;
}

DecodedFile FileReadAhead::takeReady() {
  std::unique_lock lock(mutex_);
  if (ready_.empty()) {
    readerWaiting_ = true;
    changed_.wait(lock, [&] { return !ready_.empty(); });
    readerWaiting_ = false;
  }
  DecodedFile decoded = std::move(ready_.front());
  ready_.pop_front();
  const bool wake = decoderWaiting_ && ready_.size() <= depth_ / 2;
  lock.unlock();
  if (wake) changed_.notify_all();
  return decoded;
}

void forEachJsonFile(const std::vector<std::string>& paths, const FileVisitor& visit) {
  // One file waits at most: a single SMS file may hold hundreds of megabytes.
  FileReadAhead ahead(paths);
  for (const std::string& path : paths) {
    DecodedFile decoded = ahead.take();
    if (decoded.mended) logMendedFile(path);
    if (!visit(path, std::move(decoded.document), decoded.error)) break;
  }
}

}  // namespace dataparser::json
