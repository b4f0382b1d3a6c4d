#include "core/policy/cleanup_suggestion.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "core/policy/safari_ambiguity.h"
#include "core/policy/tab_policy.h"

namespace velto {

CleanupSuggestion::CleanupSuggestion(const std::vector<LiveTab>& snapshot,
                                     const Preferences& preferences, Date now) {
  const ExclusionList exclusions(preferences.exclusions);
  std::vector<const LiveTab*> eligible;
  eligible.reserve(snapshot.size());
  SafariAmbiguity ambiguity;
  for (const LiveTab& tab : snapshot) {
    if (!preferences.connectedBrowsers.contains(tab.browser) || exclusions.excludes(tab.url)) {
      continue;
    }
    eligible.push_back(&tab);
    ambiguity.add(tab);
  }

  const auto isCandidate = [&](const LiveTab& tab) {
    return !tab.isActive && !TabPolicy::isProtected(tab, preferences) &&
           !ambiguity.isAmbiguous(tab);
  };

  struct Group {
    size_t size = 0;
    const LiveTab* first = nullptr;
    const LiveTab* firstActive = nullptr;
  };
  std::unordered_map<std::string_view, Group> groups;
  groups.reserve(eligible.size());
  for (const LiveTab* tab : eligible) {
    Group& group = groups[tab->url];
    ++group.size;
    if (!group.first) group.first = tab;
    if (!group.firstActive && tab->isActive) group.firstActive = tab;
  }

  // Members are collected in snapshot order, so equal titles come out in that order.
  std::vector<const LiveTab*> surplus;
  std::unordered_set<std::string_view> surplusIDs;
  for (const LiveTab* tab : eligible) {
    const Group& group = groups.find(tab->url)->second;
    if (group.size < 2) continue;
    const LiveTab* keeper = group.firstActive ? group.firstActive : group.first;
    if (tab->id == keeper->id || !isCandidate(*tab)) continue;
    surplus.push_back(tab);
    surplusIDs.insert(tab->id);
  }
  std::stable_sort(surplus.begin(), surplus.end(),
                   [](const LiveTab* a, const LiveTab* b) { return a->title < b->title; });
  duplicates.reserve(surplus.size());
  for (const LiveTab* tab : surplus) duplicates.push_back(*tab);

  const double threshold = preferences.idleThreshold();
  std::vector<std::pair<Date, const LiveTab*>> idle;
  for (const LiveTab* tab : eligible) {
    if (!isCandidate(*tab) || surplusIDs.contains(tab->id)) continue;
    const Date lastUsed = TabPolicy::lastUsed(*tab, preferences, now);
    if (secondsBetween(lastUsed, now) >= threshold) idle.emplace_back(lastUsed, tab);
  }
  std::stable_sort(idle.begin(), idle.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  tabs.reserve(idle.size());
  for (const auto& [lastUsed, tab] : idle) tabs.push_back(*tab);
}

}  // namespace velto
