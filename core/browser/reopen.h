#pragma once

#include <string_view>

#include "core/browser/application_launcher.h"
#include "core/model/browser.h"
#include "core/support/result.h"

namespace velto {

// Reopens a saved link in the browser it came from: only an http or https URL with a
// host and no user part is opened (else VeltoError::onlyWebLinks(), before any browser
// is looked up); a browser that is not installed gives VeltoError::notInstalled(browser);
// otherwise the launcher's outcome is returned unchanged. The URL is passed on in its
// parsed, percent-encoded form.
Result<void> reopenTab(ApplicationLauncher& launcher, std::string_view url, Browser browser);

}  // namespace velto
