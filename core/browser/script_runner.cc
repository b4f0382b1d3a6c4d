#include "core/browser/script_runner.h"

#include <charconv>

#include "core/browser/process_runner.h"
#include "core/model/velto_error.h"

namespace velto {

CommandScriptRunner::CommandScriptRunner(std::string program, std::vector<std::string> arguments)
    : program_(std::move(program)), arguments_(std::move(arguments)) {}

Result<ScriptValue> CommandScriptRunner::run(const std::string& source) {
  const auto output = runProcess(program_, arguments_, source);
  if (!output.ok()) return VeltoError::scriptNotCreated();
  if (output->exitStatus != 0) {
    return VeltoError::automationFailure(automationErrorNumber(output->standardError));
  }
  auto value = parseScriptOutput(output->standardOutput);
  if (!value) return VeltoError::automationFailure(0);
  return std::move(*value);
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
