#include "cli/watch_cycle.h"

#include <algorithm>

#include "core/model/library_lock.h"
#include "core/policy/closed_tabs.h"
#include "core/policy/tab_policy.h"
#include "core/support/uuid.h"

namespace velto {

namespace {

// As TabPolicy::reconcile trusts an earlier observation.
constexpr double kFreshObservationSeconds = 90;

}  // namespace

std::vector<std::string> runWatchCycle(const LibraryStore& store, OpenTabsSource& tabs,
                                       VisitSource& visits, Date now) {
  std::vector<std::string> problems;
  Result<LibraryState> library = store.load();
  if (!library.ok()) return {library.error().message};
  const Preferences& preferences = library->preferences;

  // Browsers are read before the lock is taken: a snapshot may take seconds, and
  // other writers would wait all that time.
  std::vector<LiveTab> fresh;
  BrowserSet observed, failed;
  for (Browser browser : kAllBrowsers) {
    if (!preferences.connectedBrowsers.contains(browser) || !tabs.isRunning(browser)) continue;
    Result<std::vector<LiveTab>> snapshot = tabs.snapshot(browser);
    if (!snapshot.ok()) {
      failed.insert(browser);
      problems.push_back(std::string(displayName(browser)) + ": " + snapshot.error().message);
      continue;
    }
    observed.insert(browser);
    fresh.insert(fresh.end(), snapshot->begin(), snapshot->end());
  }
  BrowserHistory::Visits visited;
  if (preferences.browserHistoryEnabled() && !fresh.empty()) {
    std::vector<std::string> urls;
    for (const LiveTab& tab : fresh) urls.push_back(tab.url);
    visited = visits.lastVisits(urls, observed);
  }

  const Result<void> stored = updateLibrary(store, [&](LibraryState& state) {
    const BrowserSet connected = state.preferences.connectedBrowsers;
    std::erase_if(fresh, [&](const LiveTab& tab) { return !connected.contains(tab.browser); });
    for (Browser browser : kAllBrowsers) {
      if (!connected.contains(browser)) observed.erase(browser);
    }
    const std::vector<LiveTab>& previous = state.liveTabs;
    std::vector<LiveTab> live = TabPolicy::reconcile(fresh, previous, now);
    for (LiveTab& tab : live) {
      if (const auto visit = visited.find(tab.url); visit != visited.end()) {
        tab.lastVisitAt = visit->second;
      }
    }
    for (const LiveTab& tab : previous) {
      const double age = secondsBetween(tab.observedAt, now);
      if (failed.contains(tab.browser) && connected.contains(tab.browser) && age >= 0 &&
          age < kFreshObservationSeconds) {
        live.push_back(tab);
      }
    }
    // Browser by browser, each in its own order.
    std::stable_sort(live.begin(), live.end(),
                     [](const LiveTab& a, const LiveTab& b) { return a.browser < b.browser; });
    ClosedTabs::keepClosed(state.tabs, ClosedTabs::closedSince(previous, fresh, observed),
                           state.preferences.exclusions, now, [] { return Uuid::random(); });
    state.liveTabs = std::move(live);
    state.liveUpdatedAt = now;
    return true;
  });
  if (!stored.ok()) problems.push_back(stored.error().message);
  return problems;
}

}  // namespace velto
