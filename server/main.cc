// VeltoMCP: the Model Context Protocol server over the user's Velto library. Wiring only:
// everything it knows lives in VeltoCore; stdout carries responses and nothing else, and
// what its operator should know goes to stderr, one line each.

#include <signal.h>
#include <unistd.h>

#include <iostream>

#include "core/browser/application_launcher.h"
#include "core/browser/reopen.h"
#include "core/mcp/mcp_service.h"
#include "server/command_line.h"
#include "server/line_loop.h"

int main(int argc, char** argv) {
  using namespace velto;

  // A client that goes away while we answer must not kill us mid-write; the write just fails.
  ::signal(SIGPIPE, SIG_IGN);
  std::ios::sync_with_stdio(false);

  const EnvironmentLookup env = processEnvironment();
  if (const auto status = answerCommandLine({argv + 1, argv + argc}, env, std::cout, std::cerr)) {
    return std::cout.flush() ? *status : 1;
  }

  const Diagnostics diagnostics = diagnosticLines(std::cerr, "VeltoMCP");
  Result<LibraryStore> store = LibraryStore::atDefaultLocation(env);
  if (!store.ok()) {
    diagnostics(store.error().message);
    return 1;
  }

  const std::unique_ptr<ApplicationLauncher> launcher = platformApplicationLauncher(env);
  MCPService service(
      std::move(*store), env("VELTO_CLIENT_ID").value_or(""),
      env("VELTO_CLIENT_TOKEN").value_or(""),
      [&launcher](const SavedTab& tab) { return reopenTab(*launcher, tab.url, tab.browser); }, now,
      diagnostics);

  FileDescriptorOutput output(STDOUT_FILENO);
  std::ostream out(&output);
  return runLineLoop(
      std::cin, out, [&service](std::string_view line) { return service.respond(line); },
      diagnostics);
}
