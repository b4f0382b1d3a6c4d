#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/browser/script_value.h"
#include "core/support/result.h"

namespace velto {

// Runs one AppleScript text to completion and returns its result. Failures are the
// user-facing sentences of VeltoError: scriptNotCreated when there is no way to run a
// script at all, automationFailure(number) when the script ran and failed. Called only
// from the serial script queue, so implementations need not be thread-safe.
class ScriptRunner {
 public:
  virtual ~ScriptRunner() = default;
  virtual Result<ScriptValue> run(const std::string& source) = 0;
};

// Runs scripts through a command-line script runner that reads the script on standard
// input, prints the result in source form on standard output and, when the script fails,
// exits non-zero with a message ending in the error number in parentheses on standard
// error. A program that cannot be started gives scriptNotCreated; a failed script
// automationFailure with that number; a reply that cannot be read automationFailure(0).
//
// The program may hang (on a permission prompt nobody answers, say), and the one serial
// script queue must not hang with it: once it outlives the script's own time limit
// (scriptTimeLimit) plus `grace`, it is killed, with what it started, and the run fails
// with automationFailure(-1712), the error of a script that timed out.
class CommandScriptRunner : public ScriptRunner {
 public:
  static constexpr std::chrono::milliseconds kDefaultGrace{5000};

  CommandScriptRunner(std::string program, std::vector<std::string> arguments,
                      std::chrono::milliseconds grace = kDefaultGrace);
  Result<ScriptValue> run(const std::string& source) override;

 private:
  std::string program_;
  std::vector<std::string> arguments_;
  std::chrono::milliseconds grace_;
};

// The time limit a script sets itself in its first line, "with timeout of N seconds";
// AppleScript's default for Apple Events, 120 seconds, when it sets none.
std::chrono::seconds scriptTimeLimit(std::string_view source);

// The error number at the end of a script runner's error message, as in
// "...: execution error: Not authorized to send Apple events to Safari. (-1743)";
// 0 when the message does not end in one.
int64_t automationErrorNumber(std::string_view standardError);

// The script runner of this platform: the system's AppleScript runner on macOS; on a
// system without one, a runner whose every run fails with scriptNotCreated.
std::unique_ptr<ScriptRunner> platformScriptRunner();

}  // namespace velto
