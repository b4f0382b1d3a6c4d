// Builds both suggestions from snapshots decoded out of the input and checks them against
// a plain reference written with ordered maps and full sorts: the flat grouping table and
// the budget's head selection must agree with it on every input.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <tuple>

#include "core/policy/cleanup_suggestion.h"
#include "core/policy/tab_budget_suggestion.h"
#include "core/policy/tab_policy.h"

namespace {

using namespace velto;

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);

class Bytes {
 public:
  Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool empty() const { return at_ >= size_; }
  uint8_t next() { return at_ < size_ ? data_[at_++] : 0; }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t at_ = 0;
};

// Few distinct values per field, so that groups, ties and ambiguous Safari keys are common.
LiveTab decodeTab(Bytes& bytes) {
  static const char* kURLs[] = {"https://a.example/", "https://b.example/x",
                                "http://A.example/",  "https://bank.example/",
                                "about:blank",        "https://c.example/y"};
  static const char* kTitles[] = {"", "alpha", "Alpha", "beta"};
  const uint8_t a = bytes.next(), b = bytes.next(), c = bytes.next(), d = bytes.next();
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

bool candidate(const LiveTab& tab, const Preferences& p,
               const std::map<std::pair<int64_t, std::string>, int>& safariKeys) {
  const bool ambiguous =
      tab.browser == Browser::safari && safariKeys.at({tab.windowID, tab.url}) >= 2;
  return !tab.isActive && !TabPolicy::isProtected(tab, p) && !ambiguous;
}

CleanupSuggestion referenceCleanup(const std::vector<LiveTab>& tabs, const Preferences& p) {
  std::vector<LiveTab> eligible;
  for (const LiveTab& tab : tabs) {
    if (p.connectedBrowsers.contains(tab.browser) &&
        !TabPolicy::isExcluded(tab.url, p.exclusions)) {
      eligible.push_back(tab);
    }
  }
  std::map<std::pair<int64_t, std::string>, int> safariKeys;
  for (const LiveTab& tab : eligible) {
    if (tab.browser == Browser::safari) ++safariKeys[{tab.windowID, tab.url}];
  }
  std::map<std::string, std::vector<const LiveTab*>> groups;
  for (const LiveTab& tab : eligible) groups[tab.url].push_back(&tab);

  CleanupSuggestion s;
  for (const LiveTab& tab : eligible) {
    const auto& group = groups[tab.url];
    if (group.size() < 2) continue;
    const auto active =
        std::find_if(group.begin(), group.end(), [](auto* t) { return t->isActive; });
    const LiveTab* keeper = active != group.end() ? *active : group.front();
    if (tab.id != keeper->id && candidate(tab, p, safariKeys)) s.duplicates.push_back(tab);
  }
  std::stable_sort(s.duplicates.begin(), s.duplicates.end(),
                   [](const LiveTab& x, const LiveTab& y) { return x.title < y.title; });
  for (const LiveTab& tab : eligible) {
    const bool listed = std::any_of(s.duplicates.begin(), s.duplicates.end(),
                                    [&](const LiveTab& d) { return d.id == tab.id; });
    const Date used = TabPolicy::lastUsed(tab, p, kNow);
    if (candidate(tab, p, safariKeys) && !listed &&
        secondsBetween(used, kNow) >= p.idleThreshold()) {
      s.tabs.push_back(tab);
    }
  }
  std::stable_sort(s.tabs.begin(), s.tabs.end(), [&](const LiveTab& x, const LiveTab& y) {
    return TabPolicy::lastUsed(x, p, kNow) < TabPolicy::lastUsed(y, p, kNow);
  });
  return s;
}

std::vector<LiveTab> referenceBudget(const std::vector<LiveTab>& tabs, const Preferences& p,
                                     int64_t overflow) {
  std::map<std::pair<int64_t, std::string>, int> safariKeys;
  for (const LiveTab& tab : tabs) {
    if (tab.browser == Browser::safari) ++safariKeys[{tab.windowID, tab.url}];
  }
  std::vector<LiveTab> out;
  for (const LiveTab& tab : tabs) {
    if (p.connectedBrowsers.contains(tab.browser) && candidate(tab, p, safariKeys) &&
        !TabPolicy::isExcluded(tab.url, p.exclusions)) {
      out.push_back(tab);
    }
  }
  std::stable_sort(out.begin(), out.end(), [&](const LiveTab& x, const LiveTab& y) {
    return std::make_tuple(TabPolicy::lastUsed(x, p, kNow), rawValue(x.browser), x.windowID,
                           x.index, x.id) < std::make_tuple(TabPolicy::lastUsed(y, p, kNow),
                                                            rawValue(y.browser), y.windowID,
                                                            y.index, y.id);
  });
  out.resize(std::min<size_t>(out.size(), static_cast<size_t>(overflow)));
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bytes bytes(data, size);
  Preferences p;
  const uint8_t settings = bytes.next();
  for (Browser browser : kAllBrowsers) {
    if (settings & (1u << static_cast<int>(browser))) p.connectedBrowsers.insert(browser);
  }
  p.idleHours = (settings >> 4) & 3;
  p.tabLimit = bytes.next() % 12;
  p.protectedTabs = static_cast<int64_t>(bytes.next() % 5) - 1;
  p.exclusions = {"bank.example"};
  const std::optional<int64_t> given =
      (settings & 0x40) ? std::optional<int64_t>(bytes.next()) : std::nullopt;

  std::vector<LiveTab> tabs;
  while (!bytes.empty() && tabs.size() < 256) tabs.push_back(decodeTab(bytes));

  if (!(CleanupSuggestion(tabs, p, kNow) == referenceCleanup(tabs, p))) std::abort();
  const TabBudgetSuggestion budget(tabs, given, p, kNow);
  if (budget.totalCount < static_cast<int64_t>(tabs.size()) ||
      budget.tabs != referenceBudget(tabs, p, budget.overflow())) {
    std::abort();
  }
  return 0;
}
