#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/model/browser.h"
#include "core/support/date.h"
#include "core/support/folders.h"

namespace velto {

// When did the user last visit these URLs, according to the browsers' own history
// databases? The databases are read in place, strictly read-only: opened as immutable,
// so the browser's locks and write-ahead log are ignored and no file is created or
// changed. Nothing here fails: a missing folder, an unreadable, locked or foreign
// database contributes nothing, and the other databases are still read.
namespace BrowserHistory {

// URL text to the date of its latest visit; URLs never found are absent.
using Visits = std::unordered_map<std::string, Date>;

// Where one browser keeps its history on this platform.
struct Location {
  std::filesystem::path path;
  // True for the Chromium family: `path` is the browser's data folder, and every entry E
  // of it with a file E/History is one profile's database. False: `path` is the database.
  bool isProfileFolder = false;

  bool operator==(const Location&) const = default;
};

// The location for `browser`, from the user's folders in `env`; absent when the browser
// keeps no history here (Safari off macOS) or the environment names no home. On Linux,
// Chrome's is Chromium's folder when Google Chrome has none and Chromium has one.
// One implementation per platform. The session reader finds profiles here too.
std::optional<Location> location(Browser browser, const EnvironmentLookup& env);

// The history databases of `browser`: for the Chromium family E/History for every entry E
// of the data folder (hidden ones included, sorted by name) where that exists, which
// picks up the default and every numbered profile; for Safari the one database, whether
// or not it exists. Empty when the folder cannot be listed.
std::vector<std::filesystem::path> databases(Browser browser, const EnvironmentLookup& env);

// The latest visit of each of `urls` recorded in one database with `browser`'s schema.
// Any number of URLs: batches beyond SQLite's limit on bound parameters are split.
// Empty when the database cannot be opened, lacks the schema or fails while being read.
Visits query(const std::filesystem::path& database, Browser browser,
             const std::vector<std::string>& urls);

// URL text to the title of its page.
using Titles = std::unordered_map<std::string, std::string>;

// The page titles that one Chromium-family history database holds for `urls`: the
// title of a URL's latest visit, where it is not empty. Empty when the database cannot be
// read, as for query().
Titles titles(const std::filesystem::path& database, const std::vector<std::string>& urls);

// The latest visit of each of `urls` over every database of every browser in `browsers`.
// Duplicate URLs are harmless.
Visits lastVisits(const std::vector<std::string>& urls, BrowserSet browsers,
                  const EnvironmentLookup& env);

// The text SQLite opens `database` through: "file:" + the path percent-encoded where a
// URI needs it (space, '?', '#', '%' and other bytes outside the plain path characters)
// + "?immutable=1".
std::string immutableURI(const std::filesystem::path& database);

}  // namespace BrowserHistory

}  // namespace velto
