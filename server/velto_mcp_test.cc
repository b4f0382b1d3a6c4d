// The real VeltoMCP binary, started the way a client starts it. Whole sessions are in
// transcript_test.cc.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "server/testing/server_harness.h"

namespace velto::testing {
namespace {

const std::string kInitialize =
    R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25","clientInfo":{}}})"
    "\n";
const std::string kPing = R"({"jsonrpc":"2.0","id":1,"method":"ping"})";

TEST(VeltoMCPTest, StartsAndStopsQuietly) {
  ServerHarness harness;
  const ProcessOutput idle = harness.run("");
  EXPECT_EQ(idle.exitStatus, 0);
  EXPECT_EQ(idle.standardOutput + idle.standardError, "");

  // Nowhere to look for the library: a failure on stderr, never a line on stdout.
  harness.environment.erase("HOME");
  harness.environment.erase("XDG_DATA_HOME");
  const ProcessOutput homeless = harness.run(kPing + "\n");
  EXPECT_NE(homeless.exitStatus, 0);
  EXPECT_EQ(homeless.standardOutput, "");
  EXPECT_EQ(std::count(homeless.standardError.begin(), homeless.standardError.end(), '\n'), 1)
      << homeless.standardError;
}

TEST(VeltoMCPTest, ALibraryReplacedMidSessionIsReadWholeOldOrWholeNew) {
  ServerHarness harness;
  LibraryState before = harness.sampleLibrary();
  LibraryState after = before;
  after.tabs.resize(1);                                                  // one closed tab
  for (int i = 0; i < 2000; ++i) before.tabs.push_back(before.tabs[1]);  // 2,003
  harness.saveLibrary(before);
  std::atomic<bool> done = false;
  std::thread app([&] {
    for (bool flip = false; !done; flip = !flip) harness.saveLibrary(flip ? after : before);
  });
  std::string input = kInitialize + R"({"jsonrpc":"2.0","method":"notifications/initialized"})";
  for (int i = 0; i < 300; ++i) {
    input +=
        "\n"
        R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"search_closed_tabs","arguments":{"query":"","limit":1}}})";
  }
  std::istringstream out(harness.run(input).standardOutput);
  done = true;
  app.join();
  int answers = 0;
  for (std::string line; std::getline(out, line);) {
    if (++answers == 1) continue;  // the handshake
    const auto total = nlohmann::json::parse(line)["result"]["structuredContent"].value("total", 0);
    EXPECT_TRUE(total == 1 || total == 2003) << line.substr(0, 200);
  }
  EXPECT_EQ(answers, 301);
}

}  // namespace
}  // namespace velto::testing
