#include "core/model/prepared_library.h"

namespace velto {

void PreparedLibrary::prepare() {
  exclusions = ExclusionList(state.preferences.exclusions);
  closedTabs.rebuild(state.tabs, exclusions);
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
