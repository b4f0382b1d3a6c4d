#include "core/policy/closed_tabs.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>

#include "core/policy/tab_policy.h"

namespace velto {

namespace ClosedTabs {

std::vector<LiveTab> closedSince(const std::vector<LiveTab>& previous,
                                 const std::vector<LiveTab>& fresh, BrowserSet observed) {
  // Keyed by browser and text, so that one browser's tabs say nothing about another's.
  const auto key = [](const LiveTab& tab, std::string_view text) {
    std::string joined(rawValue(tab.browser));
    joined += '\n';
    joined += text;
    return joined;
  };
  std::unordered_set<std::string> openIDs, openURLs;
  for (const LiveTab& tab : fresh) {
    openIDs.insert(key(tab, tab.id));
    openURLs.insert(key(tab, tab.url));
  }
  std::vector<LiveTab> closed;
  for (const LiveTab& tab : previous) {
    if (!observed.contains(tab.browser) || openURLs.contains(key(tab, tab.url))) continue;
    if (isSafariFamily(tab.browser) || !openIDs.contains(key(tab, tab.id))) {
      closed.push_back(tab);
    }
  }
  return closed;
}

void keepClosed(std::vector<SavedTab>& tabs, const std::vector<LiveTab>& closed,
                const std::vector<std::string>& exclusions, Date now,
                const std::function<std::optional<Uuid>()>& newID) {
  for (const LiveTab& tab : closed) {
    if (!TabPolicy::safeURL(tab.url) || TabPolicy::isExcluded(tab.url, exclusions)) continue;
    const auto entry = [&](ArchiveState state) {
      return std::find_if(tabs.begin(), tabs.end(), [&](const SavedTab& saved) {
        return saved.state == state && saved.url == tab.url;
      });
    };
    auto kept = entry(ArchiveState::closed);
    if (kept == tabs.end()) kept = entry(ArchiveState::pendingClose);
    if (kept != tabs.end()) {
      kept->title = tab.title;
      kept->browser = tab.browser;
      kept->state = ArchiveState::closed;
      kept->closedAt = now;
      continue;
    }
    const std::optional<Uuid> id = newID();
    if (!id) continue;
    SavedTab added{*id, tab.title, tab.url, tab.browser, now, now, ArchiveState::closed, false};
    tabs.push_back(std::move(added));
  }
}

}  // namespace ClosedTabs

}  // namespace velto
