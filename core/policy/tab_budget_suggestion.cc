#include "core/policy/tab_budget_suggestion.h"

#include <algorithm>
#include <tuple>

#include "core/policy/tab_groups.h"
#include "core/policy/tab_policy.h"

namespace velto {

namespace {

struct Candidate {
  Date lastUsed;
  std::string_view browser;  // the raw value: "brave" < "chrome" < "edge" < "safari"
  const LiveTab* tab;
  size_t position;  // in the snapshot: makes the order total, so no stable sort is needed

  bool operator<(const Candidate& other) const {
    const LiveTab& a = *tab;
    const LiveTab& b = *other.tab;
    return std::tie(lastUsed, browser, a.windowID, a.index, a.id, position) <
           std::tie(other.lastUsed, other.browser, b.windowID, b.index, b.id, other.position);
  }
};

}  // namespace

TabBudgetSuggestion::TabBudgetSuggestion(const std::vector<LiveTab>& snapshot,
                                         std::optional<int64_t> givenCount,
                                         const Preferences& preferences, Date now)
    : totalCount(std::max(givenCount.value_or(0), static_cast<int64_t>(snapshot.size()))),
      limit(preferences.activeTabLimit()) {
  const auto wanted = static_cast<size_t>(overflow());
  if (wanted == 0) return;

  // Every Safari tab counts here, even one that is filtered out below: the close script
  // sees the whole window.
  std::vector<const LiveTab*> all;
  all.reserve(snapshot.size());
  for (const LiveTab& tab : snapshot) all.push_back(&tab);
  const std::vector<bool> ambiguous = TabGroups::ambiguousSafariTabs(all);

  const ExclusionList exclusions(preferences.exclusions);
  std::vector<Candidate> candidates;
  for (size_t i = 0; i < snapshot.size(); ++i) {
    const LiveTab& tab = snapshot[i];
    if (!preferences.connectedBrowsers.contains(tab.browser) ||
        TabPolicy::isProtected(tab, preferences) || tab.isActive || exclusions.excludes(tab.url) ||
        ambiguous[i]) {
      continue;
    }
    candidates.push_back(
        {TabPolicy::lastUsed(tab, preferences, now), rawValue(tab.browser), &tab, i});
  }

  const size_t count = std::min(wanted, candidates.size());
  const auto end = candidates.begin() + static_cast<ptrdiff_t>(count);
  if (end != candidates.end()) std::nth_element(candidates.begin(), end, candidates.end());
  std::sort(candidates.begin(), end);
  tabs.reserve(count);
  for (size_t i = 0; i < count; ++i) tabs.push_back(*candidates[i].tab);
}

}  // namespace velto
