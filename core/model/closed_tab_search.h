#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/model/records.h"
#include "core/model/search_query.h"
#include "core/model/exclusion_list.h"
#include "core/support/date.h"

namespace velto {

// The closed tabs of one library that are not excluded, newest activity first (equal
// dates in library order), each with its search text (title, URL and browser name)
// folded once, so that a search is one scan over prepared text. Built for one list of
// tabs and used only with that same list, unchanged.
class ClosedTabSearch {
 public:
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

  // The tabs active at or after `since` (when given) that match `query`, as
  // SavedTab::matches decides, from the list this was built for.
  Page search(const std::vector<SavedTab>& tabs, const SearchQuery& query,
              std::optional<Date> since, size_t limit) const;

  size_t size() const { return byDate_.size(); }

 private:
  // Positions in the list of the kept tabs, newest first.
  std::vector<uint32_t> byDate_;
  // The kept tabs' search text in library order (read in the order the records lie in
  // memory): each field followed by a byte that no folded term holds, so no term matches
  // across two fields or two tabs. Tab k's text ends at ends_[k]; rank_[k] is its place
  // in byDate_. (Offsets fit in 32 bits: a library is read whole into memory.)
  std::string text_;
  std::vector<uint32_t> ends_;
  std::vector<uint32_t> rank_;
};

}  // namespace velto
