#include "core/policy/tab_policy.h"

#include <algorithm>
#include <unordered_map>

namespace velto {

namespace {

constexpr double kFreshObservationSeconds = 90;
constexpr double kNeverSelectedTrustCap = 3600;
constexpr double kTabLimitIdleMinimum = 300;

std::string lowercased(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

bool observedRecently(const LiveTab& tab, Date now) {
  const double age = secondsBetween(tab.observedAt, now);
  return age >= 0 && age < kFreshObservationSeconds;
}

}  // namespace

namespace TabPolicy {

std::optional<Url> safeURL(std::string_view text) {
  auto url = Url::parse(text);
  if (!url) return std::nullopt;
  const std::string scheme = lowercased(url->scheme);
  if (scheme != "https" && scheme != "http") return std::nullopt;
  if (!url->hasHost || url->userInfo) return std::nullopt;
  return url;
}

std::optional<std::string> normalizedDomain(std::string_view entry) {
  return ExclusionList::normalizedDomain(entry);
}

bool isExcluded(std::string_view url, const std::vector<std::string>& domains) {
  return ExclusionList(domains).excludes(url);
}

bool isProtected(const LiveTab& tab, const Preferences& preferences) {
  switch (tab.pinState) {
    case PinState::pinned:
      return true;
    case PinState::unpinned:
      return false;
    case PinState::unknown:
      return tab.index <= preferences.protectedTabsPerWindow();
  }
  return false;
}

Date lastUsed(const LiveTab& tab, const Preferences& preferences, Date now) {
  if (!tab.lastVisitAt || *tab.lastVisitAt > now) return tab.lastActiveAt;
  if (*tab.lastVisitAt > tab.lastActiveAt) return *tab.lastVisitAt;
  if (tab.neverSelectedSince) {
    const double trustAfter = std::min(preferences.idleThreshold(), kNeverSelectedTrustCap);
    if (secondsBetween(*tab.neverSelectedSince, now) >= trustAfter) return *tab.lastVisitAt;
  }
  return tab.lastActiveAt;
}

bool canSuggestClosing(const LiveTab& tab, const Preferences& preferences) {
  return preferences.connectedBrowsers.contains(tab.browser) && !isProtected(tab, preferences) &&
         !tab.isActive && !isExcluded(tab.url, preferences.exclusions);
}

bool canAutoClose(const LiveTab& tab, const Preferences& preferences, Date now) {
  return preferences.autoClose && canSuggestClosing(tab, preferences) &&
         observedRecently(tab, now) &&
         secondsBetween(lastUsed(tab, preferences, now), now) >= preferences.idleThreshold();
}

bool canAutoCloseForTabLimit(const LiveTab& tab, const Preferences& preferences, Date now) {
  return preferences.automaticallyEnforcesTabLimit() && canSuggestClosing(tab, preferences) &&
         observedRecently(tab, now) &&
         secondsBetween(lastUsed(tab, preferences, now), now) >= kTabLimitIdleMinimum;
}

std::vector<LiveTab> reconcile(const std::vector<LiveTab>& fresh,
                               const std::vector<LiveTab>& previous, Date now) {
  std::unordered_map<std::string_view, const LiveTab*> byID;
  for (const LiveTab& tab : previous) byID[tab.id] = &tab;  // later duplicates win

  std::vector<LiveTab> result;
  result.reserve(fresh.size());
  for (const LiveTab& tab : fresh) {
    const LiveTab* match = nullptr;
    if (const auto found = byID.find(tab.id); found != byID.end()) {
      const LiveTab& old = *found->second;
      const bool samePosition = !isSafariFamily(tab.browser) || old.index == tab.index;
      if (old.url == tab.url && observedRecently(old, now) && samePosition) match = &old;
    }
    LiveTab next = tab;
    if (tab.isActive) {
      next.lastActiveAt = now;
      next.neverSelectedSince.reset();
    } else {
      next.lastActiveAt = match ? match->lastActiveAt : now;
      next.neverSelectedSince = match ? match->neverSelectedSince : std::optional<Date>(now);
    }
    next.lastVisitAt = match ? match->lastVisitAt : std::nullopt;
    next.observedAt = now;
    result.push_back(std::move(next));
  }
  return result;
}

}  // namespace TabPolicy

}  // namespace velto
