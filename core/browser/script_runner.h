#pragma once

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
class CommandScriptRunner : public ScriptRunner {
 public:
  CommandScriptRunner(std::string program, std::vector<std::string> arguments);
  Result<ScriptValue> run(const std::string& source) override;

 private:
  std::string program_;
  std::vector<std::string> arguments_;
};

// The error number at the end of a script runner's error message, as in
// "...: execution error: Not authorized to send Apple events to Safari. (-1743)";
// 0 when the message does not end in one.
int64_t automationErrorNumber(std::string_view standardError);

// The script runner of this platform: the system's AppleScript runner on macOS; on a
// system without one, a runner whose every run fails with scriptNotCreated.
std::unique_ptr<ScriptRunner> platformScriptRunner();

}  // namespace velto
