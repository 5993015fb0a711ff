// BackupManager: makes a backup of a connected device into a folder, file by file, and tells
// its observer how it goes.
//
// Events, in this order, on the manager's own thread:
//   backupManagerReadyBegined, backupManagerReadyCompleted   preparing the device
//   backupManagerBackupBegin(folder)                          the backup folder is known
//   per file: backupManagerShouldBackupFile (may veto), the copy, backupManagerDidCompleteOneFile,
//             backupManagerBackupProgress(0..1)
//   backupManagerResult(result, folder, errorCode)            always last, also after a stop
// The meaning of `backupCategory`, `isMove` and of the error codes belongs to the manager.
//
// Ownership: the observer is not owned; it must outlive every backup it observes (the
// coordinator, its usual observer, lives for the whole process).
// Thread safety: `stopBackUp` may be called from any thread; the observer is called on the
// manager's thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace dataparser {

// A connected device as the backup manager knows it.
struct BackupDevice {
  std::string UDID;
  std::string name;
  // Where the manager reads the device's files from (the folder-copy manager copies this folder).
  std::string location;
};

class BackupManagerObserver {
 public:
  virtual ~BackupManagerObserver() = default;
  virtual void backupManagerReadyBegined() = 0;
  virtual void backupManagerReadyCompleted() = 0;
  virtual void backupManagerBackupBegin(const std::string& path) = 0;
  virtual void backupManagerBackupProgress(float progress) = 0;
  // Asked before each file; false skips it.
  virtual bool backupManagerShouldBackupFile(const std::string& deviceFileName,
                                             const std::string& localFileName) = 0;
  virtual void backupManagerDidCompleteOneFile(const std::string& deviceFileName,
                                               const std::string& localFileName) = 0;
  virtual void backupManagerResult(bool result, const std::string& path,
                                   std::int32_t errorCode) = 0;
};

class BackupManager {
 public:
  virtual ~BackupManager() = default;
  virtual void setObserver(BackupManagerObserver* observer) = 0;
  // Starts a backup of `device` below `path`; returns at once, events follow.
  virtual void backupDevice(std::shared_ptr<const BackupDevice> device, const std::string& path,
                            bool isIncrement, std::int64_t backupCategory, bool isMove) = 0;
  virtual void stopBackUp() = 0;
};

// The backup manager a coordinator uses until the host installs its own. The engine layer
// defines it (a folder-copy manager), so that this layer names only the interface.
std::shared_ptr<BackupManager> makeDefaultBackupManager();

}  // namespace dataparser
