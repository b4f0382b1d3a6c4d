#include "core/browser/script_queue.h"

#include <string>

namespace velto {

ScriptQueue::ScriptQueue(std::string_view label) {
  worker_ = std::thread([this, name = std::string(label)] {
    nameCurrentThread(name);
    drain();
  });
}

ScriptQueue::~ScriptQueue() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_one();
  worker_.join();
}

ScriptQueue& ScriptQueue::shared() {
  // Never destroyed: a script may still be running while the process exits, and exit
  // must not wait for a browser to answer.
  static ScriptQueue* const queue = new ScriptQueue(kLabel);
  return *queue;
}

void ScriptQueue::enqueue(std::function<void()> item) {
  {
    std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
  }
  wake_.notify_one();
}

void ScriptQueue::drain() {
  while (true) {
    std::function<void()> item;
    {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return stopping_ || !items_.empty(); });
      if (items_.empty()) return;  // stopping, and nothing left to run
      item = std::move(items_.front());
      items_.pop_front();
    }
    item();
  }
}

}  // namespace velto
