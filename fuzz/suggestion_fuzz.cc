// Builds both suggestions from snapshots decoded out of the input and checks them against
// a plain reference written with ordered maps and full sorts: the flat grouping table and
// the budget's head selection must agree with it on every input.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <tuple>

#include "core/policy/cleanup_suggestion.h"
#include "core/policy/tab_budget_suggestion.h"
#include "core/policy/tab_policy.h"

namespace {

using namespace velto;

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);

// Few distinct values per field, so that groups, ties and ambiguous Safari keys are common.
LiveTab decodeTab(const std::function<uint8_t()>& next) {
  static const char* kURLs[] = {"https://a.example/", "https://b.example/x",
                                "http://A.example/",  "https://bank.example/",
                                "about:blank",        "https://c.example/y"};
  static const char* kTitles[] = {"", "alpha", "Alpha", "beta"};
  const uint8_t a = next(), b = next(), c = next(), d = next();
  LiveTab tab;
  tab.browser = kAllBrowsers[a & 3];
  tab.windowID = (a >> 2) & 3;
  tab.index = (a >> 4) & 7;
  tab.isActive = (a & 0x80) != 0;
  tab.pinState = static_cast<PinState>((b & 3) % 3);
  tab.url = kURLs[(b >> 2) % 6];
  tab.title = kTitles[(b >> 5) & 3];
  tab.id = std::string(rawValue(tab.browser)) + ":" + std::to_string(c & 7);
  tab.lastActiveAt = addingSeconds(kNow, -3600.0 * (c >> 3));
  tab.observedAt = kNow;
  if (d & 1) tab.lastVisitAt = addingSeconds(kNow, -1800.0 * ((d >> 1) & 15));
  if (d & 0x20) tab.neverSelectedSince = addingSeconds(kNow, -1800.0 * (d >> 6));
  return tab;
}

// The tabs of `tabs` that may be proposed: canSuggestClosing, and for Safari a window and
// URL that no other Safari tab of `tabs` shows.
std::vector<LiveTab> closable(const std::vector<LiveTab>& tabs, const Preferences& p) {
  std::map<std::pair<int64_t, std::string>, int> safariKeys;
  for (const LiveTab& tab : tabs) {
    if (tab.browser == Browser::safari) ++safariKeys[{tab.windowID, tab.url}];
  }
  std::vector<LiveTab> out;
  std::copy_if(tabs.begin(), tabs.end(), std::back_inserter(out), [&](const LiveTab& tab) {
    return TabPolicy::canSuggestClosing(tab, p) &&
           (tab.browser != Browser::safari || safariKeys[{tab.windowID, tab.url}] < 2);
  });
  return out;
}

bool contains(const std::vector<LiveTab>& tabs, const LiveTab& tab) {
  return std::find(tabs.begin(), tabs.end(), tab) != tabs.end();
}

CleanupSuggestion referenceCleanup(const std::vector<LiveTab>& tabs, const Preferences& p) {
  std::vector<LiveTab> eligible;
  std::map<std::string, std::vector<const LiveTab*>> groups;
  for (const LiveTab& tab : tabs) {
    if (p.connectedBrowsers.contains(tab.browser) &&
        !TabPolicy::isExcluded(tab.url, p.exclusions)) {
      eligible.push_back(tab);
    }
  }
  for (const LiveTab& tab : eligible) groups[tab.url].push_back(&tab);
  const std::vector<LiveTab> candidates = closable(eligible, p);

  CleanupSuggestion s;
  for (const LiveTab& tab : eligible) {
    const auto& group = groups[tab.url];
    const auto active =
        std::find_if(group.begin(), group.end(), [](auto* t) { return t->isActive; });
    const LiveTab* keeper = active != group.end() ? *active : group.front();
    if (group.size() > 1 && tab.id != keeper->id && contains(candidates, tab)) {
      s.duplicates.push_back(tab);
    }
  }
  std::stable_sort(s.duplicates.begin(), s.duplicates.end(),
                   [](const LiveTab& x, const LiveTab& y) { return x.title < y.title; });
  const auto lastUsed = [&](const LiveTab& tab) { return TabPolicy::lastUsed(tab, p, kNow); };
  for (const LiveTab& tab : candidates) {
    const bool listed = std::any_of(s.duplicates.begin(), s.duplicates.end(),
                                    [&](const LiveTab& d) { return d.id == tab.id; });
    if (!listed && secondsBetween(lastUsed(tab), kNow) >= p.idleThreshold()) s.tabs.push_back(tab);
  }
  std::stable_sort(s.tabs.begin(), s.tabs.end(),
                   [&](const LiveTab& x, const LiveTab& y) { return lastUsed(x) < lastUsed(y); });
  return s;
}

std::vector<LiveTab> referenceBudget(const std::vector<LiveTab>& tabs, const Preferences& p,
                                     int64_t overflow) {
  std::vector<LiveTab> out = closable(tabs, p);
  const auto key = [&](const LiveTab& t) {
    return std::make_tuple(TabPolicy::lastUsed(t, p, kNow), rawValue(t.browser), t.windowID,
                           t.index, t.id);
  };
  std::stable_sort(out.begin(), out.end(),
                   [&](const LiveTab& x, const LiveTab& y) { return key(x) < key(y); });
  out.resize(std::min<size_t>(out.size(), static_cast<size_t>(overflow)));
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  size_t at = 0;
  const std::function<uint8_t()> next = [&] { return at < size ? data[at++] : uint8_t{0}; };
  Preferences p;
  const uint8_t settings = next();
  for (Browser browser : kAllBrowsers) {
    if (settings & (1u << static_cast<int>(browser))) p.connectedBrowsers.insert(browser);
  }
  p.idleHours = (settings >> 4) & 3;
  p.tabLimit = next() % 12;
  p.protectedTabs = static_cast<int64_t>(next() % 5) - 1;
  p.exclusions = {"bank.example"};
  const std::optional<int64_t> given =
      (settings & 0x40) ? std::optional<int64_t>(next()) : std::nullopt;

  std::vector<LiveTab> tabs;
  while (at < size && tabs.size() < 256) tabs.push_back(decodeTab(next));

  if (!(CleanupSuggestion(tabs, p, kNow) == referenceCleanup(tabs, p))) std::abort();
  const TabBudgetSuggestion budget(tabs, given, p, kNow);
  if (budget.totalCount < static_cast<int64_t>(tabs.size()) ||
      budget.tabs != referenceBudget(tabs, p, budget.overflow())) {
    std::abort();
  }
  return 0;
}
