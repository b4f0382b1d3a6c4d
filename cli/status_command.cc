// velto status: where the library is and what it holds.

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "cli/command_support.h"
#include "core/memory/memory_pressure.h"
#include "core/model/library_summary.h"

namespace velto {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kStatusHelp = R"(Usage: velto status

Shows where the library is, how many tabs it holds and how many of them are closed,
how many tabs were open at the last snapshot if that is recent (and how old it is:
while "velto watch" runs, never more than its interval), the connected browsers, the
number of clients, and the system memory pressure where the system reports one.
)";

}  // namespace

int statusCommand(CommandContext& c, Args args) {
  const Arguments a = parse(c, args, {"status", kStatusHelp, 0, "it takes no arguments"});
  if (a.exit) return *a.exit;
  const auto library = openLibrary(c);
  if (!library) return kExitFailure;
  const LibraryState& state = library->state;

  const Date now = c.clock();
  const LibrarySummary summary(state, now);
  std::string open = "unknown (no snapshot yet)";
  if (state.liveUpdatedAt) {
    const std::string age = duration(secondsBetween(*state.liveUpdatedAt, now));
    open = summary.openTabs ? std::to_string(*summary.openTabs) + " (snapshot " + age + " old)"
                            : "unknown (the last snapshot is " + age + " old)";
  }
  std::error_code error;
  const bool exists = fs::exists(library->store.fileURL(), error);
  const auto reopeners = std::count_if(state.clients.begin(), state.clients.end(),
                                       [](const ClientGrant& g) { return g.allowReopen; });
  std::string browsers;
  for (Browser browser : kAllBrowsers) {
    if (!state.preferences.connectedBrowsers.contains(browser)) continue;
    browsers += (browsers.empty() ? "" : ", ") + std::string(displayName(browser));
  }
  if (browsers.empty()) browsers = "none (connect one with: velto browsers connect BROWSER)";
  std::vector<std::vector<std::string>> rows{
      {"Library:", library->store.fileURL().string() + (exists ? "" : " (not created yet)")},
      {"Library tabs:", std::to_string(summary.tabs.size())},
      {"Closed tabs:", std::to_string(summary.closedTabs.size())},
      {"Open tabs:", open},
      {"Browsers:", browsers},
      {"Clients:", std::to_string(state.clients.size()) + " (" + std::to_string(reopeners) +
                       " may reopen tabs)"}};
  if (const auto pressure = currentMemoryPressure()) {
    rows.push_back({"Memory pressure:", std::string(displayName(*pressure))});
  }
  printTable(c.out, rows);
  return kExitSuccess;
}

}  // namespace velto
