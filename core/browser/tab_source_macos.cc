#include "core/browser/tab_source.h"

namespace velto {

std::unique_ptr<TabSource> platformTabSource(ScriptRunner& runner, const EnvironmentLookup&) {
  return std::make_unique<ScriptTabSource>(runner);
}

}  // namespace velto
