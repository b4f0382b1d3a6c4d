#include <string>

#include "core/browser/application_launcher.h"
#include "core/browser/process_runner.h"
#include "core/model/velto_error.h"

namespace velto {

namespace {

// The system's own command-line front ends to launch services; no shell is involved and
// the only variable text passed on is the URL, as one argument.
constexpr const char* kOpen = "/usr/bin/open";
constexpr const char* kScript = "/usr/bin/osascript";

std::string trimmed(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text;
}

class MacApplicationLauncher : public ApplicationLauncher {
 public:
  bool isInstalled(Browser browser) override {
    // Launch services' own lookup by bundle identifier, the one `open -b` relies on;
    // Spotlight's index would miss applications on volumes it does not index.
    const std::string lookup =
        "ObjC.import('AppKit'); "
        "$.NSWorkspace.sharedWorkspace.URLForApplicationWithBundleIdentifier('" +
        std::string(bundleID(browser)) + "').isNil() ? 'no' : 'yes'";
    const auto found = runProcess(kScript, {"-l", "JavaScript", "-e", lookup});
    return found.ok() && found->exitStatus == 0 && trimmed(found->standardOutput) == "yes";
  }

  bool isRunning(Browser browser) override {
    // Asking whether an application is running does not launch it.
    const auto answer = runProcess(
        kScript, {"-e", "application id \"" + std::string(bundleID(browser)) + "\" is running"});
    return answer.ok() && answer->exitStatus == 0 && trimmed(answer->standardOutput) == "true";
  }

  Result<void> open(std::string_view url, Browser browser) override {
    // open(1) activates the application and returns once launch services have the URL.
    const auto opened = runProcess(kOpen, {"-b", std::string(bundleID(browser)), std::string(url)});
    if (!opened.ok()) return opened.error();
    if (opened->exitStatus != 0) {
      const std::string reason = trimmed(opened->standardError);
      return platformError(reason.empty() ? "Could not open the link in " +
                                                std::string(displayName(browser)) + "."
                                          : reason);
    }
    return {};
  }
};

}  // namespace

std::unique_ptr<ApplicationLauncher> platformApplicationLauncher(const EnvironmentLookup&) {
  return std::make_unique<MacApplicationLauncher>();
}

}  // namespace velto
