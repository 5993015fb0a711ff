#include "dataparser/engine/android_replay_engine.h"

#include <cstdint>

#include "dataparser/engine/recording.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/json.h"
#include "dataparser/util/path.h"

namespace dataparser {
namespace {

constexpr std::int32_t kErrorCode = 0;
constexpr std::int32_t kBusinessCode = 21;
constexpr std::int64_t kBusinessPackage = 25;

// The nearest recording at or above `path`; "" when there is none.
std::string recordingAround(const std::string& path) {
  if (path.empty()) return {};
  std::string folder = recording::absoluteFolder(path);
  while (true) {
    if (recording::isRecording(folder)) return folder;
    std::string parent = path::deletingLastPathComponent(folder);
    if (parent.empty() || parent == folder) return {};
    folder = std::move(parent);
  }
}

}  // namespace

AndroidReplayEngine::~AndroidReplayEngine() {
  stopRequested_.store(true);
  join();
}

void AndroidReplayEngine::record(std::string name, std::vector<std::string> arguments) {
  std::lock_guard lock(mutex_);
  calls_.push_back(Call{std::move(name), std::move(arguments)});
}

std::vector<AndroidReplayEngine::Call> AndroidReplayEngine::calls() const {
  std::lock_guard lock(mutex_);
  return calls_;
}

bool AndroidReplayEngine::waitUntilIdle(std::chrono::milliseconds timeout) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [this] { return !replaying_; });
}

void AndroidReplayEngine::InitQMDataPackage(const char* logFolder, const char* configFolder) {
  record("InitQMDataPackage",
         {logFolder != nullptr ? logFolder : "", configFolder != nullptr ? configFolder : ""});
  join();  // the previous extraction is over once a new one is prepared
  stopRequested_.store(false);
}

void AndroidReplayEngine::QMDataFilter(const char* text, int length) {
  std::string filter;
  if (text != nullptr && length > 0) filter.assign(text, static_cast<std::size_t>(length));
  record("QMDataFilter", {filter});
  std::lock_guard lock(mutex_);
  filter_ = std::move(filter);
}

void AndroidReplayEngine::QMDataPackage(AndroidPackageCallback callback) {
  record("QMDataPackage", {});
  join();
  Replay replay;
  replay.callback = callback;
  {
    std::lock_guard lock(mutex_);
    json::Value filter = json::parse(filter_);
    replay.root = recordingAround(filter["primary_file_object"]["msg_file_path"].stringCopy());
    replay.tempFolder = filter["temp_folder"].stringCopy();
    if (filter["package_type"].integer() == kBusinessPackage) replay.endCode = kBusinessCode;
    replaying_ = true;
    thread_ = std::thread([this, replay] { run(replay); });
  }
}

void AndroidReplayEngine::QMDataStop() {
  record("QMDataStop", {});
  stopRequested_.store(true);
}

void AndroidReplayEngine::run(const Replay& replay) {
  auto send = [&replay](std::int32_t code, const std::string* text) {
    if (replay.callback == nullptr) return;
    replay.callback(code, text != nullptr ? text->c_str() : nullptr,
                    text != nullptr ? static_cast<int>(text->size()) : 0);
  };
  // While the replay runs, files that its blocks name count only inside the recording and the
  // template copy.
  const BackupScope scope({replay.root, replay.tempFolder});
  std::optional<std::vector<recording::Block>> blocks;
  if (!replay.root.empty()) blocks = recording::streamBlocks(replay.root);
  if (!blocks) {
    send(kErrorCode, nullptr);
  } else {
    const std::string templates =
        recording::materializeTemplates(replay.root, replay.tempFolder, 0);
    bool ended = false;
    for (const recording::Block& block : *blocks) {
      if (stopRequested_.load()) break;
      std::optional<std::string> text;
      if (!block.null) {
        text = recording::blockText(block, replay.root, templates);
        if (!text) continue;
      }
      send(block.code, text ? &*text : nullptr);
      ended = block.null;
    }
    if (!ended) send(replay.endCode, nullptr);
    recording::removeTemplates(templates);
  }
  std::lock_guard lock(mutex_);
  replaying_ = false;
  changed_.notify_all();
}

void AndroidReplayEngine::join() {
  std::thread running;
  {
    std::lock_guard lock(mutex_);
    if (!thread_.joinable() || thread_.get_id() == std::this_thread::get_id()) return;
    running = std::move(thread_);
  }
  running.join();
}

std::shared_ptr<AndroidPackageEngine> makeDefaultAndroidPackageEngine() {
  return std::make_shared<AndroidReplayEngine>();
}

}  // namespace dataparser
