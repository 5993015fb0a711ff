#include "dataparser/engine/replay_engine.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "dataparser/engine/engine_threads.h"
#include "dataparser/engine/recording.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/json.h"
#include "dataparser/util/path.h"

namespace dataparser {
namespace {

using recording::BlockName;
using recording::parseBlockName;

constexpr CallbackTypeExtend kScanFailed = kEngineScanFailed;
constexpr CallbackTypeExtend kScanBegan = kEngineScanBegan;
constexpr CallbackTypeExtend kProgress = kEngineProgress;
constexpr CallbackTypeExtend kScanFinished = kEngineScanFinished;

}  // namespace

ReplayEngine::~ReplayEngine() {
  stopRequested_.store(true);
  changed_.notify_all();
  threads_.joinOthers();
}

bool ReplayEngine::isRecording(const std::string& folder) {
  return recording::isRecording(folder);
}

void ReplayEngine::record(std::string name, std::vector<std::string> arguments) {
  std::lock_guard lock(mutex_);
  calls_.push_back(Call{std::move(name), std::move(arguments)});
}

std::vector<ReplayEngine::Call> ReplayEngine::calls() const {
  std::lock_guard lock(mutex_);
  return calls_;
}

std::vector<ReplayEngine::Call> ReplayEngine::calls(std::string_view name) const {
  std::lock_guard lock(mutex_);
  std::vector<Call> named;
  std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(named),
               [name](const Call& call) { return call.name == name; });
  return named;
}

void ReplayEngine::setBlockDelay(std::chrono::milliseconds delay) {
  std::lock_guard lock(mutex_);
  blockDelay_ = delay;
}

bool ReplayEngine::waitUntilIdle(std::chrono::milliseconds timeout) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [this] { return !replaying_; });
}

void ReplayEngine::InitPackageData(const std::string& logFolder, const std::string& configFolder,
                                   const std::string& tempFolder) {
  record("InitPackageData", {logFolder, configFolder, tempFolder});
  recording::sweepStaleTemplates(tempFolder);
  {
    std::lock_guard lock(mutex_);
    tempFolder_ = tempFolder;
  }
  bool endedReplay = false;
  {
    std::lock_guard lock(mutex_);
    endedReplay = replaying_ && ended_;
  }
  if (endedReplay)
    threads_.joinOthers();  // the previous scan is over; let its last callback return
  std::lock_guard lock(mutex_);
  recording_.clear();
  packageFiles_.clear();
  if (!replaying_) stopRequested_.store(false);
}

void ReplayEngine::StartPackage(PackageCallback callback) {
  record("StartPackage", {});
  std::lock_guard lock(mutex_);
  callback_ = callback;
}

void ReplayEngine::StopPackage() {
  record("StopPackage", {});
  stopRequested_.store(true);
  changed_.notify_all();
}

void ReplayEngine::UninitPackageData() {
  record("UninitPackageData", {});
  stopRequested_.store(true);
  changed_.notify_all();
  threads_.joinOthers();
  std::lock_guard lock(mutex_);
  callback_ = nullptr;
}

void ReplayEngine::AddBackupFolder(const std::string& path) {
  record("AddBackupFolder", {path});
  std::lock_guard lock(mutex_);
  recording_ = path;
}

void ReplayEngine::AddTypeBackupFolder(const std::string& path) {
  record("AddTypeBackupFolder", {path});
  std::lock_guard lock(mutex_);
  recording_ = path;
}

void ReplayEngine::AddPhotoBackupFolder(const std::string& path) {
  record("AddPhotoBackupFolder", {path});
}

void ReplayEngine::AddVoiceMemosBackupFolder(const std::string& path) {
  record("AddVoiceMemosBackupFolder", {path});
}

void ReplayEngine::AddTypeNeedScan(ScanType type) {
  record("AddTypeNeedScan", {std::to_string(type)});
}

void ReplayEngine::AddPackageFile(const char* text, int length) {
  std::string file;
  if (text != nullptr && length > 0) file.assign(text, static_cast<std::size_t>(length));
  record("AddPackageFile", {file});
  std::lock_guard lock(mutex_);
  packageFiles_.push_back(std::move(file));
}

void ReplayEngine::AddPackageFileFinish() {
  record("AddPackageFileFinish", {});
  {
    std::lock_guard lock(mutex_);
    if (replaying_ && !ended_) return;  // the input of the running scan is already complete
  }
  threads_.joinOthers();  // a replay that has sent its end finishes its last callback first
  std::lock_guard lock(mutex_);
  if (replaying_ && !ended_) return;
  Replay replay = prepareReplay();
  replaying_ = true;
  ended_ = false;
  replay.generation = ++generation_;
  threads_.start([this, replay = std::move(replay)]() mutable { run(std::move(replay)); });
}

ReplayEngine::Replay ReplayEngine::prepareReplay() {
  Replay replay;
  replay.callback = callback_;
  replay.tempFolder = tempFolder_;
  if (!recording_.empty()) {
    replay.root = recording::absoluteFolder(recording_);
    std::optional<std::vector<Block>> blocks = recording::streamBlocks(replay.root);
    if (!blocks) {
      replay.unreadable = true;
      return replay;
    }
    replay.blocks = std::move(*blocks);
    return replay;
  } else {
    // A device backup of a recording: its stream files arrive one by one.
    for (const std::string& text : packageFiles_) {
      json::Value files = json::parse(text);
      for (json::View file : files["files"].elements()) {
        std::string relative(file["relative_fullpath"].string());
        std::string source(file["src_fullpath"].string());
        std::string name = path::lastPathComponent(relative);
        std::optional<BlockName> block = parseBlockName(name);
        if (!block ||
            path::lastPathComponent(path::deletingLastPathComponent(relative)) != "stream")
          continue;
        if (replay.root.empty()) {
          replay.root = path::deletingLastPathComponent(path::deletingLastPathComponent(source));
        }
        replay.blocks.push_back(Block{name, source, block->code, block->null});
      }
    }
  }
  std::sort(replay.blocks.begin(), replay.blocks.end(),
            [](const Block& a, const Block& b) { return a.name < b.name; });
  return replay;
}

bool ReplayEngine::pause() {
  std::unique_lock lock(mutex_);
  if (blockDelay_.count() > 0) {
    changed_.wait_for(lock, blockDelay_, [this] { return stopRequested_.load(); });
  }
  return !stopRequested_.load();
}

void ReplayEngine::send(const Replay& replay, CallbackTypeExtend code, const std::string* text) {
  PackageCallback callback = replay.callback;
  if (code == kScanFinished || code == kScanFailed) {
    std::lock_guard lock(mutex_);
    if (replay.generation == generation_) ended_ = true;
  }
  if (callback == nullptr) return;
  callback(code, text != nullptr ? text->c_str() : nullptr,
           text != nullptr ? static_cast<int>(text->size()) : 0);
}

void ReplayEngine::run(Replay replay) {
  auto holds = [&replay](CallbackTypeExtend code) {
    return std::any_of(replay.blocks.begin(), replay.blocks.end(),
                       [code](const Block& block) { return block.code == code; });
  };
  auto isData = [](CallbackTypeExtend code) {
    return callbackRouteForCode(code).outcome == CallbackOutcome::kData;
  };
  // While the replay runs, files that its blocks name count only inside the recording and the
  // template copy.
  const BackupScope scope({replay.root, replay.tempFolder});
  const bool ownBegin = holds(kScanBegan);
  const bool ownProgress = holds(kProgress);
  const auto total = std::count_if(replay.blocks.begin(), replay.blocks.end(),
                                   [&](const Block& block) { return isData(block.code); });
  bool ended = false;

  if (!ownBegin) send(replay, kScanBegan, nullptr);
  const std::string templates =
      replay.unreadable
          ? ""
          : recording::materializeTemplates(replay.root, replay.tempFolder, replay.generation);
  if (replay.unreadable) {
    send(replay, kScanFailed, nullptr);
    ended = true;
  }
  long current = 0;
  for (const Block& block : replay.blocks) {
    if (!pause()) break;
    std::optional<std::string> text;
    if (!block.null) {
      text = recording::blockText(block, replay.root, templates);
      if (!text) continue;
    }
    send(replay, block.code, text ? &*text : nullptr);
    if (block.code == kScanFinished || block.code == kScanFailed) ended = true;
    if (isData(block.code) && !ownProgress && !stopRequested_.load()) {
      std::string progress = progressBlock(++current, static_cast<long>(total));
      send(replay, kProgress, &progress);
    }
  }
  if (!ended) send(replay, kScanFinished, nullptr);
  recording::removeTemplates(templates);

  std::lock_guard lock(mutex_);
  if (replay.generation == generation_) replaying_ = false;  // not a newer replay's state
  changed_.notify_all();
}

std::shared_ptr<PackageEngine> makeDefaultPackageEngine() {
  return std::make_shared<ReplayEngine>();
}

}  // namespace dataparser
