#include "core/policy/tab_groups.h"

#include <utility>

namespace velto::TabGroups {

namespace {

size_t hashURL(const LiveTab& tab) { return std::hash<std::string_view>{}(tab.url); }

}  // namespace

std::vector<bool> ambiguousSafariTabs(const std::vector<const LiveTab*>& tabs) {
  std::vector<size_t> safari;  // positions in `tabs`
  for (size_t i = 0; i < tabs.size(); ++i) {
    if (tabs[i]->browser == Browser::safari) safari.push_back(i);
  }
  const auto first = firstOfEqualKeys(
      safari.size(),
      [&](size_t i) {
        const LiveTab& tab = *tabs[safari[i]];
        return std::pair<int64_t, std::string_view>(tab.windowID, tab.url);
      },
      [&](size_t i) {
        const LiveTab& tab = *tabs[safari[i]];
        return hashURL(tab) ^ (std::hash<int64_t>{}(tab.windowID) * 0x9e3779b97f4a7c15u);
      });
  std::vector<uint32_t> bearers(safari.size(), 0);
  for (uint32_t leader : first) ++bearers[leader];
  std::vector<bool> ambiguous(tabs.size(), false);
  for (size_t i = 0; i < safari.size(); ++i) ambiguous[safari[i]] = bearers[first[i]] >= 2;
  return ambiguous;
}

std::vector<uint32_t> firstWithSameURL(const std::vector<const LiveTab*>& tabs) {
  return firstOfEqualKeys(
      tabs.size(), [&](size_t i) { return std::string_view(tabs[i]->url); },
      [&](size_t i) { return hashURL(*tabs[i]); });
}

}  // namespace velto::TabGroups
