#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "core/support/folders.h"

namespace velto {

// What VeltoMCP makes of its arguments (without the program name). Clients start it with
// none, and then it serves: absent. Otherwise it answers and the process ends with the
// status returned: "--version" prints the version and "--help" (or "-h") what the server
// is, how a client starts it, the variables it reads and where the library is (found
// through `env`), both on `out` with status 0; anything else is one line on `err` and 2.
std::optional<int> answerCommandLine(const std::vector<std::string>& args,
                                     const EnvironmentLookup& env, std::ostream& out,
                                     std::ostream& err);

}  // namespace velto
