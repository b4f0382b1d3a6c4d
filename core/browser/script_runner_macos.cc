#include "core/browser/script_runner.h"

namespace velto {

// osascript reads the script from standard input; "-s s" prints the result in source
// form, so lists, text, integers and booleans can be read back exactly.
std::unique_ptr<ScriptRunner> platformScriptRunner() {
  return std::make_unique<CommandScriptRunner>("/usr/bin/osascript",
                                               std::vector<std::string>{"-s", "s", "-"});
}

}  // namespace velto
