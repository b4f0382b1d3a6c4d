// velto: manages the clients allowed to use VeltoMCP, and shows the library's status and
// the suggestions for its last snapshot, for people who run the server without the
// desktop app. Wiring only: the commands live in cli/commands.cc and the *_command.cc files.

#include <iostream>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/executable_path.h"

int main(int argc, char** argv) {
  using namespace velto;
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() == 1 && args[0] == "--version") {
    std::cout << "velto " << VELTO_VERSION << '\n';
    return std::cout.flush() ? kExitSuccess : kExitFailure;
  }
  CommandContext context{std::cout, std::cerr, processEnvironment(), currentExecutablePath()};
  const int status = runCommand(args, context);
  if (std::cout.flush() || status != kExitSuccess) return status;
  std::cerr << "velto: could not write the output\n";
  return kExitFailure;
}
