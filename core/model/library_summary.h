#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "core/model/records.h"
#include "core/support/date.h"

namespace velto {

// The app's read-side view of one loaded library: the saved tabs it shows, newest
// activity first and one per URL, how many tabs are open right now, and the confirmed
// closed tabs with a search over them. A snapshot: it does not follow later changes to
// the library. Building it never fails.
struct LibrarySummary {
  // Every tab that is not pendingClose and not excluded, newest activityDate first (ties
  // keep stored order), keeping only the first tab of each exact URL string.
  std::vector<SavedTab> tabs;
  // Tabs open in connected browsers on non-excluded URLs; absent when the snapshot was
  // never taken or is 120 seconds old or older. A snapshot dated after `now` counts.
  std::optional<int64_t> openTabs;
  // The closed tabs of the same sorted list, de-duplicated by URL among themselves, so a
  // URL whose newest entry is saved still shows here with its older closed entry.
  std::vector<SavedTab> closedTabs;

  LibrarySummary(const LibraryState& state, Date now);

  // The tabs of `closedTabs` (or of `tabs`), in that order, that match `query` by the
  // rule of SavedTab::matches. No ranking and no limit.
  std::vector<SavedTab> matching(std::string_view query, bool closedOnly) const;
};

}  // namespace velto
