#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/model/records.h"
#include "core/support/folders.h"
#include "core/support/result.h"

namespace velto {

// Reads the open tabs of a Chromium-family browser from the session files it keeps in
// each profile (<profile>/Sessions/Session_<time>), rewritten within seconds of every
// change, readable while the browser runs. Files are only ever opened read-only.
namespace SessionReader {

// A session file is read up to this size; the rest of a larger one is ignored.
constexpr size_t kMaxFileBytes = 32 * 1024 * 1024;

// The profile folders of `browser` that hold a Sessions folder, sorted by name: every
// entry of the folder BrowserHistory::location names (Default, Profile 1, ...). Empty when
// there is none or the browser keeps no profiles here.
std::vector<std::filesystem::path> profiles(Browser browser, const EnvironmentLookup& env);

// The newest session file of `profile`: Sessions/Session_<n> with the greatest number n
// (the browser names them after the time it started them). Absent when there is none.
std::optional<std::filesystem::path> newestSessionFile(const std::filesystem::path& profile);

// The bytes of a regular file, opened read-only, at most `limit` of them.
Result<std::string> readFile(const std::filesystem::path& path, size_t limit = kMaxFileBytes);

// The open tabs of `browser` over all its profiles, in profile order, then window and tab
// order (see SessionTabs::append), at most SessionTabs::kMaxTabs. A profile whose newest
// file cannot be read or is not an unencrypted session file contributes nothing. Titles
// the session lacks are looked up in the profile's own history database. When the browser
// is not running these are the tabs it had open when it last ran; the caller asks the
// launcher whether it runs.
std::vector<LiveTab> openTabs(Browser browser, const EnvironmentLookup& env,
                              Date now = velto::now());

}  // namespace SessionReader

}  // namespace velto
