#include "dataparser/engine/ios_backup/ios_backup_engine.h"

#include <unistd.h>

#include <filesystem>

#include "dataparser/engine/ios_backup/backup_manifest.h"
#include "dataparser/engine/ios_backup/backup_reader.h"
#include "dataparser/util/file_scope.h"
#include "dataparser/util/run_log.h"

namespace dataparser {
namespace {

namespace fs = std::filesystem;

// A fresh folder of this scan's own below `tempFolder`; "" when it cannot be made.
std::string makeScanFolder(const std::string& tempFolder, std::uint64_t generation) {
  std::error_code error;
  fs::path base = tempFolder.empty() ? fs::temp_directory_path(error) : fs::path(tempFolder);
  if (error) return {};
  static std::atomic<std::uint64_t> counter = 0;
  fs::path folder = base / ("ios-backup-" + std::to_string(::getpid()) + "-" +
                            std::to_string(generation) + "-" + std::to_string(counter++));
  fs::create_directories(folder, error);
  return error ? std::string() : folder.string();
}

}  // namespace

IOSBackupEngine::~IOSBackupEngine() {
  stopRequested_.store(true);
  threads_.joinOthers();
}

bool IOSBackupEngine::isBackup(const std::string& folder) {
  return BackupManifest::isBackup(folder);
}

bool IOSBackupEngine::waitUntilIdle(std::chrono::milliseconds timeout) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [this] { return !running_; });
}

void IOSBackupEngine::InitPackageData(const std::string&, const std::string&,
                                      const std::string& tempFolder) {
  bool endedScan = false;
  {
    std::lock_guard lock(mutex_);
    endedScan = running_ && ended_;
  }
  if (endedScan) threads_.joinOthers();  // the previous scan is over; let its last callback end
  std::lock_guard lock(mutex_);
  tempFolder_ = tempFolder;
  folder_.clear();
  scanTypes_.clear();
  if (!running_) stopRequested_.store(false);
}

void IOSBackupEngine::StartPackage(PackageCallback callback) {
  std::lock_guard lock(mutex_);
  callback_ = callback;
}

void IOSBackupEngine::StopPackage() {
  stopRequested_.store(true);
}

void IOSBackupEngine::UninitPackageData() {
  stopRequested_.store(true);
  threads_.joinOthers();
  std::lock_guard lock(mutex_);
  callback_ = nullptr;
}

void IOSBackupEngine::AddBackupFolder(const std::string& path) {
  std::lock_guard lock(mutex_);
  folder_ = path;
}

void IOSBackupEngine::AddTypeBackupFolder(const std::string& path) {
  std::lock_guard lock(mutex_);
  folder_ = path;
}

// Photos and voice memos have no reader yet.
void IOSBackupEngine::AddPhotoBackupFolder(const std::string&) {}
void IOSBackupEngine::AddVoiceMemosBackupFolder(const std::string&) {}

void IOSBackupEngine::AddTypeNeedScan(ScanType type) {
  std::lock_guard lock(mutex_);
  scanTypes_.insert(type);
}

// Single files of a device are not read by this engine: it reads whole backup folders.
void IOSBackupEngine::AddPackageFile(const char*, int) {}

void IOSBackupEngine::AddPackageFileFinish() {
  {
    std::lock_guard lock(mutex_);
    if (running_ && !ended_) return;  // the input of the running scan is already complete
  }
  threads_.joinOthers();  // a scan that has sent its end finishes its last callback first
  std::lock_guard lock(mutex_);
  if (running_ && !ended_) return;
  Scan scan{callback_, folder_, tempFolder_, scanTypes_, ++generation_};
  running_ = true;
  ended_ = false;
  threads_.start([this, scan = std::move(scan)] { run(scan); });
}

void IOSBackupEngine::send(const Scan& scan, CallbackTypeExtend code, const std::string* text) {
  if (code == kEngineScanFinished || code == kEngineScanFailed) {
    std::lock_guard lock(mutex_);
    if (scan.generation == generation_) ended_ = true;
  }
  if (scan.callback == nullptr) return;
  scan.callback(code, text != nullptr ? text->c_str() : nullptr,
                text != nullptr ? static_cast<int>(text->size()) : 0);
}

void IOSBackupEngine::run(const Scan& scan) {
  send(scan, kEngineScanBegan, nullptr);
  BackupManifest::Failure failure = BackupManifest::Failure::kNone;
  std::string reason;
  std::unique_ptr<BackupManifest> backup =
      scan.folder.empty() ? nullptr : BackupManifest::open(scan.folder, &failure, &reason);
  std::string workFolder;
  BackupScope scope;
  if (!backup) {
    RunLog::write("*** iOS backup: cannot read {}: {}", scan.folder,
                  scan.folder.empty() ? "no backup folder" : reason);
    std::string error = failure == BackupManifest::Failure::kEncrypted
                            ? "{\"error\": \"encrypted backup\"}"
                            : "{\"error\": \"not a device backup\"}";
    send(scan, kEngineScanFailed, &error);
  } else {
    workFolder = makeScanFolder(scan.tempFolder, scan.generation);
    // While the scan runs, files that its blocks name count only inside the backup and the
    // scan's own folder.
    scope = BackupScope({scan.folder, workFolder});
    const bool everything = scan.scanTypes.empty() || scan.scanTypes.contains(0);
    std::vector<const BackupReader*> readers;
    if (everything) {
      for (const BackupReader& reader : backupReaders())
        readers.push_back(&reader);
    }
    BackupScanContext context(*backup, workFolder, stopRequested_);
    const long total = static_cast<long>(readers.size());
    long current = 0;
    for (const BackupReader* reader : readers) {
      if (stopRequested_.load()) break;
      std::optional<std::string> block;
      const std::string path = backup->filePath(reader->domain, reader->relativePath);
      std::string error;
      std::unique_ptr<SqliteDatabase> db;
      if (path.empty()) {
        RunLog::write("*** iOS backup: no {} database ({}-{})", reader->name, reader->domain,
                      reader->relativePath);
      } else if (workFolder.empty()) {
        RunLog::write("*** iOS backup: no temporary folder for {}", reader->name);
      } else if (!(db = SqliteDatabase::openReadOnly(path, &error))) {
        RunLog::write("*** iOS backup: skipped corrupt {} database: {}", reader->name, error);
      } else {
        block = reader->read(*db, context);
        if (!block && !stopRequested_.load()) {
          RunLog::write("*** iOS backup: skipped {} database", reader->name);
        }
      }
      db.reset();
      if (stopRequested_.load()) break;
      if (block) send(scan, reader->code, &*block);
      if (stopRequested_.load()) break;
      std::string progress = progressBlock(++current, total);
      send(scan, kEngineProgress, &progress);
    }
    send(scan, kEngineScanFinished, nullptr);
  }
  if (!workFolder.empty()) {
    std::error_code ignored;
    fs::remove_all(workFolder, ignored);
  }
  std::lock_guard lock(mutex_);
  if (scan.generation == generation_) running_ = false;
  changed_.notify_all();
}

}  // namespace dataparser
