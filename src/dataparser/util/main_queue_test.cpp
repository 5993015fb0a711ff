#include "dataparser/util/main_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <vector>

namespace dataparser {
namespace {

TEST(MainQueueTest, RunsTasksInOrderOffTheCallersThread) {
  std::vector<int> order;
  std::promise<bool> onQueue;
  for (int i = 0; i < 50; ++i)
    MainQueue::post([&order, i] { order.push_back(i); });
  MainQueue::post([&onQueue] { onQueue.set_value(MainQueue::isCurrent()); });
  EXPECT_TRUE(onQueue.get_future().get());
  MainQueue::drain();
  ASSERT_EQ(order.size(), 50u);
  for (int i = 0; i < 50; ++i)
    EXPECT_EQ(order[i], i);
  EXPECT_FALSE(MainQueue::isCurrent());
}

TEST(MainQueueTest, HostPosterReceivesTasks) {
  std::vector<MainQueue::Task> received;
  MainQueue::setPoster([&received](MainQueue::Task task) { received.push_back(std::move(task)); });
  int ran = 0;
  MainQueue::post([&ran] { ++ran; });
  MainQueue::setPoster(nullptr);
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(ran, 0);
  received[0]();
  EXPECT_EQ(ran, 1);
}

TEST(SerialQueueTest, DestructionRunsWhatWasPosted) {
  std::atomic<int> ran = 0;
  {
    SerialQueue queue;
    for (int i = 0; i < 10; ++i)
      queue.post([&ran] { ++ran; });
  }
  EXPECT_EQ(ran.load(), 10);
}

}  // namespace
}  // namespace dataparser
