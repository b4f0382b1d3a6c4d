#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/browser/session_file.h"
#include "core/model/records.h"

namespace velto {

// Turns the sessions read from a browser's profile folders into the open tabs a snapshot
// gives, so that callers need not know where the tabs came from.
namespace SessionTabs {

// At most this many tabs are read per browser, as a snapshot reads at most.
constexpr size_t kMaxTabs = 1000;

// The window id a profile's window is known by. The browser's own ids are unique only
// within the browser's processes, and the files of two profiles may come from different
// runs: the profile "Default" keeps them as they are, any other profile has a stable
// 31-bit hash of its folder name (FNV-1a) above them, so ids never meet across profiles
// and stay the same from one read to the next.
int64_t windowID(std::string_view profile, int32_t sessionWindowID);

// Appends the tabs of `session` (read from `profile`, a profile folder name) to `tabs`,
// window by window in the session's order and in tab-strip order within a window, until
// `tabs` holds kMaxTabs. Each is shaped as a snapshot shapes a Chromium tab: id
// "<browser>:<windowID>:<tab id>", the 1-based position in its window as `index`, the
// selected tab of its window active, pinned or unpinned as recorded. An empty title is
// taken from `titles` (URL to the title the browser's history holds), then is the URL.
// lastActiveAt is the session's where it records one, else `now`; observedAt is `now`.
void append(const Session& session, std::string_view profile, Browser browser,
            const std::unordered_map<std::string, std::string>& titles, Date now,
            std::vector<LiveTab>& tabs);

// The URLs of the tabs of `session` whose title is empty: the ones to look up.
std::vector<std::string> untitledURLs(const Session& session);

}  // namespace SessionTabs

}  // namespace velto
