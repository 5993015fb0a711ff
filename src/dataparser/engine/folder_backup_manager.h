// FolderBackupManager: a BackupManager that "backs up" a device by copying the folder named by
// the device's `location` into "{path}/{UDID}", one file at a time, with the event sequence of a
// real device backup (see backup_manager.h). Used by tests and demos.
//
// Files are copied in the order of their relative paths; symbolic links are not followed. The
// device file name of each file is its path relative to the source folder, the local file name
// the full path of the copy. `isIncrement`, `backupCategory` and `isMove` are recorded but
// change nothing: the source folder is never modified.
//
// Error codes of the result: kBackupOK, kBackupStopped (stopBackUp), kBackupSourceMissing (no
// readable source folder), kBackupCopyFailed (a file could not be copied; the backup ends).
//
// Thread safety: each backup runs on a thread of its own; all operations may be called from any
// thread. The destructor stops a running backup and waits for it, so it must not run on an
// observer callback of that backup.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dataparser/core/backup_manager.h"

namespace dataparser {

class FolderBackupManager final : public BackupManager {
 public:
  static constexpr std::int32_t kBackupOK = 0;
  static constexpr std::int32_t kBackupStopped = 1;
  static constexpr std::int32_t kBackupSourceMissing = 2;
  static constexpr std::int32_t kBackupCopyFailed = 3;

  struct Request {
    std::shared_ptr<const BackupDevice> device;
    std::string path;
    bool isIncrement = false;
    std::int64_t backupCategory = 0;
    bool isMove = false;
  };

  FolderBackupManager() = default;
  ~FolderBackupManager() override;
  FolderBackupManager(const FolderBackupManager&) = delete;
  FolderBackupManager& operator=(const FolderBackupManager&) = delete;

  void setObserver(BackupManagerObserver* observer) override;
  void backupDevice(std::shared_ptr<const BackupDevice> device, const std::string& path,
                    bool isIncrement, std::int64_t backupCategory, bool isMove) override;
  void stopBackUp() override;

  // The requests received so far.
  std::vector<Request> requests() const;
  // Waits for every backup started so far to end.
  void waitUntilDone();

 private:
  void run(Request request, BackupManagerObserver* observer);

  mutable std::mutex mutex_;
  BackupManagerObserver* observer_ = nullptr;
  std::vector<Request> requests_;
  std::vector<std::thread> threads_;
  std::atomic<bool> stopRequested_ = false;
};

}  // namespace dataparser
