// velto suggest: the cleanup and tab-budget suggestions for the stored snapshot.

#include <nlohmann/json.hpp>

#include "cli/command_support.h"
#include "core/policy/cleanup_suggestion.h"
#include "core/policy/tab_budget_suggestion.h"
#include "core/policy/tab_policy.h"

namespace velto {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view kSuggestHelp = R"(Usage: velto suggest [--json]

Shows, for the open-tab snapshot stored in the library, the idle tabs (longest unused
first), the surplus copies of tabs open more than once, and the tabs to close to get
back under the tab limit. Nothing is closed. --json prints the same as one JSON object.
)";

// How long the app's snapshot of open tabs is taken to describe the present.
constexpr double kFreshSnapshotSeconds = 120;

void printTabs(std::ostream& out, std::string_view heading, const std::vector<LiveTab>& tabs,
               const Preferences& preferences, Date now) {
  out << heading << ": " << (tabs.empty() ? "none" : std::to_string(tabs.size())) << '\n';
  if (tabs.empty()) return;
  std::vector<std::vector<std::string>> rows{{"BROWSER", "LAST USED", "TITLE", "URL"}};
  for (const LiveTab& tab : tabs) {
    const Date lastUsed = TabPolicy::lastUsed(tab, preferences, now);
    rows.push_back({std::string(displayName(tab.browser)),
                    duration(secondsBetween(lastUsed, now)) + " ago", cell(tab.title),
                    cell(tab.url, kURLColumn)});
  }
  printTable(out, rows, "  ");
}

Json tabsJson(const std::vector<LiveTab>& tabs, const Preferences& preferences, Date now) {
  Json array = Json::array();
  for (const LiveTab& tab : tabs) {
    array.push_back({{"id", tab.id},
                     {"browser", rawValue(tab.browser)},
                     {"windowID", tab.windowID},
                     {"index", tab.index},
                     {"title", tab.title},
                     {"url", tab.url},
                     {"lastUsed", formatISO8601(TabPolicy::lastUsed(tab, preferences, now))}});
  }
  return array;
}

}  // namespace

int suggestCommand(CommandContext& c, Args args) {
  const Arguments a =
      parse(c, args, {"suggest", kSuggestHelp, 0, "it takes no arguments", {"--json"}});
  if (a.exit) return *a.exit;
  const auto library = openLibrary(c);
  if (!library) return kExitFailure;
  const LibraryState& state = library->state;
  const Preferences& preferences = state.preferences;
  const Date now = c.clock();
  const CleanupSuggestion cleanup(state.liveTabs, preferences, now);
  const TabBudgetSuggestion budget(state.liveTabs, std::nullopt, preferences, now);

  if (a.has("--json")) {
    const Json result = {
        {"snapshotAt", state.liveUpdatedAt ? Json(formatISO8601(*state.liveUpdatedAt)) : Json()},
        {"cleanup",
         {{"idle", tabsJson(cleanup.tabs, preferences, now)},
          {"duplicates", tabsJson(cleanup.duplicates, preferences, now)}}},
        {"tabBudget",
         {{"totalCount", budget.totalCount},
          {"limit", budget.limit},
          {"overflow", budget.overflow()},
          {"tabs", tabsJson(budget.tabs, preferences, now)}}}};
    c.out << result.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    return kExitSuccess;
  }

  if (!state.liveUpdatedAt) {
    c.out << "The library holds no snapshot of open tabs yet.\n";
    return kExitSuccess;
  }
  const double age = secondsBetween(*state.liveUpdatedAt, now);
  c.out << "Snapshot of " << state.liveTabs.size() << " open tabs, taken " << duration(age)
        << " ago" << (age >= kFreshSnapshotSeconds ? " (it may be out of date)" : "") << ".\n\n";
  printTabs(c.out, "Idle tabs, longest unused first", cleanup.tabs, preferences, now);
  c.out << '\n';
  printTabs(c.out, "Surplus copies of tabs open more than once", cleanup.duplicates, preferences,
            now);
  c.out << "\nTab limit: " << budget.totalCount << " open, limit " << budget.limit << ", "
        << budget.overflow() << " over.\n";
  if (budget.overflow() > 0) {
    printTabs(c.out, "To close first to get under the limit", budget.tabs, preferences, now);
  }
  return kExitSuccess;
}

}  // namespace velto
