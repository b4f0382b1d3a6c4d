#include "core/browser/browser_history.h"

namespace velto {

std::optional<BrowserHistory::Location> BrowserHistory::location(Browser browser,
                                                                 const EnvironmentLookup& env) {
  if (browser == Browser::safari) {
    const auto home = Folders::home(env);
    if (!home) return std::nullopt;
    return Location{*home / "Library/Safari/History.db", false};
  }
  // ~/Library/Application Support/...
  const auto profiles = Folders::browserProfiles(env);
  if (!profiles) return std::nullopt;
  const char* folder = browser == Browser::chrome  ? "Google/Chrome"
                       : browser == Browser::brave ? "BraveSoftware/Brave-Browser"
                                                   : "Microsoft Edge";
  return Location{*profiles / folder, true};
}

}  // namespace velto
