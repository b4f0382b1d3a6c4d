#include "core/model/prepared_library.h"

namespace velto {

void PreparedLibrary::prepare() {
  exclusions = ExclusionList(state.preferences.exclusions);
  exclusionEntries_ = state.preferences.exclusions;
  closedTabs.rebuild(state.tabs, exclusions);
  prepareLiveTabs();
}

void PreparedLibrary::prepare(const SavedTabMemo& memo) {
  if (memo.sources.size() != state.tabs.size() ||
      exclusionEntries_ != state.preferences.exclusions) {
    return prepare();
  }
  origins_.resize(memo.sources.size());
  for (size_t k = 0; k < origins_.size(); ++k) {
    const uint32_t origin = memo.sources[k].origin;
    origins_[k] = origin == SavedTabMemo::kFresh ? ClosedTabSearch::kChanged : origin;
  }
  closedTabs.update(state.tabs, exclusions, origins_);
  prepareLiveTabs();
}

void PreparedLibrary::prepareLiveTabs() {
  listedLiveTabs.clear();
  const BrowserSet& connected = state.preferences.connectedBrowsers;
  for (size_t i = 0; i < state.liveTabs.size(); ++i) {
    const LiveTab& tab = state.liveTabs[i];
    if (!exclusions.excludes(tab.url) && connected.contains(tab.browser)) {
      listedLiveTabs.push_back(static_cast<uint32_t>(i));
    }
  }
}

}  // namespace velto
