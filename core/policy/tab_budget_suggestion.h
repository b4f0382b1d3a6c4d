#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include "core/model/records.h"
#include "core/support/date.h"

namespace velto {

// Which open tabs should go to bring the number of open tabs back to the user's limit.
// Built from one snapshot; it only proposes (automatic closing is further gated by
// TabPolicy::canAutoCloseForTabLimit).
//
// Candidates are the tabs of connected browsers that are neither protected, active,
// excluded, nor a Safari tab sharing its window and URL with another (see
// TabGroups::ambiguousSafariTabs). No idle threshold and no freshness test apply.
struct TabBudgetSuggestion {
  // The open tabs counted against the limit: never fewer than the snapshot holds.
  int64_t totalCount = 0;
  // Preferences::activeTabLimit.
  int64_t limit = 0;
  // The first overflow() candidates (fewer when there are not enough), ordered by last
  // use (earliest first), then browser raw value, window id, position and id.
  std::vector<LiveTab> tabs;

  TabBudgetSuggestion() = default;
  // `totalCount` is the caller's own count of open tabs, which may include tabs it could
  // not list; absent means the size of `snapshot`. Never fails.
  TabBudgetSuggestion(const std::vector<LiveTab>& snapshot, std::optional<int64_t> totalCount,
                      const Preferences& preferences, Date now);

  // How many tabs are over the limit; 0 within it.
  int64_t overflow() const { return std::max<int64_t>(totalCount - limit, 0); }

  bool operator==(const TabBudgetSuggestion&) const = default;
};

}  // namespace velto
