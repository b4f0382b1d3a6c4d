#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/model/closed_tab_search.h"
#include "core/model/exclusion_list.h"
#include "core/model/library_codec.h"
#include "core/model/records.h"

namespace velto {

// A decoded library together with what answering requests over it needs, worked out
// once per decoding instead of once per request: the normalised exclusions, the closed
// tabs prepared for search, and the open tabs that may be listed at all.
struct PreparedLibrary {
  LibraryState state;
  ExclusionList exclusions{{}};
  ClosedTabSearch closedTabs;
  // Positions in state.liveTabs of the tabs that are not excluded and belong to a
  // connected browser, in library order.
  std::vector<uint32_t> listedLiveTabs;

  // Works everything out again from `state`; call after every change to it.
  void prepare();
  // The same after a decoding into `state` with `memo`, working out again only what
  // belongs to saved tabs that changed, when the exclusions are those of the last time.
  void prepare(const SavedTabMemo& memo);

 private:
  // The entries `exclusions` was made from, and the origins taken from a memo.
  std::vector<std::string> exclusionEntries_;
  std::vector<uint32_t> origins_;
  void prepareLiveTabs();
};

}  // namespace velto
