#include "dataparser/engine/replay_engine.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <filesystem>
#include <optional>
#include <utility>

#include "dataparser/core/file_helper.h"
#include "dataparser/engine/engine_threads.h"
#include "dataparser/util/json.h"
#include "dataparser/util/path.h"
#include "dataparser/util/text.h"

namespace dataparser {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kRootToken = "{{ROOT}}";
constexpr std::string_view kTemplatesToken = "{{TEMPLATES}}";
constexpr CallbackTypeExtend kScanFailed = kEngineScanFailed;
constexpr CallbackTypeExtend kScanBegan = kEngineScanBegan;
constexpr CallbackTypeExtend kProgress = kEngineProgress;
constexpr CallbackTypeExtend kScanFinished = kEngineScanFinished;

struct BlockName {
  CallbackTypeExtend code = 0;
  bool null = false;
};

// "NNNNNN-CODE.json" or "NNNNNN-CODE.null"; nothing for any other name.
std::optional<BlockName> parseBlockName(std::string_view name) {
  constexpr std::size_t kDigits = 6;
  if (name.size() < kDigits + 1 + 1 + 5 || name[kDigits] != '-') return std::nullopt;
  if (!std::all_of(name.begin(), name.begin() + kDigits,
                   [](char c) { return c >= '0' && c <= '9'; }))
    return std::nullopt;
  BlockName block;
  std::string_view suffix = name.substr(name.size() - 5);
  if (suffix == ".null") {
    block.null = true;
  } else if (suffix != ".json") {
    return std::nullopt;
  }
  std::string_view code = name.substr(kDigits + 1, name.size() - kDigits - 1 - 5);
  auto [end, error] = std::from_chars(code.data(), code.data() + code.size(), block.code);
  if (error != std::errc() || end != code.data() + code.size() || code.empty()) return std::nullopt;
  return block;
}

std::string absoluteFolder(const std::string& folder) {
  std::error_code error;
  fs::path absolute = fs::absolute(folder, error);
  if (error) return folder;
  std::string text = absolute.lexically_normal().string();
  while (text.size() > 1 && text.back() == '/')
    text.pop_back();
  return text;
}

// Writes the recording's "templates" folder, with every {{ROOT}} replaced by `root`, into a
// fresh folder below `tempFolder`. The copy's path; "" when there are no templates or they
// cannot be written.
std::string materializeTemplates(const std::string& root, const std::string& tempFolder,
                                 std::uint64_t generation) {
  fs::path templates = fs::path(root) / "templates";
  std::error_code error;
  if (tempFolder.empty() || !fs::is_directory(templates, error)) return "";
  static std::atomic<std::uint64_t> counter = 0;
  fs::path copy =
      fs::path(tempFolder) / ("replay-" + std::to_string(::getpid()) + "-" +
                              std::to_string(generation) + "-" + std::to_string(counter++));
  for (fs::recursive_directory_iterator it(templates, error), end; !error && it != end;
       it.increment(error)) {
    if (!it->is_regular_file(error)) continue;
    std::optional<std::string> text = readFile(it->path().string());
    if (!text) continue;
    *text = stringByReplacingOccurrences(*text, kRootToken, root);
    fs::path target = copy / fs::relative(it->path(), templates, error);
    if (!createDirectories(target.parent_path().string()) ||
        !writeFileAtomically(target.string(), *text)) {
      fs::remove_all(copy, error);
      return "";
    }
  }
  return copy.string();
}

}  // namespace

ReplayEngine::~ReplayEngine() {
  stopRequested_.store(true);
  changed_.notify_all();
  threads_.joinOthers();
}

bool ReplayEngine::isRecording(const std::string& folder) {
  std::error_code error;
  for (const fs::directory_entry& entry :
       fs::directory_iterator(fs::path(folder) / "stream", error)) {
    if (parseBlockName(entry.path().filename().string()) && entry.is_regular_file(error)) {
      return true;
    }
  }
  return false;
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
    replay.root = absoluteFolder(recording_);
    std::error_code error;
    fs::directory_iterator it(fs::path(replay.root) / "stream", error);
    if (error) {
      replay.unreadable = true;
      return replay;
    }
    for (const fs::directory_entry& entry : it) {
      std::string name = entry.path().filename().string();
      std::optional<BlockName> block = parseBlockName(name);
      if (!block || !entry.is_regular_file(error)) continue;
      replay.blocks.push_back(Block{name, entry.path().string(), block->code, block->null});
    }
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
  const bool ownBegin = holds(kScanBegan);
  const bool ownProgress = holds(kProgress);
  const auto total = std::count_if(replay.blocks.begin(), replay.blocks.end(),
                                   [&](const Block& block) { return isData(block.code); });
  bool ended = false;

  if (!ownBegin) send(replay, kScanBegan, nullptr);
  const std::string templates =
      replay.unreadable ? ""
                        : materializeTemplates(replay.root, replay.tempFolder, replay.generation);
  if (replay.unreadable) {
    send(replay, kScanFailed, nullptr);
    ended = true;
  }
  long current = 0;
  for (const Block& block : replay.blocks) {
    if (!pause()) break;
    std::optional<std::string> text;
    if (!block.null) {
      text = readFile(block.file);
      if (!text) continue;
      if (!templates.empty()) {
        *text = stringByReplacingOccurrences(*text, kTemplatesToken, templates);
      }
      *text = stringByReplacingOccurrences(*text, kRootToken, replay.root);
    }
    send(replay, block.code, text ? &*text : nullptr);
    if (block.code == kScanFinished || block.code == kScanFailed) ended = true;
    if (isData(block.code) && !ownProgress && !stopRequested_.load()) {
      std::string progress = progressBlock(++current, static_cast<long>(total));
      send(replay, kProgress, &progress);
    }
  }
  if (!ended) send(replay, kScanFinished, nullptr);
  if (!templates.empty()) {
    std::error_code ignored;
    fs::remove_all(templates, ignored);
  }

  std::lock_guard lock(mutex_);
  if (replay.generation == generation_) replaying_ = false;  // not a newer replay's state
  changed_.notify_all();
}

}  // namespace dataparser
