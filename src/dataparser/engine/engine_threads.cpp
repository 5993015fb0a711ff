#include "dataparser/engine/engine_threads.h"

#include <algorithm>

namespace dataparser {

std::string progressBlock(long current, long total) {
  return "{\"current\": " + std::to_string(current) + ", \"total\": " + std::to_string(total) + "}";
}

EngineThreads::~EngineThreads() {
  joinOthers();
  std::lock_guard lock(mutex_);
  for (std::thread& thread : threads_)
    thread.detach();  // only our own, when run on it
}

void EngineThreads::start(std::function<void()> body) {
  std::lock_guard lock(mutex_);
  threads_.emplace_back(std::move(body));
}

void EngineThreads::joinOthers() {
  std::vector<std::thread> joinable;
  {
    std::lock_guard lock(mutex_);
    auto self = std::find_if(threads_.begin(), threads_.end(), [](const std::thread& thread) {
      return thread.get_id() == std::this_thread::get_id();
    });
    std::thread own;
    if (self != threads_.end()) own = std::move(*self);
    for (std::thread& thread : threads_) {
      if (thread.joinable()) joinable.push_back(std::move(thread));
    }
    threads_.clear();
    if (own.joinable()) threads_.push_back(std::move(own));
  }
  for (std::thread& thread : joinable)
    thread.join();
}

}  // namespace dataparser
