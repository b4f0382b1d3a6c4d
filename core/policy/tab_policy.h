#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/model/exclusion_list.h"
#include "core/model/records.h"
#include "core/support/date.h"
#include "core/support/url.h"

namespace velto {

// Pure rules over the core records: which URLs are safe, which are excluded, which tabs
// are protected, idle, or may be closed, and how a fresh snapshot inherits timestamps.
// No state, no I/O, never fails. Ages are `now` minus the date, in seconds.
namespace TabPolicy {

// The URL when it is http or https (any case), has a host and no user or password.
std::optional<Url> safeURL(std::string_view text);

// An exclusion entry reduced to the domain it names: ExclusionList::normalizedDomain.
std::optional<std::string> normalizedDomain(std::string_view entry);

// True when the URL's host is, or is a subdomain of, one of the entries, as
// ExclusionList::excludes answers. Fails closed: anything that is not a safe URL counts
// as excluded.
bool isExcluded(std::string_view url, const std::vector<std::string>& domains);

// Pinned tabs are protected; where pinning is unknown, the leading
// protectedTabsPerWindow positions are; known-unpinned tabs never are.
bool isProtected(const LiveTab& tab, const Preferences& preferences);

// The date idleness is measured from: a newer history visit beats the last time the tab
// was seen active; an older one is trusted only once the tab has gone unselected for
// min(idleThreshold, 1 hour).
Date lastUsed(const LiveTab& tab, const Preferences& preferences, Date now);

// Connected browser, not protected, not active, not excluded.
bool canSuggestClosing(const LiveTab& tab, const Preferences& preferences);

// canSuggestClosing, autoClose on, observed less than 90 s ago, idle past the threshold.
bool canAutoClose(const LiveTab& tab, const Preferences& preferences, Date now);

// canSuggestClosing, automaticTabLimit on, observed less than 90 s ago, idle 5 minutes.
bool canAutoCloseForTabLimit(const LiveTab& tab, const Preferences& preferences, Date now);

// `fresh` in its order, carrying over lastActiveAt, neverSelectedSince and lastVisitAt from
// the same tab in `previous` (same id and URL, observed less than 90 s ago, and for Safari
// the same position).
std::vector<LiveTab> reconcile(const std::vector<LiveTab>& fresh,
                               const std::vector<LiveTab>& previous, Date now);

}  // namespace TabPolicy

}  // namespace velto
