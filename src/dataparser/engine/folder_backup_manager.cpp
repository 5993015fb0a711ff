#include "dataparser/engine/folder_backup_manager.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <utility>

#include "dataparser/util/file_helper.h"
#include "dataparser/util/path.h"

namespace dataparser {
namespace {

namespace fs = std::filesystem;

// Regular files below `folder`, as paths relative to it, in order; nothing when it cannot be
// read.
std::optional<std::vector<std::string>> filesBelow(const std::string& folder) {
  std::error_code error;
  if (folder.empty() || !fs::is_directory(folder, error)) return std::nullopt;
  fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied, error);
  if (error) return std::nullopt;
  std::vector<std::string> files;
  for (auto end = fs::recursive_directory_iterator(); it != end; it.increment(error)) {
    if (error) break;
    if (it->is_regular_file(error) && !it->is_symlink(error)) {
      files.push_back(it->path().lexically_relative(folder).generic_string());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

FolderBackupManager::~FolderBackupManager() {
  stopBackUp();
  waitUntilDone();
}

void FolderBackupManager::setObserver(BackupManagerObserver* observer) {
  std::lock_guard lock(mutex_);
  observer_ = observer;
}

void FolderBackupManager::backupDevice(std::shared_ptr<const BackupDevice> device,
                                       const std::string& path, bool isIncrement,
                                       std::int64_t backupCategory, bool isMove) {
  Request request{std::move(device), path, isIncrement, backupCategory, isMove};
  std::lock_guard lock(mutex_);
  requests_.push_back(request);
  stopRequested_.store(false);
  threads_.emplace_back(
      [this, request = std::move(request), observer = observer_] { run(request, observer); });
}

void FolderBackupManager::stopBackUp() {
  stopRequested_.store(true);
}

std::vector<FolderBackupManager::Request> FolderBackupManager::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

void FolderBackupManager::waitUntilDone() {
  std::vector<std::thread> running;
  {
    std::lock_guard lock(mutex_);
    running.swap(threads_);
  }
  for (std::thread& thread : running) {
    if (thread.get_id() == std::this_thread::get_id()) {
      thread.detach();  // asked from one of its own events
    } else {
      thread.join();
    }
  }
}

void FolderBackupManager::run(Request request, BackupManagerObserver* observer) {
  if (observer == nullptr) return;
  observer->backupManagerReadyBegined();
  observer->backupManagerReadyCompleted();

  const BackupDevice* device = request.device.get();
  std::string destination = path::appendingPathComponent(
      request.path, path::safeComponent(device != nullptr ? device->UDID : ""));
  createDirectories(destination);
  observer->backupManagerBackupBegin(destination);

  auto finish = [&](bool result, std::int32_t code) {
    observer->backupManagerResult(result, destination, code);
  };
  std::optional<std::vector<std::string>> files =
      filesBelow(device != nullptr ? device->location : "");
  if (!files) return finish(false, kBackupSourceMissing);

  const std::size_t total = files->size();
  for (std::size_t index = 0; index < total; ++index) {
    if (stopRequested_.load()) return finish(false, kBackupStopped);
    const std::string& relative = (*files)[index];
    std::string local = path::appendingPathComponent(destination, relative);
    if (observer->backupManagerShouldBackupFile(relative, local)) {
      std::error_code error;
      fs::create_directories(fs::path(local).parent_path(), error);
      fs::copy_file(path::appendingPathComponent(device->location, relative), local,
                    fs::copy_options::overwrite_existing, error);
      if (error) return finish(false, kBackupCopyFailed);
      observer->backupManagerDidCompleteOneFile(relative, local);
    }
    observer->backupManagerBackupProgress(static_cast<float>(index + 1) /
                                          static_cast<float>(total));
  }
  finish(true, kBackupOK);
}

std::shared_ptr<BackupManager> makeDefaultBackupManager() {
  return std::make_shared<FolderBackupManager>();
}

}  // namespace dataparser
