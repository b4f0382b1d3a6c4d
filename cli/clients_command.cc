// velto clients: add, list, remove and change the grants of MCP clients.

#include <algorithm>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <system_error>

#include "cli/client_setup.h"
#include "cli/command_support.h"
#include "cli/server_location.h"
#include "core/mcp/client_authorization.h"
#include "core/model/velto_error.h"
#include "core/support/text.h"
#include "core/support/uuid.h"

namespace velto {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

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

constexpr size_t kShownHashDigits = 8;

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
  const ClientSetup::ForOption target = ClientSetup::takeForOption(args);
  const Arguments a = parse(
      c, target.rest, {"clients add", kAddHelp, 1, "give the client one NAME", {"--allow-reopen"}});
  if (a.exit) return *a.exit;
  if (!target.client) return usage(c, target.error, "clients add");
  const std::string& name = a.positional.front();
  if (splitAtWhitespace(name).empty()) return usage(c, "the client name is empty", "clients add");
  if (!isValidUTF8(name)) return usage(c, "the client name is not valid UTF-8", "clients add");

  const auto store = libraryStore(c);
  if (!store) return kExitFailure;
  Result<std::string> token = ClientAuthorization::newToken();
  if (!token.ok()) return fail(c, kExitFailure, token.error().message);
  const std::optional<Uuid> id = Uuid::random();
  if (!id) return fail(c, kExitFailure, VeltoError::secureKeyUnavailable().message);
  const ClientGrant grant{*id, name, ClientAuthorization::hash(*token), a.has("--allow-reopen"),
                          c.clock()};
  const int added = changeLibrary(c, *store, [&](LibraryState& state) {
    state.clients.push_back(grant);
    return true;
  });
  if (added != kExitSuccess) return added;

  const Json env = serverEnvironment(c, *store, grant, *token);
  ClientSetup::Variables variables;
  for (const auto& item : env.items())
    variables.emplace_back(item.key(), item.value().get<std::string>());
  const ClientSetup::Configuration config =
      ClientSetup::configuration(*target.client, serverCommand(c), variables, c.env);
  c.out << "Added client \"" << cell(name) << "\" to " << store->fileURL().string()
        << ".\nClient id: " << grant.id.text() << "\nToken:     " << *token
        << "\nThe token is shown only this once: the library keeps only its hash.\n"
        << (grant.allowReopen ? "This client may reopen saved tabs.\n"
                              : "This client may list and search tabs but not reopen them.\n")
        << '\n'
        << config.intro << '\n'
        << config.text;
  if (c.out.flush()) return kExitSuccess;
  // Nobody would ever hold this token, so the grant must not stay.
  changeLibrary(c, *store, [&](LibraryState& state) {
    return std::erase_if(state.clients, [&](const ClientGrant& g) { return g.id == grant.id; }) > 0;
  });
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

// Lets `change` edit the grants whose id is `idText`, under the writers' lock. The id
// must parse and name at least one grant when the library is reloaded.
int changeClients(CommandContext& c, const std::string& idText, std::string_view command,
                  const std::function<void(std::vector<ClientGrant>&, const Uuid&)>& change) {
  const auto id = Uuid::parse(idText);
  if (!id) {
    return usage(c, inQuotes(idText) + " is not a client id; ids look like " + Uuid{}.text(),
                 command);
  }
  const auto store = libraryStore(c);
  if (!store) return kExitFailure;
  bool found = false;
  const int status = changeLibrary(c, *store, [&](LibraryState& state) {
    auto& clients = state.clients;
    found = std::any_of(clients.begin(), clients.end(),
                        [&](const ClientGrant& g) { return g.id == *id; });
    if (found) change(clients, *id);
    return found;
  });
  if (status != kExitSuccess) return status;
  if (!found) return fail(c, kExitFailure, "there is no client with id " + id->text());
  return kExitSuccess;
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

}  // namespace

int clientsCommand(CommandContext& c, Args args) {
  if (args.empty()) return usage(c, "clients needs one of add, list, remove, reopen", "clients");
  const std::string& sub = args[0];
  if (sub == "--help" || sub == "-h" || sub == "help") return help(c, kClientsHelp);
  if (sub == "add") return addClient(c, args.subspan(1));
  if (sub == "list") return listClients(c, args.subspan(1));
  if (sub == "remove") return removeClient(c, args.subspan(1));
  if (sub == "reopen") return setReopen(c, args.subspan(1));
  return usage(c, "unknown clients command " + inQuotes(sub), "clients");
}

}  // namespace velto
