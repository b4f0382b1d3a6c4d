#include "core/browser/browser_bridge.h"
#include "core/browser/browser_scripts.h"
#include "core/browser/tab_source.h"
#include "core/model/velto_error.h"

namespace velto {

ScriptTabSource::ScriptTabSource(ScriptRunner& runner) : runner_(runner) {}

Result<std::vector<LiveTab>> ScriptTabSource::snapshot(Browser browser) {
  const auto reply = runner_.run(BrowserScripts::snapshotScript(browser));
  if (!reply.ok()) return reply.error();
  return liveTabsFromSnapshot(*reply, browser);
}

Result<void> ScriptTabSource::close(const LiveTab& tab, bool automatic, int64_t protectedTabs) {
  const auto reply = runner_.run(BrowserScripts::closeScript(tab, automatic, protectedTabs));
  if (!reply.ok()) return reply.error();
  if (!reply->booleanValue()) return VeltoError::tabChanged();
  return {};
}

}  // namespace velto
