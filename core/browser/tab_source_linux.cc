#include "core/browser/tab_source.h"

namespace velto {

// The browsers take no scripts here, but they write their sessions to disk.
std::unique_ptr<TabSource> platformTabSource(ScriptRunner&, const EnvironmentLookup& env) {
  return std::make_unique<SessionTabSource>(env);
}

}  // namespace velto
