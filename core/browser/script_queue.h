#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <type_traits>

namespace velto {

// A serial queue: one worker thread runs submitted work one item at a time, first come
// first served. Browser scripts all go through the one process-wide queue (shared()), so
// at most one conversation with a browser is in flight at any time.
//
// submit() may be called from any thread. Its future is fulfilled exactly once: with what
// the work returned, or with the exception it threw. Destroying a queue runs everything
// already submitted, then joins the worker.
class ScriptQueue {
 public:
  static constexpr std::string_view kLabel = "app.velto.browser-automation";

  // The worker thread is named after `label`, cut to what the platform allows.
  explicit ScriptQueue(std::string_view label = kLabel);
  ~ScriptQueue();
  ScriptQueue(const ScriptQueue&) = delete;
  ScriptQueue& operator=(const ScriptQueue&) = delete;

  // The queue every browser script of the process runs on; created on first use and kept
  // for the life of the process.
  static ScriptQueue& shared();

  template <class Work>
  auto submit(Work work) -> std::future<std::invoke_result_t<Work&>> {
    using Task = std::packaged_task<std::invoke_result_t<Work&>()>;
    auto task = std::make_shared<Task>(std::move(work));
    auto future = task->get_future();
    enqueue([task] { (*task)(); });
    return future;
  }

 private:
  void enqueue(std::function<void()> item);
  void drain();

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> items_;
  bool stopping_ = false;
  std::thread worker_;
};

// Names the calling thread for debuggers and process listings, as far as the platform
// allows (15 bytes on Linux). One implementation per platform.
void nameCurrentThread(std::string_view name);

}  // namespace velto
