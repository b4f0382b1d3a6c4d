#pragma once

#include <sys/types.h>

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/browser/process_runner.h"
#include "core/model/records.h"

namespace velto::testing {

// The two clients of server/testing/library.json: one may reopen tabs, one may not.
inline constexpr const char* kOpenerID = "C0FFEE00-0000-4000-8000-000000000001";
inline const std::string kOpenerToken(64, '1');
inline constexpr const char* kReaderID = "C0FFEE00-0000-4000-8000-000000000002";
inline const std::string kReaderToken(64, '2');

// A private home for runs of the real VeltoMCP ($VELTO_BINARY_DIR/server/VeltoMCP): HOME
// and XDG_DATA_HOME in a fresh temporary folder whose library is server/testing/library.json
// with its open tabs observed just now, and whose bin/ comes first on PATH. The server
// sees exactly `environment`, nothing inherited; it starts as the client that may reopen.
struct ServerHarness {
  ServerHarness();
  ~ServerHarness();

  // server/testing/library.json as written to libraryFile, and decoded.
  std::string sampleLibraryText() const;
  LibraryState sampleLibrary() const;
  void saveLibrary(const LibraryState& state) const;
  // Starts the server with `arguments`, writes `input` to its stdin, closes it, and waits
  // for the server to exit.
  ProcessOutput run(std::string_view input, const std::vector<std::string>& arguments = {}) const;

  std::filesystem::path home;
  std::filesystem::path bin;
  std::filesystem::path libraryFile;
  std::string liveUpdatedAt;  // when the sample library's open tabs were observed
  std::map<std::string, std::string> environment;
};

// One server of `harness` kept running as a client keeps it, for one request at a time;
// ended (its stdin closed, then waited for) when destroyed.
class ServerSession {
 public:
  explicit ServerSession(const ServerHarness& harness);
  ~ServerSession();
  ServerSession(const ServerSession&) = delete;
  ServerSession& operator=(const ServerSession&) = delete;

  // Sends `lines` and returns what the server answers, up to and including the
  // `answers`-th line feed; a note in brackets ends it when the server has gone.
  std::string ask(std::string_view lines, int answers = 1);

 private:
  pid_t pid_ = -1;
  int in_ = -1;
  int out_ = -1;
};

}  // namespace velto::testing
