#include "core/browser/script_runner.h"
#include "core/model/velto_error.h"

namespace velto {

namespace {

// The browsers Velto scripts do not take Apple Events here.
class UnavailableScriptRunner : public ScriptRunner {
 public:
  Result<ScriptValue> run(const std::string&) override { return VeltoError::scriptNotCreated(); }
};

}  // namespace

std::unique_ptr<ScriptRunner> platformScriptRunner() {
  return std::make_unique<UnavailableScriptRunner>();
}

}  // namespace velto
