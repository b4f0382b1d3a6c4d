#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "core/model/browser.h"
#include "core/model/records.h"

namespace velto {

// The AppleScript texts Velto sends to the browsers. They are the wire format between
// Velto and each browser's scripting dictionary, so every character matters: Safari and
// the Chromium family (Chrome, Brave, Edge) share one template per script and differ only
// in the lines their dictionaries need. All three functions are pure and total.
namespace BrowserScripts {

// Lists every open tab of `browser` as rows {windowID text, tabID text, position, title,
// URL, active}, skipping private windows and tabs without a URL, and stops at 1000 rows.
// The script gives up after 12 seconds.
std::string snapshotScript(Browser browser);

// Closes `tab` only if it is still where the snapshot saw it and still shows the same
// URL; answers true only when it closed it. An `automatic` close also refuses the tab the
// user is looking at and the first `protectedTabs` positions of the window (negative
// counts as 0). Never launches the browser; gives up after 10 seconds.
std::string closeScript(const LiveTab& tab, bool automatic, int64_t protectedTabs);

// `text` as an AppleScript string literal: backslash, double quote, CR and LF escaped,
// everything else as it is, wrapped in double quotes.
std::string quoted(std::string_view text);

}  // namespace BrowserScripts

}  // namespace velto
