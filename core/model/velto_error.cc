#include "core/model/velto_error.h"

namespace velto::VeltoError {

Error message(std::string text) { return {Error::Domain::velto, std::move(text)}; }

Error newerLibrary() {
  return message("This library was created by a newer Velto. Update the app to open it.");
}
Error memoryUnavailable() { return message("Memory usage is unavailable right now."); }
Error onlyWebLinks() { return message("Only http and https links can be opened."); }
Error notInstalled(Browser browser) {
  return message(std::string(displayName(browser)) +
                 " is not installed. Copy this link to open it in another browser.");
}
Error tabPinned() { return message("This tab is pinned, so it was left open."); }
Error tabChanged() {
  return message("The tab changed or moved. It is saved in your library and was left open.");
}
Error scriptNotCreated() { return message("The browser script could not be created."); }
Error closingUnavailable() {
  return message("Velto cannot close browser tabs on this system. Close the tab in the browser.");
}
Error secureKeyUnavailable() { return message("Could not create a secure connection key."); }

Error automationFailure(int64_t errorNumber) {
  switch (errorNumber) {
    case -600:
      return message("Open the browser, then try again.");
    case -1743:
      return message(
          "Permission needed. Allow Velto in System Settings \u2192 Privacy & Security \u2192 "
          "Automation, then reconnect.");
    case -1712:
      return message("The browser took too long to respond. Your tabs were left alone.");
    default:
      return message("The browser could not complete the request (" + std::to_string(errorNumber) +
                     "). Try reconnecting it.");
  }
}

}  // namespace velto::VeltoError
