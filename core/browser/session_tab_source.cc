#include "core/browser/session_reader.h"
#include "core/browser/tab_source.h"
#include "core/model/velto_error.h"

namespace velto {

SessionTabSource::SessionTabSource(EnvironmentLookup env) : env_(std::move(env)) {}

Result<std::vector<LiveTab>> SessionTabSource::snapshot(Browser browser) {
  return SessionReader::openTabs(browser, env_);
}

Result<void> SessionTabSource::close(const LiveTab&, bool, int64_t) {
  return VeltoError::closingUnavailable();
}

}  // namespace velto
