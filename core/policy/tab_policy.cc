#include "core/policy/tab_policy.h"

#include <algorithm>
#include <unordered_map>

#include "core/support/text.h"

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

std::string_view trimmed(std::string_view text, std::string_view characters) {
  const size_t first = text.find_first_not_of(characters);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

// Entries are often pasted from web pages, so a no-break or ideographic space around the
// domain must go as an ASCII one does.
std::string_view trimmedWhitespace(std::string_view text) {
  const auto pieces = splitAtWhitespace(text);
  if (pieces.empty()) return {};
  return {pieces.front().data(), pieces.back().data() + pieces.back().size()};
}

// FNV-1a taken from the last byte backwards, so that one pass over a host passes through
// the hash of each of its parent domains.
constexpr uint64_t kHashBasis = 0xcbf29ce484222325;
uint64_t suffixHashStep(uint64_t hash, char c) {
  return (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
}
// The high bits: they depend on every byte hashed.
size_t filterSlot(uint64_t hash) { return static_cast<size_t>(hash >> 52); }

bool observedRecently(const LiveTab& tab, Date now) {
  const double age = secondsBetween(tab.observedAt, now);
  return age >= 0 && age < kFreshObservationSeconds;
}

}  // namespace

ExclusionList::ExclusionList(const std::vector<std::string>& entries) {
  for (const std::string& entry : entries) {
    auto domain = TabPolicy::normalizedDomain(entry);
    if (!domain) continue;
    uint64_t hash = kHashBasis;
    for (auto c = domain->rbegin(); c != domain->rend(); ++c) hash = suffixHashStep(hash, *c);
    mayHold_.set(filterSlot(hash));
    domains_.emplace_back(hash, std::move(*domain));
  }
  std::sort(domains_.begin(), domains_.end());
}

bool ExclusionList::excludes(std::string_view url) const {
  // One buffer per thread, for the hosts that need lowercasing: this runs for every tab of
  // a library.
  thread_local std::string buffer;
  const auto host = safeHttpHost(url, buffer);
  if (!host) return true;
  // The host itself and each parent domain at a label boundary, from the shortest up.
  uint64_t hash = kHashBasis;
  for (size_t i = host->size(); i-- > 0;) {
    hash = suffixHashStep(hash, (*host)[i]);
    if ((i > 0 && (*host)[i - 1] != '.') || !mayHold_.test(filterSlot(hash))) continue;
    const std::string_view candidate = host->substr(i);
    const auto byHash = [](const std::pair<uint64_t, std::string>& entry, uint64_t value) {
      return entry.first < value;
    };
    auto entry = std::lower_bound(domains_.begin(), domains_.end(), hash, byHash);
    for (; entry != domains_.end() && entry->first == hash; ++entry) {
      if (entry->second == candidate) return true;
    }
  }
  return false;
}

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
  std::string text = lowercased(trimmedWhitespace(entry));
  if (text.starts_with("*.")) text.erase(0, 2);
  if (text.find("://") == std::string::npos) text.insert(0, "https://");
  const auto url = Url::parse(text);
  if (!url || !url->hasHost) return std::nullopt;
  std::string host(trimmed(lowercased(url->host), "."));
  if (host.find('.') == std::string::npos || host.find(' ') != std::string::npos) {
    return std::nullopt;
  }
  return host;
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
