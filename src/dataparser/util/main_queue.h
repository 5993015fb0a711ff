// MainQueue: the library's stand-in for the platform's main-thread event queue.
//
// Tasks posted to it run one at a time, in posting order. By default they run on one background
// thread that the library owns (started on first use, stopped at exit); a host with its own
// event loop installs a poster that forwards tasks to it. FileDownloader delivers every event on
// this queue, so code that waits for a download must not run on it.
//
// SerialQueue is the executor behind the default; it is usable on its own.
//
// Thread safety: every function may be called from any thread.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace dataparser {

class SerialQueue {
 public:
  using Task = std::function<void()>;

  SerialQueue();
  // Runs the tasks already posted, then stops the thread.
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  void post(Task task);
  // True when called from a task of this queue.
  bool isCurrent() const { return std::this_thread::get_id() == thread_.get_id(); }
  // Blocks until every task posted before the call has run. Must not be called from the queue.
  void drain();

 private:
  void run();

  std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable idle_;
  std::deque<Task> tasks_;
  bool running_ = false;  // a task is executing
  bool stopping_ = false;
  std::thread thread_;  // last: starts after the fields above exist
};

class MainQueue {
 public:
  using Task = std::function<void()>;
  using Poster = std::function<void(Task)>;

  static void post(Task task);
  // Installs the host's poster; an empty function brings back the default thread.
  static void setPoster(Poster poster);
  // True on the default thread. A host poster answers false.
  static bool isCurrent();
  // Waits for the default thread to run what was posted so far (no-op with a host poster).
  static void drain();
};

}  // namespace dataparser
