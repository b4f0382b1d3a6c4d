#include "core/browser/script_queue.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace velto {
namespace {

TEST(ScriptQueueTest, RunsEverythingOnOneThreadInSubmissionOrder) {
  ScriptQueue queue;
  std::vector<int> order;  // touched only by the worker
  std::vector<std::future<std::thread::id>> done;
  for (int i = 0; i < 200; ++i) {
    done.push_back(queue.submit([&order, i] {
      order.push_back(i);
      return std::this_thread::get_id();
    }));
  }
  const std::thread::id worker = done.front().get();
  EXPECT_NE(worker, std::this_thread::get_id());
  for (size_t i = 1; i < done.size(); ++i) EXPECT_EQ(done[i].get(), worker);
  for (size_t i = 0; i < order.size(); ++i) EXPECT_EQ(order[i], static_cast<int>(i));
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
    auto& future = done[static_cast<size_t>(i)];
    ASSERT_EQ(future.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    EXPECT_EQ(future.get(), i);
  }
}

}  // namespace
}  // namespace velto
