#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/model/records.h"
#include "core/support/date.h"
#include "core/support/uuid.h"

namespace velto {

// Which open tabs the user closed between two snapshots, and how the library keeps them,
// so that closed tabs can be found and reopened later. Pure rules: no state, no I/O,
// never fail.
namespace ClosedTabs {

// The tabs of `previous` that were closed by the time of `fresh`, in the order of
// `previous`. Only tabs of browsers in `observed` (running, and snapshotted into `fresh`)
// count: a browser that has quit or could not be read closed nothing. A tab is closed
// when its page is open in no tab of its browser any more and, for the Chromium family,
// its tab id is gone too (a tab that navigated elsewhere was not closed). Safari reports
// positions, not tab ids, so there a page counts as closed once no Safari tab shows it.
// A page still open in another tab of the same browser (such as after the browser
// restored its session under new ids) is not closed.
std::vector<LiveTab> closedSince(const std::vector<LiveTab>& previous,
                                 const std::vector<LiveTab>& fresh, BrowserSet observed);

// Keeps each tab of `closed` in `tabs` (the library's saved tabs) as a tab in state
// closed, closed at `now`, when its URL is safe (TabPolicy::safeURL) and not excluded by
// `exclusions`. One closed entry per URL: a page closed again refreshes the title,
// browser and closedAt of its closed entry; failing one, a tab of that URL waiting for
// its close to be confirmed (pendingClose) is confirmed closed; otherwise a new entry is
// added at the end, saved at `now`, with the id `newID` gives (none: the tab is not kept).
// Other entries and the order of `tabs` are left alone.
void keepClosed(std::vector<SavedTab>& tabs, const std::vector<LiveTab>& closed,
                const std::vector<std::string>& exclusions, Date now,
                const std::function<std::optional<Uuid>()>& newID);

}  // namespace ClosedTabs

}  // namespace velto
