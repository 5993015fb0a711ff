#include "dataparser/util/json_files.h"

#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

namespace dataparser::json {
namespace {

struct Decoded {
  Value document;
  std::string error;
};

// The hand-over between the decoding thread and the caller: at most one decoded file waits.
class ReadAhead {
 public:
  explicit ReadAhead(const std::vector<std::string>& paths) : paths_(paths) {}

  void decodeAll() {
    for (std::size_t i = 0; i < paths_.size(); ++i) {
      {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return stopped_ || !ready_; });
        if (stopped_) return;
      }
      Decoded decoded;
      decoded.document = parseFile(paths_[i], &decoded.error);
      std::lock_guard lock(mutex_);
      ready_ = std::move(decoded);
      changed_.notify_all();
    }
  }

  Decoded take() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return ready_.has_value(); });
    Decoded decoded = std::move(*ready_);
    ready_.reset();
    changed_.notify_all();
    return decoded;
  }

  void stop() {
    std::lock_guard lock(mutex_);
    stopped_ = true;
    changed_.notify_all();
  }

 private:
  const std::vector<std::string>& paths_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::optional<Decoded> ready_;
  bool stopped_ = false;
};

}  // namespace

void forEachJsonFile(const std::vector<std::string>& paths, const FileVisitor& visit) {
  if (paths.size() == 1) {  // nothing to overlap
    std::string error;
    Value document = parseFile(paths[0], &error);
    visit(paths[0], std::move(document), error);
    return;
  }
  ReadAhead ahead(paths);
  std::thread decoder([&ahead] { ahead.decodeAll(); });
  for (const std::string& path : paths) {
    Decoded decoded = ahead.take();
    if (!visit(path, std::move(decoded.document), decoded.error)) break;
  }
  ahead.stop();
  decoder.join();
}

}  // namespace dataparser::json
