#include "core/browser/script_runner.h"

#include <algorithm>
#include <charconv>

#include "core/browser/process_runner.h"
#include "core/model/velto_error.h"

namespace velto {

namespace {

// The error number of an Apple Event that timed out.
constexpr int64_t kTimedOut = -1712;
constexpr std::chrono::seconds kDefaultAppleEventTimeout{120};

}  // namespace

CommandScriptRunner::CommandScriptRunner(std::string program, std::vector<std::string> arguments,
                                         std::chrono::milliseconds grace)
    : program_(std::move(program)), arguments_(std::move(arguments)), grace_(grace) {}

Result<ScriptValue> CommandScriptRunner::run(const std::string& source) {
  const auto output = runProcess(program_, arguments_, source, scriptTimeLimit(source) + grace_);
  if (!output.ok()) return VeltoError::scriptNotCreated();
  if (output->timedOut) return VeltoError::automationFailure(kTimedOut);
  if (output->exitStatus != 0) {
    return VeltoError::automationFailure(automationErrorNumber(output->standardError));
  }
  auto value = parseScriptOutput(output->standardOutput);
  if (!value) return VeltoError::automationFailure(0);
  return std::move(*value);
}

std::chrono::seconds scriptTimeLimit(std::string_view source) {
  constexpr std::string_view prefix = "with timeout of ";
  const std::string_view firstLine = source.substr(0, source.find('\n'));
  if (!firstLine.starts_with(prefix)) return kDefaultAppleEventTimeout;
  const std::string_view rest = firstLine.substr(prefix.size());
  int64_t seconds = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), seconds);
  if (error != std::errc() || std::string_view(end, rest.data() + rest.size()) != " seconds" ||
      seconds < 0) {
    return kDefaultAppleEventTimeout;
  }
  // Capped at a day, so that adding the grace cannot overflow.
  return std::chrono::seconds(std::min<int64_t>(seconds, 86400));
}

int64_t automationErrorNumber(std::string_view standardError) {
  const size_t last = standardError.find_last_not_of(" \t\r\n");
  if (last == std::string_view::npos || standardError[last] != ')') return 0;
  const size_t open = standardError.rfind('(', last);
  if (open == std::string_view::npos) return 0;
  const std::string_view digits = standardError.substr(open + 1, last - open - 1);
  int64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || end != digits.data() + digits.size()) return 0;
  return number;
}

}  // namespace velto
