#pragma once

#include <string>
#include <vector>

#include "core/browser/browser_history.h"
#include "core/model/library_store.h"
#include "core/model/records.h"
#include "core/support/date.h"
#include "core/support/result.h"

namespace velto {

// Where a watch cycle finds the open tabs of the browsers (the browser bridge; tests
// substitute fakes).
class OpenTabsSource {
 public:
  virtual ~OpenTabsSource() = default;
  virtual bool isRunning(Browser browser) = 0;
  // The open tabs of a running browser, window by window.
  virtual Result<std::vector<LiveTab>> snapshot(Browser browser) = 0;
};

// Where a watch cycle finds when the user last visited pages (the browsers' history).
class VisitSource {
 public:
  virtual ~VisitSource() = default;
  virtual BrowserHistory::Visits lastVisits(const std::vector<std::string>& urls,
                                            BrowserSet browsers) = 0;
};

// One cycle of `velto watch`, what the desktop app does while it runs:
//  1. reads the library for the connected browsers and whether history may be read;
//  2. snapshots every connected browser that is running (a browser that is not running
//     has no open tabs and closes nothing);
//  3. when browserHistory is on, looks up the last visit of every open page;
//  4. under the writers' lock, reloads the library and stores the snapshot as liveTabs
//     (TabPolicy::reconcile with the stored one, lastVisitAt from the history where it
//     knows the page) with liveUpdatedAt `now`, and keeps the tabs closed since the
//     stored snapshot as closed tabs (ClosedTabs). A browser disconnected meanwhile
//     contributes nothing.
// A browser whose snapshot fails keeps the tabs of the stored snapshot that are still
// fresh (observed less than 90 s ago), so one failed read neither empties the list nor
// makes its tabs look closed or new. Returns one sentence per problem (empty when the
// cycle went well); a library that cannot be loaded is left untouched.
std::vector<std::string> runWatchCycle(const LibraryStore& store, OpenTabsSource& tabs,
                                       VisitSource& visits, Date now);

}  // namespace velto
