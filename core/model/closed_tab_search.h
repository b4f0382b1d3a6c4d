#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/model/exclusion_list.h"
#include "core/model/records.h"
#include "core/model/search_query.h"
#include "core/support/date.h"

namespace velto {

// The closed tabs of one library that are not excluded, newest activity first (equal
// dates in library order), each with its search text (title, URL and browser name)
// folded once, so that a search is one scan over prepared text. Built for one list of
// tabs and used only with that same list, unchanged; built again for a changed list, it
// works out again only what belongs to the tabs that changed.
class ClosedTabSearch {
 public:
  // An origin for a tab that is new or changed.
  static constexpr uint32_t kChanged = UINT32_MAX;

  struct Page {
    std::vector<const SavedTab*> tabs;  // the first `limit` found, newest first
    size_t total = 0;                   // all found
  };

  // Empty: finds nothing.
  ClosedTabSearch() = default;
  ClosedTabSearch(const std::vector<SavedTab>& tabs, const ExclusionList& exclusions) {
    rebuild(tabs, exclusions);
  }

  // Builds again for `tabs`, in the memory of the previous build.
  void rebuild(const std::vector<SavedTab>& tabs, const ExclusionList& exclusions);

  // Builds again for `tabs`, which replaced the list this was last built for, with the
  // same exclusions: origins[k] is the position tab k had in that list when it is the
  // same tab unchanged, else kChanged. Unchanged tabs must keep their order.
  void update(const std::vector<SavedTab>& tabs, const ExclusionList& exclusions,
              const std::vector<uint32_t>& origins);

  // The tabs active at or after `since` (when given) that match `query`, as
  // SavedTab::matches decides, from the list this was built for.
  Page search(const std::vector<SavedTab>& tabs, const SearchQuery& query,
              std::optional<Date> since, size_t limit) const;

  size_t size() const { return byDate_.size(); }

 private:
  void compact();
  uint32_t append(const SavedTab& tab, uint32_t position);
  // Adds `fresh` kept tabs, in any order, to those byDate_ holds in order, and ranks all.
  void order(const std::vector<SavedTab>& tabs, const std::vector<uint32_t>& fresh);

  // Positions in the list of the kept tabs, newest first.
  std::vector<uint32_t> byDate_;
  // The search texts, one entry per kept tab in the order they were added (scanned in
  // the order they lie in memory), each field followed by a byte that no folded term
  // holds, so no term matches across two fields or two tabs. Entry e's text ends at
  // ends_[e] and belongs to the tab at owner_[e], whose place in byDate_ is rank_[e];
  // the entry of a tab that is gone stays, with both kNone, until it is worth
  // compacting. (Offsets fit in 32 bits: a library is read whole into memory.)
  std::string text_;
  std::vector<uint32_t> ends_;
  std::vector<uint32_t> owner_;
  std::vector<uint32_t> rank_;
  size_t deadBytes_ = 0;
  // For each position in the list, its entry, or kNone when the tab is not kept.
  std::vector<uint32_t> entryOf_;
};

}  // namespace velto
