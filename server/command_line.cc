#include "server/command_line.h"

#include "core/model/library_store.h"
#include "server/line_loop.h"

namespace velto {

namespace {

constexpr std::string_view kHelp = R"(Usage: VeltoMCP [--help | --version]

VeltoMCP is the Model Context Protocol server of the Velto library. It lets an AI
client list the tabs open in the user's browsers, search the saved tabs that were
closed, and reopen a saved tab in its browser when the client may.

The client starts it as a child process without arguments and exchanges
newline-delimited JSON-RPC 2.0 messages with it on stdin and stdout, one request at
a time. stdout carries responses only; a refused client, a library that cannot be
read and a dropped line are each told in one line on stderr.

Environment (give the first two in the "env" of the client's configuration):
  VELTO_CLIENT_ID     the client's id, printed by "velto clients add"
  VELTO_CLIENT_TOKEN  the client's token, printed once by "velto clients add"
  XDG_DATA_HOME       Linux: the folder holding Velto/ (default ~/.local/share)
  HOME                the user's home folder

"velto clients add NAME --for CLIENT" prints the configuration for a client.
)";

}  // namespace

std::optional<int> answerCommandLine(const std::vector<std::string>& args,
                                     const EnvironmentLookup& env, std::ostream& out,
                                     std::ostream& err) {
  if (args.empty()) return std::nullopt;
  if (args.size() == 1 && args[0] == "--version") {
    out << "VeltoMCP " << VELTO_VERSION << '\n';
    return 0;
  }
  if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
    out << kHelp << "\nLibrary (read afresh for every request, never written):\n  ";
    const Result<LibraryStore> store = LibraryStore::atDefaultLocation(env);
    out << (store.ok() ? store->fileURL().string() : store.error().message) << '\n';
    return 0;
  }
  diagnosticLines(err, "VeltoMCP")("unexpected argument \"" + args[0] +
                                   "\": clients start VeltoMCP without arguments (see "
                                   "VeltoMCP --help)");
  return 2;
}

}  // namespace velto
