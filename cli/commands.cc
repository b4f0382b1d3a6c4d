#include "cli/commands.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <span>
#include <string_view>
#include <system_error>

#include "cli/client_setup.h"
#include "cli/server_location.h"
#include "core/mcp/client_authorization.h"
#include "core/memory/memory_pressure.h"
#include "core/model/library_store.h"
#include "core/model/library_summary.h"
#include "core/model/velto_error.h"
#include "core/policy/cleanup_suggestion.h"
#include "core/policy/tab_budget_suggestion.h"
#include "core/policy/tab_policy.h"
#include "core/support/text.h"
#include "core/support/uuid.h"

namespace velto {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using Args = std::span<const std::string>;

constexpr std::string_view kHelp = R"(Usage: velto <command> [arguments]

Manages the clients allowed to use VeltoMCP, and shows what the Velto library holds.

Commands:
  clients add NAME [--allow-reopen] [--for CLIENT]
                                     allow a new MCP client; prints its id, its token
                                     (shown only once) and a configuration to paste
  clients list                       the allowed clients
  clients remove ID                  withdraw a client's access
  clients reopen ID on|off           let a client reopen saved tabs, or stop it
  status                             where the library is and what it holds
  suggest [--json]                   open tabs worth closing, from the last snapshot

Run "velto <command> --help" for more about one command, "velto --version" for the
version.

The library is library.json in the Velto folder of the user's application data:
~/Library/Application Support/Velto on macOS, $XDG_DATA_HOME/Velto (by default
~/.local/share/Velto) elsewhere. VeltoMCP reads the same file.
)";

constexpr std::string_view kClientsHelp =
    R"(Usage: velto clients add NAME [--allow-reopen] [--for CLIENT]
       velto clients list
       velto clients remove ID
       velto clients reopen ID on|off

An MCP client connects to VeltoMCP with a client id and a token, passed in the
environment variables VELTO_CLIENT_ID and VELTO_CLIENT_TOKEN. The library keeps only a
hash of each token, so a token is shown once, when the client is added.
)";

constexpr std::string_view kAddHelp =
    R"(Usage: velto clients add NAME [--allow-reopen] [--for CLIENT]

Allows a new MCP client called NAME and prints its client id, its token and a
configuration entry to paste into the client's settings. The token is shown only this
once. Without --allow-reopen the client may list and search tabs but not reopen them
(see "velto clients reopen"). Creates the library if there is none.

--for CLIENT prints the entry in the form that client reads, and says which file it
goes in: claude-desktop, cursor, vscode, codex, or generic (the default: an
"mcpServers" entry, which most clients read).
)";

constexpr std::string_view kListHelp = R"(Usage: velto clients list

Lists the allowed clients: id, name, whether they may reopen tabs, when they were
added, and the start of their token hash.
)";

constexpr std::string_view kRemoveHelp = R"(Usage: velto clients remove ID

Withdraws the access of the client with this id. A server already running for it
refuses its next request.
)";

constexpr std::string_view kReopenHelp = R"(Usage: velto clients reopen ID on|off

Lets the client with this id reopen saved tabs in their browser (on), or limits it to
listing and searching (off). Takes effect on the client's next request.
)";

constexpr std::string_view kStatusHelp = R"(Usage: velto status

Shows where the library is, how many tabs it holds and how many of them are closed,
how many tabs were open at the last snapshot if that is recent, the number of
clients, and the system memory pressure where the system reports one.
)";

constexpr std::string_view kSuggestHelp = R"(Usage: velto suggest [--json]

Shows, for the open-tab snapshot stored in the library, the idle tabs (longest unused
first), the surplus copies of tabs open more than once, and the tabs to close to get
back under the tab limit. Nothing is closed. --json prints the same as one JSON object.
)";

// How long the app's snapshot of open tabs is taken to describe the present.
constexpr double kFreshSnapshotSeconds = 120;
constexpr size_t kTitleColumn = 40;
constexpr size_t kURLColumn = 200;
constexpr size_t kShownHashDigits = 8;

// ---- text

bool isContinuationByte(char ch) { return (static_cast<unsigned char>(ch) & 0xc0) == 0x80; }

size_t codePoints(std::string_view text) {
  return static_cast<size_t>(
      std::count_if(text.begin(), text.end(), [](char ch) { return !isContinuationByte(ch); }));
}

// Text for one table cell or message: valid UTF-8, control characters as spaces, at most
// `width` code points, the last one an ellipsis when the text was cut.
std::string cell(std::string_view text, size_t width = kTitleColumn) {
  std::string clean = sanitizedUTF8(text);
  std::replace_if(
      clean.begin(), clean.end(),
      [](char ch) { return static_cast<unsigned char>(ch) < 0x20 || ch == 0x7f; }, ' ');
  if (codePoints(clean) <= width) return clean;
  size_t cut = 0;
  for (size_t points = 0; cut < clean.size(); ++cut) {
    if (!isContinuationByte(clean[cut]) && points++ == width - 1) break;
  }
  return clean.substr(0, cut) + "\u2026";
}

// `text` as a cell between double quotes. Built by appends: g++ 12 warns falsely about a
// literal joined to a temporary string.
std::string inQuotes(std::string_view text) {
  std::string out = "\"";
  out += cell(text);
  out += '"';
  return out;
}

// "45 seconds", "1 minute", "3 hours", "12 days": whole units, rounded down.
std::string duration(double seconds) {
  const auto whole = static_cast<int64_t>(std::max(0.0, std::floor(seconds)));
  const auto unit = [](int64_t n, std::string_view name) {
    return std::to_string(n) + " " + std::string(name) + (n == 1 ? "" : "s");
  };
  if (whole < 60) return unit(whole, "second");
  if (whole < 3600) return unit(whole / 60, "minute");
  if (whole < 86400) return unit(whole / 3600, "hour");
  return unit(whole / 86400, "day");
}

// Rows as columns separated by two spaces; the last column is not padded.
void printTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows,
                std::string_view indent = "") {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()), 0);
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], codePoints(row[i]));
  }
  for (const auto& row : rows) {
    out << indent;
    for (size_t i = 0; i < row.size(); ++i) {
      out << row[i];
      if (i + 1 < row.size()) out << std::string(widths[i] - codePoints(row[i]) + 2, ' ');
    }
    out << '\n';
  }
}

// ---- outcomes, arguments and the library

// Messages may quote a path or a library's key, which can hold a line break.
int fail(CommandContext& c, int status, std::string_view message) {
  c.err << "velto: " << cell(message, std::string_view::npos) << '\n';
  return status;
}

// `command` is the command's words after "velto" ("clients add"), or empty.
int usage(CommandContext& c, std::string_view message, std::string_view command) {
  const std::string words = command.empty() ? "" : std::string(command) + " ";
  return fail(c, kExitUsage, std::string(message) + " (see \"velto " + words + "--help\")");
}

void warn(CommandContext& c, std::string_view message) {
  c.err << "velto: warning: " << message << '\n';
}

int help(CommandContext& c, std::string_view text) {
  c.out << text;
  return kExitSuccess;
}

// What one command accepts.
struct CommandSpec {
  std::string_view name;  // its words after "velto", e.g. "clients add"
  std::string_view help;
  size_t positional;        // how many words it takes besides options
  std::string_view misuse;  // said when that number is wrong
  std::initializer_list<std::string_view> flags = {};
};

// A command's arguments. `exit` is set when the command is already done: --help (given
// anywhere) printed its help, or the arguments were wrong and that was reported. "--"
// ends the options.
struct Arguments {
  std::vector<std::string> positional;
  std::vector<std::string> flags;
  std::optional<int> exit;

  bool has(std::string_view flag) const {
    return std::find(flags.begin(), flags.end(), flag) != flags.end();
  }
};

Arguments parse(CommandContext& c, Args args, const CommandSpec& spec) {
  Arguments parsed;
  bool optionsEnded = false;
  std::string unknown;
  for (const std::string& arg : args) {
    if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
      parsed.positional.push_back(arg);
    } else if (arg == "--") {
      optionsEnded = true;
    } else if (arg == "--help" || arg == "-h") {
      parsed.exit = help(c, spec.help);
      return parsed;
    } else if (std::find(spec.flags.begin(), spec.flags.end(), arg) != spec.flags.end()) {
      parsed.flags.push_back(arg);
    } else if (unknown.empty()) {
      unknown = arg;
    }
  }
  if (!unknown.empty()) {
    parsed.exit = usage(c, std::string("unknown option ") + cell(unknown), spec.name);
  } else if (parsed.positional.size() != spec.positional) {
    parsed.exit = usage(c, spec.misuse, spec.name);
  }
  return parsed;
}

struct Library {
  LibraryStore store;
  LibraryState state;
};

// The library as stored now, or absent after reporting why it cannot be had.
std::optional<Library> openLibrary(CommandContext& c) {
  Result<LibraryStore> store = LibraryStore::atDefaultLocation(c.env);
  if (!store.ok()) {
    fail(c, kExitFailure, store.error().message);
    return std::nullopt;
  }
  Result<LibraryState> state = store->load();
  if (!state.ok()) {
    fail(c, kExitFailure, state.error().message);
    return std::nullopt;
  }
  return Library{std::move(*store), std::move(*state)};
}

int save(CommandContext& c, const Library& library) {
  if (const Result<void> saved = library.store.save(library.state); !saved.ok()) {
    return fail(c, kExitFailure, saved.error().message);
  }
  return kExitSuccess;
}

// ---- clients

// VeltoMCP beside the running velto, absolute and with links resolved.
std::string serverCommand(CommandContext& c) {
  if (!c.executable) {
    warn(c, "cannot tell where VeltoMCP is; put its full path in \"command\"");
    return "VeltoMCP";
  }
  std::error_code error;
  const fs::path server = serverFor(*c.executable);
  if (!fs::is_regular_file(server, error)) {
    warn(c, "there is no VeltoMCP at " + server.string() +
                "; correct \"command\" before using the configuration");
  }
  return server.string();
}

// The environment the MCP client must give the server. Clients pass on only a few
// variables of their own (HOME, USER, PATH and the like), so a library folder chosen
// through XDG_DATA_HOME must be passed explicitly, or the server would look elsewhere.
Json serverEnvironment(CommandContext& c, const LibraryStore& store, const ClientGrant& grant,
                       const std::string& token) {
  Json env = {{"VELTO_CLIENT_ID", grant.id.text()}, {"VELTO_CLIENT_TOKEN", token}};
  const EnvironmentLookup inherited = [&c](std::string_view name) -> std::optional<std::string> {
    for (std::string_view passed : {"HOME", "LOGNAME", "PATH", "SHELL", "TERM", "USER"}) {
      if (name == passed) return c.env(name);
    }
    return std::nullopt;
  };
  const Result<LibraryStore> seen = LibraryStore::atDefaultLocation(inherited);
  if (seen.ok() && seen->directory() == store.directory()) return env;
  if (const auto dataHome = c.env("XDG_DATA_HOME")) env["XDG_DATA_HOME"] = *dataHome;
  return env;
}

int addClient(CommandContext& c, Args args) {
  const ClientSetup::ForOption target = ClientSetup::takeForOption(args);  // --for CLIENT
  const Arguments a = parse(
      c, target.rest, {"clients add", kAddHelp, 1, "give the client one NAME", {"--allow-reopen"}});
  if (a.exit) return *a.exit;
  if (!target.client) return usage(c, target.error, "clients add");  // --for CLIENT
  const std::string& name = a.positional.front();
  if (splitAtWhitespace(name).empty()) return usage(c, "the client name is empty", "clients add");
  if (!isValidUTF8(name)) return usage(c, "the client name is not valid UTF-8", "clients add");

  auto library = openLibrary(c);
  if (!library) return kExitFailure;
  Result<std::string> token = ClientAuthorization::newToken();
  if (!token.ok()) return fail(c, kExitFailure, token.error().message);
  const std::optional<Uuid> id = Uuid::random();
  if (!id) return fail(c, kExitFailure, VeltoError::secureKeyUnavailable().message);
  const ClientGrant grant{*id, name, ClientAuthorization::hash(*token), a.has("--allow-reopen"),
                          c.clock()};
  library->state.clients.push_back(grant);
  if (const int saved = save(c, *library); saved != kExitSuccess) return saved;

  // --for CLIENT: the entry in that client's form.
  const Json env = serverEnvironment(c, library->store, grant, *token);
  ClientSetup::Variables variables;
  for (const auto& item : env.items())
    variables.emplace_back(item.key(), item.value().get<std::string>());
  const ClientSetup::Configuration config =
      ClientSetup::configuration(*target.client, serverCommand(c), variables, c.env);
  c.out << "Added client \"" << cell(name) << "\" to " << library->store.fileURL().string()
        << ".\nClient id: " << grant.id.text() << "\nToken:     " << *token
        << "\nThe token is shown only this once: the library keeps only its hash.\n"
        << (grant.allowReopen ? "This client may reopen saved tabs.\n"
                              : "This client may list and search tabs but not reopen them.\n")
        << '\n'
        << config.intro << '\n'
        << config.text;
  if (c.out.flush()) return kExitSuccess;
  // Nobody would ever hold this token, so the grant must not stay.
  library->state.clients.pop_back();
  save(c, *library);
  return fail(c, kExitFailure, "could not write the token, so the client was not added");
}

int listClients(CommandContext& c, Args args) {
  const Arguments a = parse(c, args, {"clients list", kListHelp, 0, "it takes no arguments"});
  if (a.exit) return *a.exit;
  const auto library = openLibrary(c);
  if (!library) return kExitFailure;
  if (library->state.clients.empty()) {
    c.out << "No clients. Add one with: velto clients add NAME\n";
    return kExitSuccess;
  }
  std::vector<std::vector<std::string>> rows{{"ID", "NAME", "REOPEN", "ADDED", "TOKEN HASH"}};
  for (const ClientGrant& grant : library->state.clients) {
    rows.push_back({grant.id.text(), cell(grant.name), grant.allowReopen ? "yes" : "no",
                    formatISO8601(grant.createdAt),
                    cell(grant.tokenHash.substr(0, kShownHashDigits)) + "\u2026"});
  }
  printTable(c.out, rows);
  return kExitSuccess;
}

// Loads the library, lets `change` edit the grants whose id is `idText`, and saves. The
// id must parse and name at least one grant.
int changeClients(CommandContext& c, const std::string& idText, std::string_view command,
                  const std::function<void(std::vector<ClientGrant>&, const Uuid&)>& change) {
  const auto id = Uuid::parse(idText);
  if (!id) {
    return usage(c, inQuotes(idText) + " is not a client id; ids look like " + Uuid{}.text(),
                 command);
  }
  auto library = openLibrary(c);
  if (!library) return kExitFailure;
  auto& clients = library->state.clients;
  if (std::none_of(clients.begin(), clients.end(),
                   [&](const ClientGrant& g) { return g.id == *id; })) {
    return fail(c, kExitFailure, "there is no client with id " + id->text());
  }
  change(clients, *id);
  return save(c, *library);
}

int removeClient(CommandContext& c, Args args) {
  const Arguments a = parse(c, args, {"clients remove", kRemoveHelp, 1, "give one client ID"});
  if (a.exit) return *a.exit;
  std::string removed;
  const int status = changeClients(
      c, a.positional[0], "clients remove", [&](std::vector<ClientGrant>& clients, const Uuid& id) {
        const auto matches = [&](const ClientGrant& g) { return g.id == id; };
        removed = std::find_if(clients.begin(), clients.end(), matches)->name;
        std::erase_if(clients, matches);
      });
  if (status == kExitSuccess) c.out << "Removed client \"" << cell(removed) << "\".\n";
  return status;
}

int setReopen(CommandContext& c, Args args) {
  constexpr std::string_view kMisuse = "give a client ID and on or off";
  const Arguments a = parse(c, args, {"clients reopen", kReopenHelp, 2, kMisuse});
  if (a.exit) return *a.exit;
  const std::string& value = a.positional[1];
  if (value != "on" && value != "off") return usage(c, kMisuse, "clients reopen");
  const int status = changeClients(c, a.positional[0], "clients reopen",
                                   [&](std::vector<ClientGrant>& clients, const Uuid& id) {
                                     for (ClientGrant& grant : clients) {
                                       if (grant.id == id) grant.allowReopen = value == "on";
                                     }
                                   });
  if (status == kExitSuccess) {
    c.out << (value == "on" ? "The client may now reopen saved tabs.\n"
                            : "The client may no longer reopen saved tabs.\n");
  }
  return status;
}

int clients(CommandContext& c, Args args) {
  if (args.empty()) return usage(c, "clients needs one of add, list, remove, reopen", "clients");
  const std::string& sub = args[0];
  if (sub == "--help" || sub == "-h" || sub == "help") return help(c, kClientsHelp);
  if (sub == "add") return addClient(c, args.subspan(1));
  if (sub == "list") return listClients(c, args.subspan(1));
  if (sub == "remove") return removeClient(c, args.subspan(1));
  if (sub == "reopen") return setReopen(c, args.subspan(1));
  return usage(c, "unknown clients command " + inQuotes(sub), "clients");
}

// ---- status and suggest

int status(CommandContext& c, Args args) {
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
  std::vector<std::vector<std::string>> rows{
      {"Library:", library->store.fileURL().string() + (exists ? "" : " (not created yet)")},
      {"Library tabs:", std::to_string(summary.tabs.size())},
      {"Closed tabs:", std::to_string(summary.closedTabs.size())},
      {"Open tabs:", open},
      {"Clients:", std::to_string(state.clients.size()) + " (" + std::to_string(reopeners) +
                       " may reopen tabs)"}};
  if (const auto pressure = currentMemoryPressure()) {
    rows.push_back({"Memory pressure:", std::string(displayName(*pressure))});
  }
  printTable(c.out, rows);
  return kExitSuccess;
}

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

int suggest(CommandContext& c, Args args) {
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

}  // namespace

int runCommand(const std::vector<std::string>& argv, CommandContext& c) {
  const Args args(argv);
  if (args.empty()) return usage(c, "no command given", "");
  const std::string& command = args[0];
  if (command == "--help" || command == "-h" || command == "help") return help(c, kHelp);
  if (command == "clients") return clients(c, args.subspan(1));
  if (command == "status") return status(c, args.subspan(1));
  if (command == "suggest") return suggest(c, args.subspan(1));
  return usage(c, "unknown command " + inQuotes(command), "");
}

}  // namespace velto
