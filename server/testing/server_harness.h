#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "core/browser/process_runner.h"
#include "core/model/records.h"

namespace velto::testing {

// Two clients that every sample library grants: one may reopen tabs, one may not.
inline constexpr const char* kOpenerID = "C0FFEE00-0000-4000-8000-000000000001";
inline constexpr const char* kOpenerToken =
    "1111111111111111111111111111111111111111111111111111111111111111";
inline constexpr const char* kReaderID = "C0FFEE00-0000-4000-8000-000000000002";
inline constexpr const char* kReaderToken =
    "2222222222222222222222222222222222222222222222222222222222222222";

// A small library: the two clients, Chrome and Safari connected, "bank.example" excluded,
// four live tabs observed `liveAge` seconds before now, and saved tabs in every state
// with fixed dates in January 2026.
LibraryState sampleLibrary(double liveAge = 5);

// A private home for one run of the real VeltoMCP ($VELTO_BINARY_DIR/server/VeltoMCP):
// HOME and XDG_DATA_HOME point into a fresh temporary folder, whose bin/ comes first on
// PATH. The server is started with exactly `environment`, nothing inherited.
class ServerHarness {
 public:
  ServerHarness();
  ~ServerHarness();
  ServerHarness(const ServerHarness&) = delete;
  ServerHarness& operator=(const ServerHarness&) = delete;

  const std::filesystem::path& home() const { return home_; }
  std::filesystem::path bin() const { return home_ / "bin"; }
  std::filesystem::path libraryFile() const;

  void saveLibrary(const LibraryState& state) const;
  void useClient(const std::string& id, const std::string& token);

  // Writes `input` to the server's stdin, closes it, and waits for the server to exit.
  ProcessOutput run(std::string_view input) const;

  std::map<std::string, std::string> environment;

 private:
  std::filesystem::path home_;
};

}  // namespace velto::testing
