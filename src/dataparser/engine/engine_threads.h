// What the engines share: the callback codes that frame a scan, the progress block, and
// EngineThreads, the scan threads of one engine.
//
// An engine runs each scan on a thread of its own and calls the callback there. A new scan, a
// release or the engine's end waits for the earlier threads with `joinOthers`, which never
// joins the calling thread itself: a callback may start the next scan or drop the engine from
// inside the scan thread. Threads still running at destruction are joined, except the calling
// one, which is detached.
//
// Thread safety: every operation may be called from any thread.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "dataparser/core/data_type.h"

namespace dataparser {

inline constexpr CallbackTypeExtend kEngineScanFailed = 84;
inline constexpr CallbackTypeExtend kEngineScanBegan = 90;
inline constexpr CallbackTypeExtend kEngineProgress = 91;
inline constexpr CallbackTypeExtend kEngineScanFinished = 92;

// {"current": i, "total": n}
std::string progressBlock(long current, long total);

class EngineThreads {
 public:
  EngineThreads() = default;
  ~EngineThreads();
  EngineThreads(const EngineThreads&) = delete;
  EngineThreads& operator=(const EngineThreads&) = delete;

  void start(std::function<void()> body);
  // Joins every thread but the calling one.
  void joinOthers();

 private:
  std::mutex mutex_;
  std::vector<std::thread> threads_;
};

}  // namespace dataparser
