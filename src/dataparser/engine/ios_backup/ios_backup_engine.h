// IOSBackupEngine: a PackageEngine over a real device backup folder (the unencrypted folder a
// computer writes when it backs up an iPhone), with no closed component.
//
// A scan reads the folder named by AddBackupFolder or AddTypeBackupFolder (the last one wins):
// Manifest.plist (an encrypted backup fails the scan), Manifest.db (the index of the backup's
// files), then one app database per reader row (backup_reader.h), each opened read-only and
// immutable, so the folder is left byte for byte as it was. It calls the callback with 90
// first, then for each reader its block (the reader's code) followed by a progress block 91
// {"current": i, "total": n}, and 92 last. A reader whose database is missing, corrupt or
// unreadable is skipped with a run-log line and still counts for the progress. A folder that is
// no backup, an encrypted one, or no folder at all (single device files through AddPackageFile
// are not read by this engine) gives 90, a run-log line, 84 and nothing else.
//
// Scan types: with no AddTypeNeedScan call, or with scan type 0 (everything) among them, every
// reader runs; a scan limited to application scan types runs only the readers of those types
// (none of the first readers has one).
//
// Files the blocks name go to a fresh folder below the temporary folder of InitPackageData (the
// system's temporary folder when none was given), removed when the scan ends; the parsers have
// read them by then, since the callback parses synchronously. While a scan runs, paths that its
// blocks name count only inside the backup folder and that scan folder (a BackupScope).
//
// When: the scan starts at AddPackageFileFinish and runs on its own thread; StartPackage only
// registers the callback. A second finish while a scan runs is ignored, unless that scan has
// sent its end. StopPackage ends the scan between blocks (a long reader also gives up between
// records); the engine still sends 92. InitPackageData clears the input and a stop.
//
// Thread safety: all operations may be called from any thread. The destructor stops the scan
// and waits for its thread, so it must not run on that thread's callback.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>

#include "dataparser/core/package_engine.h"
#include "dataparser/engine/engine_threads.h"

namespace dataparser {

class IOSBackupEngine final : public PackageEngine {
 public:
  IOSBackupEngine() = default;
  ~IOSBackupEngine() override;
  IOSBackupEngine(const IOSBackupEngine&) = delete;
  IOSBackupEngine& operator=(const IOSBackupEngine&) = delete;

  void InitPackageData(const std::string& logFolder, const std::string& configFolder,
                       const std::string& tempFolder) override;
  void StartPackage(PackageCallback callback) override;
  void StopPackage() override;
  void UninitPackageData() override;
  void AddBackupFolder(const std::string& path) override;
  void AddTypeBackupFolder(const std::string& path) override;
  void AddPhotoBackupFolder(const std::string& path) override;
  void AddVoiceMemosBackupFolder(const std::string& path) override;
  void AddTypeNeedScan(ScanType type) override;
  void AddPackageFile(const char* text, int length) override;
  void AddPackageFileFinish() override;

  // True when `folder` looks like a device backup: it holds a "Manifest.db" file.
  static bool isBackup(const std::string& folder);

  // Waits until no scan is running; false when `timeout` passed first.
  bool waitUntilIdle(std::chrono::milliseconds timeout) const;

 private:
  struct Scan {
    PackageCallback callback = nullptr;
    std::string folder;
    std::string tempFolder;
    std::set<ScanType> scanTypes;
    std::uint64_t generation = 0;
  };

  void run(const Scan& scan);
  void send(const Scan& scan, CallbackTypeExtend code, const std::string* text);

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  PackageCallback callback_ = nullptr;
  std::string folder_;
  std::string tempFolder_;
  std::set<ScanType> scanTypes_;
  bool running_ = false;
  bool ended_ = false;  // the running scan has sent its end
  std::uint64_t generation_ = 0;
  std::atomic<bool> stopRequested_ = false;
  EngineThreads threads_;  // last: joined before the state above goes
};

}  // namespace dataparser
