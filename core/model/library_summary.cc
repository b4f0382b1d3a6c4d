#include "core/model/library_summary.h"

#include <algorithm>
#include <string>
#include <unordered_set>

#include "core/model/exclusion_list.h"
#include "core/model/search_query.h"

namespace velto {

namespace {

constexpr double kSnapshotFreshSeconds = 120;

// Keeps the first tab of each URL; the input is sorted newest first, so that is the
// most recently active one.
std::vector<SavedTab> firstPerURL(const std::vector<const SavedTab*>& sorted, bool closedOnly) {
  std::unordered_set<std::string_view> seen;
  std::vector<SavedTab> kept;
  for (const SavedTab* tab : sorted) {
    if (closedOnly && tab->state != ArchiveState::closed) continue;
    if (seen.insert(tab->url).second) kept.push_back(*tab);
  }
  return kept;
}

}  // namespace

LibrarySummary::LibrarySummary(const LibraryState& state, Date now) {
  const ExclusionList exclusions(state.preferences.exclusions);

  std::vector<const SavedTab*> visible;
  for (const SavedTab& tab : state.tabs) {
    if (tab.state != ArchiveState::pendingClose && !exclusions.excludes(tab.url)) {
      visible.push_back(&tab);
    }
  }
  std::stable_sort(visible.begin(), visible.end(), [](const SavedTab* a, const SavedTab* b) {
    return a->activityDate() > b->activityDate();
  });
  tabs = firstPerURL(visible, false);
  closedTabs = firstPerURL(visible, true);

  if (state.liveUpdatedAt && secondsBetween(*state.liveUpdatedAt, now) < kSnapshotFreshSeconds) {
    openTabs = std::count_if(state.liveTabs.begin(), state.liveTabs.end(), [&](const LiveTab& tab) {
      return state.preferences.connectedBrowsers.contains(tab.browser) &&
             !exclusions.excludes(tab.url);
    });
  }
}

std::vector<SavedTab> LibrarySummary::matching(std::string_view query, bool closedOnly) const {
  const SearchQuery search(query);
  std::vector<SavedTab> found;
  for (const SavedTab& tab : closedOnly ? closedTabs : tabs) {
    if (search.matches(tab)) found.push_back(tab);
  }
  return found;
}

}  // namespace velto
