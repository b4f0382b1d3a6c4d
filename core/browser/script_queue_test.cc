#include "core/browser/script_queue.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <stdexcept>
#include <vector>

namespace velto {
namespace {

std::string currentThreadName() {
  char name[64] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

TEST(ScriptQueueTest, RunsEverythingOnOneNamedThreadInSubmissionOrder) {
  ScriptQueue queue;
  std::vector<int> order;  // touched only by the worker
  std::vector<std::future<std::thread::id>> done;
  for (int i = 0; i < 200; ++i) {
    done.push_back(queue.submit([&order, i] {
      order.push_back(i);
      return std::this_thread::get_id();
    }));
  }
  std::vector<std::thread::id> threads;
  for (auto& future : done) threads.push_back(future.get());
  for (int i = 0; i < 200; ++i) EXPECT_EQ(order[static_cast<size_t>(i)], i);
  EXPECT_NE(threads.front(), std::this_thread::get_id());
  for (const auto& id : threads) EXPECT_EQ(id, threads.front());

  EXPECT_EQ(queue.submit(currentThreadName).get(), std::string(ScriptQueue::kLabel).substr(0, 15));
}

TEST(ScriptQueueTest, FutureCarriesAThrownExceptionAndTheQueueGoesOn) {
  ScriptQueue queue;
  auto failed = queue.submit([]() -> int { throw std::runtime_error("boom"); });
  auto next = queue.submit([] { return 7; });
  EXPECT_THROW(failed.get(), std::runtime_error);
  EXPECT_EQ(next.get(), 7);
}

TEST(ScriptQueueTest, DestructionRunsWhatWasAlreadySubmitted) {
  std::vector<std::future<int>> done;
  {
    ScriptQueue queue;
    for (int i = 0; i < 20; ++i) {
      done.push_back(queue.submit([i] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return i;
      }));
    }
  }
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(done[static_cast<size_t>(i)].wait_for(std::chrono::seconds(0)),
              std::future_status::ready);
    EXPECT_EQ(done[static_cast<size_t>(i)].get(), i);
  }
}

TEST(ScriptQueueTest, SharedQueueIsOneForTheProcess) {
  EXPECT_EQ(&ScriptQueue::shared(), &ScriptQueue::shared());
  auto first = ScriptQueue::shared().submit([] { return std::this_thread::get_id(); });
  std::thread other([&] {
    EXPECT_EQ(ScriptQueue::shared().submit([] { return std::this_thread::get_id(); }).get(),
              first.get());
  });
  other.join();
  EXPECT_EQ(ScriptQueue::shared().submit(currentThreadName).get(), "app.velto.brows");
}

}  // namespace
}  // namespace velto
