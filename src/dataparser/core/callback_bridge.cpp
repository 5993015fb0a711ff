#include "dataparser/core/callback_bridge.h"

#include <simdjson.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "dataparser/core/ios_data_parser.h"
#include "dataparser/util/file_helper.h"
#include "dataparser/util/path.h"
#include "dataparser/util/run_log.h"
#include "dataparser/util/text.h"

namespace dataparser {
namespace {

// A background thread that runs tasks when they are due. It is stopped and joined at exit;
// tasks not yet due then are dropped, since what they would release goes with the process.
class DelayedTasks {
 public:
  using Clock = std::chrono::steady_clock;

  static DelayedTasks& shared() {
    static DelayedTasks instance;
    return instance;
  }

  ~DelayedTasks() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
  }

  void post(Clock::duration delay, std::function<void()> task) {
    {
      std::lock_guard lock(mutex_);
      tasks_.emplace(Clock::now() + delay, std::move(task));
    }
    wake_.notify_all();
  }

 private:
  DelayedTasks() : thread_([this] { run(); }) {}

  void run() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
      if (tasks_.empty()) {
        wake_.wait(lock);
        continue;
      }
      auto next = tasks_.begin();
      if (Clock::now() < next->first) {
        wake_.wait_until(lock, next->first);
        continue;
      }
      std::function<void()> task = std::move(next->second);
      tasks_.erase(next);
      lock.unlock();
      task();
      task = nullptr;  // release what it holds outside the lock
      lock.lock();
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  std::multimap<Clock::time_point, std::function<void()>> tasks_;
  bool stopping_ = false;
  std::thread thread_;  // last: starts after the fields above exist
};

// Releases the engine one second from now on a background thread. The task shares the engine,
// so it stays valid even if the host installs another one meanwhile.
void releaseEngineLater() {
  std::shared_ptr<PackageEngine> engine = IOSDataParser::shared().packageEngine();
  DelayedTasks::shared().post(std::chrono::seconds(1), [engine = std::move(engine)] {
    RunLog::write("------ UninitPackageData");
    engine->UninitPackageData();
  });
}

int handleCallback(CallbackTypeExtend type, const char* data) {
  std::string root = productDomainPath();
  createDirectories(path::appendingPathComponent(root, "data"));

  CallbackRoute route = callbackRouteForCode(type);
  switch (route.outcome) {
    case CallbackOutcome::kReleaseEngine:
      releaseEngineLater();
      return 0;
    case CallbackOutcome::kScanBegan:
      IOSDataParser::shared().parseBegined();
      route.outcome = CallbackOutcome::kDiscard;  // any text is dropped like a discard code
      break;
    default:
      break;
  }

  if (!route.file.empty()) {
    std::string file = path::appendingPathComponent(root, route.file);
    writeJsonData(file.c_str(), data, data != nullptr ? static_cast<int>(std::strlen(data)) : 0,
                  std::string(route.mode).c_str());
  }

  if (route.outcome == CallbackOutcome::kScanFinished) {
    RunLog::write("*** Data parse finished!!!");
    IOSDataParser::shared().parseFinished(1);
    return 0;
  }
  if (route.outcome == CallbackOutcome::kScanFailed) {
    RunLog::write("*** Data parse error!!!");
    IOSDataParser::shared().parseError(3);
    return 0;
  }
  if (data == nullptr) return 0;

  std::string_view text(data);
  if (simdjson::validate_utf8(text.data(), text.size()) == false) {
    RunLog::write(">>> CallbackFuction Discard!!! invalid UTF-8 in a block of code {}", type);
    return 0;
  }
  std::string cleaned;
  if (route.type == IOSDataTypeSafariHistory) {
    cleaned = removeInvalidCharacterText(text);
    text = cleaned;
  }

  if (route.type != 0) {
    IOSDataParser::shared().analyzeData(text, route.type);
  } else if (route.outcome == CallbackOutcome::kProgress) {
    IOSDataParser::shared().analyzeProgress(text);
  } else {
    RunLog::write(">>> CallbackFuction Discard!!!");
  }
  return 0;
}

}  // namespace

std::string removeInvalidCharacterText(std::string_view text) {
  // "\u000b" twice, and "\u000b56" before it: both deliberate.
  static constexpr std::array<std::string_view, 7> kBroken = {
      "\\udeed", "\\udd4a", "\\u000b56", "\\u000b", "\\u000b", "\\u038c", "\\u060aJ",
  };
  std::string cleaned(text);
  for (std::string_view broken : kBroken)
    cleaned = stringByReplacingOccurrences(cleaned, broken, "");
  return cleaned;
}

}  // namespace dataparser

extern "C" {

int CallbackFuction(dataparser::CallbackTypeExtend type, const char* data, int /*len*/) {
  // Nothing may unwind into the engine.
  try {
    return dataparser::handleCallback(type, data);
  } catch (const std::exception& error) {
    dataparser::SystemLog::write(">>> CallbackFuction failed: {}", error.what());
  } catch (...) {
    dataparser::SystemLog::write(">>> CallbackFuction failed");
  }
  return 0;
}

void writeJsonData(const char* /*path*/, const char* /*data*/, int /*len*/, const char* /*mode*/) {
  // Deliberately empty: a later build may record the stream here.
}

char* removeInvalidCharacter(const char* text) {
  if (text == nullptr) return nullptr;
  std::string cleaned = dataparser::removeInvalidCharacterText(text);
  char* copy = static_cast<char*>(std::malloc(cleaned.size() + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, cleaned.c_str(), cleaned.size() + 1);
  return copy;
}
}
