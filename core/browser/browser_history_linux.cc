#include "core/browser/browser_history.h"

namespace velto {

// The Chromium family keeps its profiles under the XDG configuration folder; Safari does
// not exist here. Debian's Chromium stands in for Google Chrome where Chrome has never
// run: its folder is used when Chrome's does not exist and its own does.
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
  std::filesystem::path data = *profiles / folder;
  std::error_code error;
  if (browser == Browser::chrome && !std::filesystem::is_directory(data, error) &&
      std::filesystem::is_directory(*profiles / "chromium", error)) {
    data = *profiles / "chromium";
  }
  return Location{std::move(data), true};
}

}  // namespace velto
