#include "core/policy/cleanup_suggestion.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>

#include "core/policy/tab_groups.h"
#include "core/policy/tab_policy.h"

namespace velto {

CleanupSuggestion::CleanupSuggestion(const std::vector<LiveTab>& snapshot,
                                     const Preferences& preferences, Date now) {
  const ExclusionList exclusions(preferences.exclusions);
  std::vector<const LiveTab*> eligible;
  eligible.reserve(snapshot.size());
  for (const LiveTab& tab : snapshot) {
    if (preferences.connectedBrowsers.contains(tab.browser) && !exclusions.excludes(tab.url)) {
      eligible.push_back(&tab);
    }
  }

  const std::vector<bool> ambiguous = TabGroups::ambiguousSafariTabs(eligible);
  const auto isCandidate = [&](size_t i) {
    const LiveTab& tab = *eligible[i];
    return !tab.isActive && !TabPolicy::isProtected(tab, preferences) && !ambiguous[i];
  };

  // Per group, indexed by the position of its first member: its size and its keeper.
  const std::vector<uint32_t> group = TabGroups::firstWithSameURL(eligible);
  std::vector<uint32_t> groupSize(eligible.size(), 0);
  std::vector<uint32_t> keeper(eligible.size(), UINT32_MAX);
  for (uint32_t i = 0; i < eligible.size(); ++i) {
    ++groupSize[group[i]];
    if (keeper[group[i]] == UINT32_MAX && eligible[i]->isActive) keeper[group[i]] = i;
  }

  // Collected in snapshot order, so equal titles come out in that order.
  std::vector<const LiveTab*> surplus;
  std::unordered_set<std::string_view> surplusIDs;
  for (size_t i = 0; i < eligible.size(); ++i) {
    const uint32_t first = group[i];
    if (groupSize[first] < 2) continue;
    const LiveTab* kept = eligible[keeper[first] == UINT32_MAX ? first : keeper[first]];
    if (eligible[i]->id == kept->id || !isCandidate(i)) continue;
    surplus.push_back(eligible[i]);
    surplusIDs.insert(eligible[i]->id);
  }
  std::stable_sort(surplus.begin(), surplus.end(),
                   [](const LiveTab* a, const LiveTab* b) { return a->title < b->title; });
  duplicates.reserve(surplus.size());
  for (const LiveTab* tab : surplus) duplicates.push_back(*tab);

  const double threshold = preferences.idleThreshold();
  std::vector<std::pair<Date, const LiveTab*>> idle;
  for (size_t i = 0; i < eligible.size(); ++i) {
    if (!isCandidate(i)) continue;
    const Date lastUsed = TabPolicy::lastUsed(*eligible[i], preferences, now);
    // Surplus copies stay out, and so does any tab sharing an id with one.
    if (secondsBetween(lastUsed, now) >= threshold && !surplusIDs.contains(eligible[i]->id)) {
      idle.emplace_back(lastUsed, eligible[i]);
    }
  }
  std::stable_sort(idle.begin(), idle.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  tabs.reserve(idle.size());
  for (const auto& [lastUsed, tab] : idle) tabs.push_back(*tab);
}

}  // namespace velto
