#include "cli/commands.h"

#include <string_view>

#include "cli/command_support.h"

namespace velto {

namespace {

constexpr std::string_view kHelp = R"(Usage: velto <command> [arguments]

Manages the clients allowed to use VeltoMCP and the browsers Velto watches, keeps the
open tabs in the Velto library, and shows what the library holds.

Commands:
  clients add NAME [--allow-reopen] [--for CLIENT]
                                     allow a new MCP client; prints its id, its token
                                     (shown only once) and a configuration to paste
  clients list                       the allowed clients
  clients remove ID                  withdraw a client's access
  clients reopen ID on|off           let a client reopen saved tabs, or stop it
  browsers list                      the browsers, and which are connected
  browsers connect BROWSER           watch a browser: safari, chrome, brave or edge
  browsers disconnect BROWSER        stop watching it
  watch [--interval SECONDS] [--once]
                                     keep the library's open and closed tabs up to
                                     date, as the Velto app does
  status                             where the library is and what it holds
  suggest [--json]                   open tabs worth closing, from the last snapshot

Run "velto <command> --help" for more about one command, "velto --version" for the
version.

The library is library.json in the Velto folder of the user's application data:
~/Library/Application Support/Velto on macOS, $XDG_DATA_HOME/Velto (by default
~/.local/share/Velto) elsewhere. VeltoMCP reads the same file.
)";

}  // namespace

int runCommand(const std::vector<std::string>& argv, CommandContext& c) {
  const Args args(argv);
  if (args.empty()) return usage(c, "no command given", "");
  const std::string& command = args[0];
  if (command == "--help" || command == "-h" || command == "help") return help(c, kHelp);
  if (command == "browsers") return browsersCommand(c, args.subspan(1));
  if (command == "clients") return clientsCommand(c, args.subspan(1));
  if (command == "status") return statusCommand(c, args.subspan(1));
  if (command == "suggest") return suggestCommand(c, args.subspan(1));
  if (command == "watch") return watchCommand(c, args.subspan(1));
  return usage(c, "unknown command " + inQuotes(command), "");
}

}  // namespace velto
