#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/browser/script_runner.h"
#include "core/model/records.h"
#include "core/support/folders.h"
#include "core/support/result.h"

namespace velto {

// Where the open tabs of a browser are read from, and how one of them is closed, on this
// platform. BrowserBridge calls it only from the serial script queue, one call at a time.
class TabSource {
 public:
  virtual ~TabSource() = default;
  // The browser's open tabs, window by window, at most 1000; or why they could not be read.
  virtual Result<std::vector<LiveTab>> snapshot(Browser browser) = 0;
  // Closes `tab` as BrowserBridge::close describes (the pinned check is the bridge's).
  virtual Result<void> close(const LiveTab& tab, bool automatic, int64_t protectedTabs) = 0;
};

// Reads and closes tabs with the browsers' automation scripts (macOS): the snapshot
// script's rows through liveTabsFromSnapshot, the close script's answer.
// `runner` must outlive the source.
class ScriptTabSource : public TabSource {
 public:
  explicit ScriptTabSource(ScriptRunner& runner);
  Result<std::vector<LiveTab>> snapshot(Browser browser) override;
  Result<void> close(const LiveTab& tab, bool automatic, int64_t protectedTabs) override;

 private:
  ScriptRunner& runner_;
};

// Reads tabs from the Chromium-family browsers' session files (SessionReader), in the
// profiles found through `env` (Linux). No browser is asked anything, so none can close a
// tab: close() fails with VeltoError::closingUnavailable(). Safari has no session files
// here and has no tabs.
class SessionTabSource : public TabSource {
 public:
  explicit SessionTabSource(EnvironmentLookup env);
  Result<std::vector<LiveTab>> snapshot(Browser browser) override;
  Result<void> close(const LiveTab& tab, bool automatic, int64_t protectedTabs) override;

 private:
  EnvironmentLookup env_;
};

// The source of this platform: scripts through `runner` on macOS, session files found
// through `env` on Linux. `runner` must outlive the source.
std::unique_ptr<TabSource> platformTabSource(ScriptRunner& runner,
                                             const EnvironmentLookup& env = processEnvironment());

}  // namespace velto
