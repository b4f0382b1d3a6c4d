#pragma once

#include <vector>

#include "core/model/records.h"
#include "core/support/date.h"

namespace velto {

// The open tabs the user could close: tabs idle past their threshold and surplus copies
// of a URL that is open more than once. Built from one snapshot; it only proposes.
//
// Only tabs of connected browsers whose URL is not excluded take part. Active tabs,
// protected tabs and Safari tabs that share their window and URL with another (see
// TabGroups::ambiguousSafariTabs) are never proposed. A tab never stands in both lists.
struct CleanupSuggestion {
  // Idle tabs (last used at least idleThreshold ago), longest unused first; equal dates
  // keep snapshot order.
  std::vector<LiveTab> tabs;
  // In each group of tabs with the exact same URL, every member but the keeper (the
  // first active member, else the first member). Sorted by title in plain byte order;
  // equal titles keep snapshot order.
  std::vector<LiveTab> duplicates;

  CleanupSuggestion() = default;
  // `tabs` in snapshot order. Never fails; no freshness test and no autoClose switch
  // apply, so any snapshot may be used.
  CleanupSuggestion(const std::vector<LiveTab>& snapshot, const Preferences& preferences, Date now);

  bool operator==(const CleanupSuggestion&) const = default;
};

}  // namespace velto
