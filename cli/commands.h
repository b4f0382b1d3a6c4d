#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "core/support/date.h"
#include "core/support/folders.h"

namespace velto {

// What the `velto` command reads from and writes to, so that tests can run it in
// process: the environment decides where the library is (as it does for VeltoMCP).
struct CommandContext {
  std::ostream& out;  // results only
  std::ostream& err;  // one line per failure, prefixed "velto: "
  EnvironmentLookup env;
  // The running velto executable; VeltoMCP is expected beside it. Absent when the
  // platform cannot tell, and then `clients add` prints a bare "VeltoMCP" command.
  std::optional<std::filesystem::path> executable;
  std::function<Date()> clock = [] { return now(); };
};

// Exit statuses of runCommand.
inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;  // the library or the output failed, or no such client
inline constexpr int kExitUsage = 2;    // unknown command, bad or missing argument

// Runs one `velto` command line (`args` without the program name):
//   clients add NAME [--allow-reopen] | clients list | clients remove ID |
//   clients reopen ID on|off | browsers list | browsers connect BROWSER |
//   browsers disconnect BROWSER | watch [--interval SECONDS] [--once] | status |
//   suggest [--json] | help, and --help on each.
// Changes reach the library only through updateLibrary: under the writers' lock, on the
// library reloaded just before, saved atomically, and never over a library that cannot
// be read. A client whose token cannot be written to `out` is withdrawn again. Each
// failure is one line on `err`. `watch` without --once runs until SIGINT or SIGTERM.
int runCommand(const std::vector<std::string>& args, CommandContext& context);

}  // namespace velto
