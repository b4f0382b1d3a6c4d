#include "core/browser/browser_history.h"

namespace velto {

// The Chromium family keeps its profiles under the XDG configuration folder; Safari does
// not exist here.
std::optional<BrowserHistory::Location> BrowserHistory::location(Browser browser,
                                                                 const EnvironmentLookup& env) {
  const char* folder = nullptr;
  switch (browser) {
    case Browser::safari:
      return std::nullopt;
    case Browser::chrome:
      folder = "google-chrome";
      break;
    case Browser::brave:
      folder = "BraveSoftware/Brave-Browser";
      break;
    case Browser::edge:
      folder = "microsoft-edge";
      break;
  }
  const auto profiles = Folders::browserProfiles(env);
  if (!profiles) return std::nullopt;
  return Location{*profiles / folder, true};
}

}  // namespace velto
