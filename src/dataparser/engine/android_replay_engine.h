// AndroidReplayEngine: an AndroidPackageEngine that replays a recorded scan (the format of
// engine/recording.h) through the Android callback, on a thread of its own.
//
// The recording is the folder named by the parameter object's "primary_file_object"
// "msg_file_path", or the nearest folder above it that is a recording (so the path may name the
// backup's database file inside the recording). Blocks are sent as they stand, in name order,
// with the templates filled in below the parameter object's "temp_folder". The replay then ends
// with a callback with null text (code 20, or 21 for a WhatsApp Business extraction), the Android
// end signal, unless the recording's last block already is a ".null" one that was sent. Without
// a recording the engine reports an error (code 0) and nothing else. QMDataStop ends the replay
// between blocks; the end signal still follows. While a replay runs, paths that its blocks name
// count only inside the recording and the template copy (a BackupScope).
//
// Every call made to the engine is recorded for inspection (`calls`).
//
// Thread safety: all operations may be called from any thread. The destructor stops the replay
// and waits for its thread, so it must not run on that thread's callback.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dataparser/core/android_package_engine.h"

namespace dataparser {

class AndroidReplayEngine final : public AndroidPackageEngine {
 public:
  struct Call {
    std::string name;
    std::vector<std::string> arguments;
    bool operator==(const Call&) const = default;
  };

  AndroidReplayEngine() = default;
  ~AndroidReplayEngine() override;
  AndroidReplayEngine(const AndroidReplayEngine&) = delete;
  AndroidReplayEngine& operator=(const AndroidReplayEngine&) = delete;

  void InitQMDataPackage(const char* logFolder, const char* configFolder) override;
  void QMDataFilter(const char* text, int length) override;
  void QMDataPackage(AndroidPackageCallback callback) override;
  void QMDataStop() override;

  std::vector<Call> calls() const;
  // Waits until no replay is running; false when `timeout` passed first.
  bool waitUntilIdle(std::chrono::milliseconds timeout) const;

 private:
  struct Replay {
    AndroidPackageCallback callback = nullptr;
    std::string root;  // "" when no recording was found
    std::string tempFolder;
    std::int32_t endCode = 20;
  };

  void record(std::string name, std::vector<std::string> arguments);
  void run(const Replay& replay);
  void join();

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<Call> calls_;
  std::string filter_;
  bool replaying_ = false;
  std::atomic<bool> stopRequested_ = false;
  std::thread thread_;
};

}  // namespace dataparser
