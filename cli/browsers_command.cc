// velto browsers: which browsers Velto watches (the library's connected browsers).

#include <algorithm>
#include <cctype>
#include <memory>

#include "cli/command_support.h"
#include "core/browser/application_launcher.h"

namespace velto {

namespace {

constexpr std::string_view kBrowsersHelp = R"(Usage: velto browsers list
       velto browsers connect BROWSER
       velto browsers disconnect BROWSER

BROWSER is safari, chrome, brave or edge. "velto watch" (and the Velto app) read the
open tabs of connected browsers only, and only while they are running.
)";

constexpr std::string_view kListHelp = R"(Usage: velto browsers list

Lists the browsers Velto knows: whether each is connected, installed here and running.
)";

constexpr std::string_view kConnectHelp = R"(Usage: velto browsers connect BROWSER

Connects BROWSER (safari, chrome, brave or edge): while it runs, "velto watch" keeps
its open tabs in the library for MCP clients to list, and keeps the tabs closed in it
for them to search and reopen.
)";

constexpr std::string_view kDisconnectHelp = R"(Usage: velto browsers disconnect BROWSER

Disconnects BROWSER (safari, chrome, brave or edge): its open tabs leave the library at
once and are no longer read. Tabs already kept in the library stay.
)";

constexpr std::string_view kMisuse = "give one BROWSER: safari, chrome, brave or edge";

// The browser named by `text` in any letter case, or absent after reporting the misuse.
std::optional<Browser> browserArgument(CommandContext& c, const std::string& text,
                                       std::string_view command) {
  std::string lower = text;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char ch) { return static_cast<char>(std::tolower(ch)); });
  const std::optional<Browser> browser = browserFromRawValue(lower);
  if (!browser)
    usage(c, inQuotes(text) + " is not a browser Velto knows; " + std::string(kMisuse), command);
  return browser;
}

int listBrowsers(CommandContext& c, Args args) {
  const Arguments a = parse(c, args, {"browsers list", kListHelp, 0, "it takes no arguments"});
  if (a.exit) return *a.exit;
  const auto library = openLibrary(c);
  if (!library) return kExitFailure;
  const std::unique_ptr<ApplicationLauncher> launcher = platformApplicationLauncher(c.env);
  const auto yesNo = [](bool value) { return std::string(value ? "yes" : "no"); };
  std::vector<std::vector<std::string>> rows{{"BROWSER", "CONNECTED", "INSTALLED", "RUNNING"}};
  for (Browser browser : kAllBrowsers) {
    rows.push_back({std::string(rawValue(browser)),
                    yesNo(library->state.preferences.connectedBrowsers.contains(browser)),
                    yesNo(launcher->isInstalled(browser)), yesNo(launcher->isRunning(browser))});
  }
  printTable(c.out, rows);
  return kExitSuccess;
}

// `browsers connect` (`connect`) or `browsers disconnect` of the one BROWSER in `args`.
int changeConnection(CommandContext& c, Args args, bool connect) {
  const CommandSpec spec = connect
                               ? CommandSpec{"browsers connect", kConnectHelp, 1, kMisuse}
                               : CommandSpec{"browsers disconnect", kDisconnectHelp, 1, kMisuse};
  const Arguments a = parse(c, args, spec);
  if (a.exit) return *a.exit;
  const std::optional<Browser> browser = browserArgument(c, a.positional[0], spec.name);
  if (!browser) return kExitUsage;
  const auto store = libraryStore(c);
  if (!store) return kExitFailure;
  bool was = false;
  const int status = changeLibrary(c, *store, [&](LibraryState& state) {
    BrowserSet& connected = state.preferences.connectedBrowsers;
    was = connected.contains(*browser);
    if (connect) {
      connected.insert(*browser);
      return !was;
    }
    connected.erase(*browser);
    // Its open tabs would otherwise stay listed as open until the next snapshot.
    const auto erased =
        std::erase_if(state.liveTabs, [&](const LiveTab& tab) { return tab.browser == *browser; });
    return was || erased > 0;
  });
  if (status != kExitSuccess) return status;
  const std::string name(displayName(*browser));
  if (!connect) {
    c.out << (was ? "Disconnected " + name + ": its open tabs are no longer read.\n"
                  : name + " was not connected.\n");
  } else if (was) {
    c.out << name << " is already connected.\n";
  } else {
    c.out << "Connected " << name << ": \"velto watch\" reads its open tabs while it runs.\n";
    if (!platformApplicationLauncher(c.env)->isInstalled(*browser)) {
      warn(c, name + " does not seem to be installed here");
    }
  }
  return kExitSuccess;
}

}  // namespace

int browsersCommand(CommandContext& c, Args args) {
  if (args.empty()) return usage(c, "browsers needs one of list, connect, disconnect", "browsers");
  const std::string& sub = args[0];
  if (sub == "--help" || sub == "-h" || sub == "help") return help(c, kBrowsersHelp);
  if (sub == "list") return listBrowsers(c, args.subspan(1));
  if (sub == "connect") return changeConnection(c, args.subspan(1), true);
  if (sub == "disconnect") return changeConnection(c, args.subspan(1), false);
  return usage(c, "unknown browsers command " + inQuotes(sub), "browsers");
}

}  // namespace velto
