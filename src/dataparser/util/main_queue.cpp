#include "dataparser/util/main_queue.h"

namespace dataparser {

SerialQueue::SerialQueue() : thread_([this] { run(); }) {}

SerialQueue::~SerialQueue() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  if (thread_.joinable()) {
    if (isCurrent()) {
      thread_.detach();  // destroyed from one of its own tasks: cannot join itself
    } else {
      thread_.join();
    }
  }
}

void SerialQueue::post(Task task) {
  if (!task) return;
  {
    std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  wake_.notify_one();
}

void SerialQueue::drain() {
  std::unique_lock lock(mutex_);
  idle_.wait(lock, [this] { return tasks_.empty() && !running_; });
}

void SerialQueue::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
    if (tasks_.empty()) return;  // stopping and nothing left
    Task task = std::move(tasks_.front());
    tasks_.pop_front();
    running_ = true;
    lock.unlock();
    task();
    task = nullptr;  // release captures outside the lock
    lock.lock();
    running_ = false;
    if (tasks_.empty()) idle_.notify_all();
  }
}

namespace {

struct MainQueueState {
  std::mutex mutex;
  MainQueue::Poster poster;
};

MainQueueState& state() {
  static MainQueueState instance;
  return instance;
}

SerialQueue& defaultQueue() {
  static SerialQueue queue;
  return queue;
}

}  // namespace

void MainQueue::post(Task task) {
  Poster poster;
  {
    std::lock_guard lock(state().mutex);
    poster = state().poster;
  }
  if (poster) {
    poster(std::move(task));
  } else {
    defaultQueue().post(std::move(task));
  }
}

void MainQueue::setPoster(Poster poster) {
  std::lock_guard lock(state().mutex);
  state().poster = std::move(poster);
}

bool MainQueue::isCurrent() {
  {
    std::lock_guard lock(state().mutex);
    if (state().poster) return false;
  }
  return defaultQueue().isCurrent();
}

void MainQueue::drain() {
  {
    std::lock_guard lock(state().mutex);
    if (state().poster) return;
  }
  defaultQueue().drain();
}

}  // namespace dataparser
