#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/support/result.h"

namespace velto {

// What a finished child process left behind.
struct ProcessOutput {
  int exitStatus = 0;  // the exit code; 128 + the signal number when a signal ended it
  std::string standardOutput;
  std::string standardError;
  bool timedOut = false;  // it outlived the time limit and was killed

  bool operator==(const ProcessOutput&) const = default;
};

// Runs `program` (an absolute path; no shell, no PATH search) with `arguments`, the
// environment of this process, `input` written to its standard input (then closed),
// and waits for it to end, collecting both output streams whole. A child that stops
// reading early is not an error: the rest of the input is dropped. Fails only when the
// program cannot be started (or the pipes cannot be made); a non-zero exit status is a
// result, for the caller to judge. Blocks the calling thread; safe to call from any thread.
//
// With a `timeLimit`, a program still running when it has passed is killed together with
// every process it started (its process group), reaped, and reported with `timedOut`
// and what it wrote until then: the call never takes much longer than the limit.
Result<ProcessOutput> runProcess(const std::string& program,
                                 const std::vector<std::string>& arguments,
                                 std::string_view input = {},
                                 std::optional<std::chrono::milliseconds> timeLimit = {});

}  // namespace velto
