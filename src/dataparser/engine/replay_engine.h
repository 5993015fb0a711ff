// ReplayEngine: a PackageEngine that replays a recorded scan through the engine callback, on a
// thread of its own, as the extraction engine would run a real one.
//
// A recording is a folder whose "stream" subfolder holds one file per callback, named
// "NNNNNN-CODE.json" (six-digit sequence, callback code) or "NNNNNN-CODE.null" (a callback with
// null text), replayed in name order. Every "{{ROOT}}" in a block becomes the recording folder's
// absolute path. The engine sends code 90 first and 92 last, and a progress block 91
// {"current": i, "total": n} after each data block (codes that carry a data type), unless the
// recording holds its own blocks of those codes. After a failure block (84) no closing 92 is
// added: the scan has ended.
//
// Templates: files that name other files of the recording (message files listing attachment
// paths) go below the recording's "templates" folder. Before the first block, the engine writes
// a copy of that folder with every "{{ROOT}}" replaced, into a fresh folder below the temporary
// folder given to InitPackageData, and every "{{TEMPLATES}}" in a block becomes that copy's path.
// The copy is removed when the replay ends (also after a stop); copies that killed processes left
// behind are swept by the next InitPackageData. Recordings without a "templates" folder cost
// nothing extra.
//
// Which recording: the folder named by AddBackupFolder or AddTypeBackupFolder (the last one
// wins). Without one, the stream files among the files given by AddPackageFile (a device backup
// of a recording) are replayed, with the folder above their "stream" folder as the root. Without
// either, the scan is empty: 90 then 92. A named folder without a readable "stream" folder
// fails the scan: 90 then 84.
//
// When: the replay starts at AddPackageFileFinish, the end of the input, for every start
// operation alike; StartPackage only registers the callback. A second finish while a replay
// runs is ignored, unless that replay has already sent its end: then the new replay starts
// after the old one's last callback has returned. StopPackage ends the replay between blocks; the
// engine then still reports the end (92), as the real one does. InitPackageData prepares a new scan
// and clears a stop; a stop asked for before the end of the input ends that scan as soon as it
// starts.
//
// While a replay runs, paths that its blocks name count only inside the recording and the
// template copy (a BackupScope, util/file_scope.h).
//
// Every call made to the engine is recorded for inspection (`calls`).
//
// Thread safety: all operations may be called from any thread. The destructor stops the replay
// and waits for its thread, so it must not run on that thread's callback.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dataparser/core/package_engine.h"
#include "dataparser/engine/engine_threads.h"
#include "dataparser/engine/recording.h"

namespace dataparser {

class ReplayEngine final : public PackageEngine {
 public:
  struct Call {
    std::string name;  // the operation, e.g. "AddTypeNeedScan"
    std::vector<std::string> arguments;
    bool operator==(const Call&) const = default;
  };

  ReplayEngine() = default;
  ~ReplayEngine() override;
  ReplayEngine(const ReplayEngine&) = delete;
  ReplayEngine& operator=(const ReplayEngine&) = delete;

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

  // True when `folder` holds a recording: a "stream" folder with at least one block file.
  static bool isRecording(const std::string& folder);

  // Every call so far, in order.
  std::vector<Call> calls() const;
  // The calls named `name`, in order.
  std::vector<Call> calls(std::string_view name) const;
  // A pause before each block (0 by default); a stop cuts it short.
  void setBlockDelay(std::chrono::milliseconds delay);
  // Waits until no replay is running; false when `timeout` passed first.
  bool waitUntilIdle(std::chrono::milliseconds timeout) const;

 private:
  using Block = recording::Block;
  struct Replay {
    PackageCallback callback = nullptr;
    std::string root;
    std::vector<Block> blocks;
    bool unreadable = false;
    std::uint64_t generation = 0;
    std::string tempFolder;  // where template copies go
  };

  void record(std::string name, std::vector<std::string> arguments);
  Replay prepareReplay();  // called with mutex_ held
  void run(Replay replay);
  // Sends one callback (no-op without a registered callback).
  void send(const Replay& replay, CallbackTypeExtend code, const std::string* text);
  // Waits the block delay; false once a stop was asked for.
  bool pause();

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<Call> calls_;
  PackageCallback callback_ = nullptr;
  std::string recording_;
  std::vector<std::string> packageFiles_;
  std::string tempFolder_;
  std::chrono::milliseconds blockDelay_{0};
  bool replaying_ = false;
  bool ended_ = false;
  std::uint64_t generation_ =
      0;  // of the latest replay  // the running replay has sent its end (92 or 84)
  std::atomic<bool> stopRequested_ = false;
  EngineThreads threads_;  // last: joined before the state above goes
};

}  // namespace dataparser
