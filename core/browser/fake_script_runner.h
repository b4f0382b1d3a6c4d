#pragma once

#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "core/browser/script_runner.h"

namespace velto {

// For tests: a ScriptRunner that records every script it was given and answers with the
// replies queued in `replies`, in order (a missing value once they run out). Safe to use
// from the script queue's thread while the test thread waits on a future; read the
// records after the futures are fulfilled.
class FakeScriptRunner : public ScriptRunner {
 public:
  Result<ScriptValue> run(const std::string& source) override {
    std::lock_guard lock(mutex_);
    ran.push_back(source);
    threads.push_back(std::this_thread::get_id());
    if (replies.empty()) return ScriptValue();
    Result<ScriptValue> reply = std::move(replies.front());
    replies.pop_front();
    return reply;
  }

  std::deque<Result<ScriptValue>> replies;
  std::vector<std::string> ran;
  std::vector<std::thread::id> threads;

 private:
  std::mutex mutex_;
};

}  // namespace velto
