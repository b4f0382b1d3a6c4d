// velto watch: the desktop app's watching of open tabs, for people who run the server
// without it.

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <memory>

#include "cli/command_support.h"
#include "cli/watch_cycle.h"
#include "core/browser/application_launcher.h"
#include "core/browser/browser_bridge.h"
#include "core/browser/script_runner.h"
#include "core/browser/tab_source.h"

namespace velto {

namespace {

constexpr std::string_view kWatchHelp = R"(Usage: velto watch [--interval SECONDS] [--once]

Does what the Velto app does while it runs. Every SECONDS (30 unless given; from 0.1
to 60) it reads the open tabs of each connected browser that is running (see "velto
browsers"), stores them in the library for MCP clients to list, and keeps the tabs
closed since the last look as closed tabs, for them to search and reopen (except
pages of excluded sites and pages that are not http or https).

It runs until interrupted (Ctrl-C) or sent SIGTERM, and writes nothing while it works;
a look that fails is one line on standard error, and the next look happens as usual.
"velto status" shows how old the last look is.

  --interval SECONDS  time between two looks
  --once              look once and exit: 0 when it went well, 1 when it did not
)";

constexpr double kDefaultInterval = 30;
constexpr double kShortestInterval = 0.1;
// Longer, and the stored snapshot would go stale between two looks.
constexpr double kLongestInterval = 60;

// The browsers as the bridge sees them: scripts on macOS, session files on Linux, the
// launcher for whether a browser runs.
class BridgeOpenTabs : public OpenTabsSource {
 public:
  explicit BridgeOpenTabs(const EnvironmentLookup& env)
      : runner_(platformScriptRunner()),
        tabs_(platformTabSource(*runner_, env)),
        launcher_(platformApplicationLauncher(env)),
        bridge_(*tabs_, *launcher_) {}

  bool isRunning(Browser browser) override { return bridge_.isRunning(browser); }
  Result<std::vector<LiveTab>> snapshot(Browser browser) override {
    return bridge_.snapshot(browser).get();
  }

 private:
  std::unique_ptr<ScriptRunner> runner_;
  std::unique_ptr<TabSource> tabs_;
  std::unique_ptr<ApplicationLauncher> launcher_;
  BrowserBridge bridge_;
};

class HistoryVisitSource : public VisitSource {
 public:
  explicit HistoryVisitSource(EnvironmentLookup env) : env_(std::move(env)) {}
  BrowserHistory::Visits lastVisits(const std::vector<std::string>& urls,
                                    BrowserSet browsers) override {
    return BrowserHistory::lastVisits(urls, browsers, env_);
  }

 private:
  EnvironmentLookup env_;
};

// SIGINT and SIGTERM wake the loop through a pipe, so that a stop is seen at once even
// in the middle of the wait between two looks.
int stopPipe[2] = {-1, -1};

extern "C" void onStopSignal(int) {
  const int saved = errno;
  const char byte = 1;
  [[maybe_unused]] const ssize_t written = ::write(stopPipe[1], &byte, 1);
  errno = saved;
}

// Routes SIGINT and SIGTERM to the stop pipe while it lives.
class StopSignals {
 public:
  StopSignals() {
    if (::pipe(stopPipe) != 0) return;
    for (int fd : stopPipe) {
      ::fcntl(fd, F_SETFD, FD_CLOEXEC);
      ::fcntl(fd, F_SETFL, O_NONBLOCK);
    }
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, &savedInterrupt_);
    ::sigaction(SIGTERM, &action, &savedTerminate_);
    installed_ = true;
  }
  ~StopSignals() {
    if (installed_) {
      ::sigaction(SIGINT, &savedInterrupt_, nullptr);
      ::sigaction(SIGTERM, &savedTerminate_, nullptr);
    }
    for (int& fd : stopPipe) {
      if (fd >= 0) ::close(fd);
      fd = -1;
    }
  }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  bool installed() const { return installed_; }

  // Waits up to `seconds`; true when a stop signal came (before or during the wait).
  bool waitForStop(double seconds) const {
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(seconds));
    for (;;) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return false;
      pollfd wake{stopPipe[0], POLLIN, 0};
      const int ready = ::poll(&wake, 1, static_cast<int>(left.count()));
      if (ready > 0) return true;
      if (ready < 0 && errno != EINTR) return false;
    }
  }

 private:
  struct sigaction savedInterrupt_ {};
  struct sigaction savedTerminate_ {};
  bool installed_ = false;
};

// SECONDS as given to --interval, or absent when it is not a number in range.
std::optional<double> intervalSeconds(const std::string& text) {
  if (text.empty()) return std::nullopt;
  char* end = nullptr;
  errno = 0;
  const double seconds = std::strtod(text.c_str(), &end);
  if (errno != 0 || end != text.c_str() + text.size() || !std::isfinite(seconds) ||
      seconds < kShortestInterval || seconds > kLongestInterval) {
    return std::nullopt;
  }
  return seconds;
}

}  // namespace

int watchCommand(CommandContext& c, Args args) {
  const Arguments a =
      parse(c, args, {"watch", kWatchHelp, 0, "it takes no arguments", {"--once"}, {"--interval"}});
  if (a.exit) return *a.exit;
  double interval = kDefaultInterval;
  if (const auto given = a.value("--interval")) {
    const std::optional<double> seconds = intervalSeconds(*given);
    if (!seconds) return usage(c, "the interval is a number of seconds from 0.1 to 60", "watch");
    interval = *seconds;
  }
  const auto store = libraryStore(c);
  if (!store) return kExitFailure;
  // A library that cannot be read now is the first look's failure, not a reason to stop.
  if (const auto library = store->load();
      library && library->preferences.connectedBrowsers.empty()) {
    warn(c,
         "no browser is connected, so no tabs are read; connect one with: velto browsers "
         "connect BROWSER");
  }

  BridgeOpenTabs tabs(c.env);
  HistoryVisitSource visits(c.env);
  const StopSignals signals;
  if (!a.has("--once") && !signals.installed()) {
    return fail(c, kExitFailure, "could not prepare to stop on a signal");
  }
  for (;;) {
    const std::vector<std::string> problems = runWatchCycle(*store, tabs, visits, c.clock());
    if (!problems.empty()) {
      std::string line;
      for (const std::string& problem : problems) line += (line.empty() ? "" : "; ") + problem;
      fail(c, kExitFailure, "watch: " + line);
      c.err.flush();
    }
    if (a.has("--once")) return problems.empty() ? kExitSuccess : kExitFailure;
    if (signals.waitForStop(interval)) return kExitSuccess;
  }
}

}  // namespace velto
