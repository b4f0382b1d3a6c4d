#pragma once

#include <cstdint>
#include <future>
#include <string_view>
#include <vector>

#include "core/browser/application_launcher.h"
#include "core/browser/script_value.h"
#include "core/browser/tab_source.h"
#include "core/model/records.h"
#include "core/support/result.h"

namespace velto {

// The one place where Velto drives the browsers: reads the open tabs of a browser, closes
// one tab safely, reopens a saved link, and answers whether a browser is installed or
// running. Tabs are read and closed through the platform's TabSource (scripts on macOS,
// session files on Linux) on the process-wide ScriptQueue, one call at a time whatever
// browser it targets; snapshot() and close() return at once with a future that the queue
// fulfils exactly once. The bridge keeps no state between calls.
//
// `tabs` and `launcher` must outlive the bridge and every future it returned.
class BrowserBridge {
 public:
  BrowserBridge(TabSource& tabs, ApplicationLauncher& launcher);

  // The open tabs of `browser` (window by window, at most 1000), or the source's failure.
  std::future<Result<std::vector<LiveTab>>> snapshot(Browser browser);

  // Closes `tab` if it is still where the snapshot saw it; VeltoError::tabChanged() when
  // the browser closed nothing, VeltoError::closingUnavailable() where tabs come from
  // session files. An `automatic` close of a pinned tab fails with
  // VeltoError::tabPinned() at once, without queuing anything; see
  // BrowserScripts::closeScript for `protectedTabs`.
  std::future<Result<void>> close(const LiveTab& tab, bool automatic, int64_t protectedTabs);

  // Asked of the launcher on the caller's thread.
  bool isInstalled(Browser browser);
  bool isRunning(Browser browser);
  // Opens a saved link in `browser`, as reopenTab does; does not use the script queue.
  Result<void> reopen(std::string_view url, Browser browser);

 private:
  TabSource& tabs_;
  ApplicationLauncher& launcher_;
};

// Reads a snapshot reply into tabs. Rows that are not lists of exactly 6 items
// {windowID, tabID, position, title, URL, active} are skipped, as are rows whose window
// id is not a base-10 64-bit integer ("+12" is one; "12a", "" and overflow are not) and
// rows whose window id, tab id, title or URL has no text form (text, or an integer in
// decimal). An empty title becomes the URL; an active flag that is `missing value` (the
// row's sixth item is there but holds nothing) counts as active. Safari tabs have no tab
// id of their own: their id uses the position ("safari:88:3"), Chromium ones the tab id
// ("chrome:1234:567"). Pinning is unknown; lastActiveAt and observedAt are now().
// A reply that is not a list holds no tabs.
std::vector<LiveTab> liveTabsFromSnapshot(const ScriptValue& rows, Browser browser);

}  // namespace velto
