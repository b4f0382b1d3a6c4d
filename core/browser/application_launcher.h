#pragma once

#include <memory>
#include <string_view>

#include "core/model/browser.h"
#include "core/support/folders.h"
#include "core/support/result.h"

namespace velto {

// Finds, probes and launches the browsers' applications: the part of reopening a tab
// that is not scripting. One implementation per platform (application_launcher_linux.cc,
// application_launcher_macos.cc); tests substitute recording fakes. Calls block the
// caller briefly and may come from any one thread at a time.
class ApplicationLauncher {
 public:
  virtual ~ApplicationLauncher() = default;

  // Whether the browser's application is present on this machine.
  virtual bool isInstalled(Browser browser) = 0;

  // Whether at least one process of the browser is running now (one that has ended but
  // not been collected by its parent does not count).
  virtual bool isRunning(Browser browser) = 0;

  // Opens `url` (an http or https URL) in the browser, brought to the front. Succeeds
  // once the system has accepted the request (the browser process has started); the
  // page itself may still be loading. An Error carries the system's reason.
  virtual Result<void> open(std::string_view url, Browser browser) = 0;
};

// The launcher of this platform. On macOS the browser is found by its bundle identifier
// and opened through the system's launch services; on Linux it is one of the browser's
// usual executables found on the PATH of `env`, started detached from this process with
// the URL as its one argument; Chrome is Google Chrome, or Debian's Chromium where Chrome
// is not installed. Safari is never installed on Linux.
std::unique_ptr<ApplicationLauncher> platformApplicationLauncher(
    const EnvironmentLookup& env = processEnvironment());

}  // namespace velto
