// The real VeltoMCP binary, started the way a client starts it.

#include <gtest/gtest.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <thread>

#include "server/line_loop.h"
#include "server/testing/server_harness.h"

namespace velto::testing {
namespace {

namespace fs = std::filesystem;

const std::string kPing = R"({"jsonrpc":"2.0","id":1,"method":"ping"})";
const std::string kPong = R"({"id":1,"jsonrpc":"2.0","result":{}})";
const std::string kHandshake =
    R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25","clientInfo":{}}})"
    "\n"
    R"({"jsonrpc":"2.0","method":"notifications/initialized"})"
    "\n";

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  EXPECT_TRUE(text.empty() || text.ends_with('\n'));
  return out;
}

TEST(VeltoMCPTest, StartsAndStopsQuietly) {
  ServerHarness harness;
  const ProcessOutput idle = harness.run("");
  EXPECT_EQ(idle.exitStatus, 0);
  EXPECT_EQ(idle.standardOutput + idle.standardError, "");
  EXPECT_EQ(harness.run(kPing).standardOutput, kPong + "\n");  // a last line needs no LF

  harness.environment.erase("VELTO_CLIENT_ID");
  harness.environment.erase("VELTO_CLIENT_TOKEN");
  EXPECT_EQ(
      lines(harness.run(kHandshake + kPing).standardOutput),
      (std::vector<std::string>{
          R"({"error":{"code":-32001,"message":"Connection not allowed."},"id":0,"jsonrpc":"2.0"})",
          kPong}));

  harness.environment.erase("HOME");
  harness.environment.erase("XDG_DATA_HOME");
  const ProcessOutput homeless = harness.run(kPing + "\n");
  EXPECT_NE(homeless.exitStatus, 0);
  EXPECT_EQ(homeless.standardOutput, "");
  EXPECT_EQ(lines(homeless.standardError).size(), 1u) << homeless.standardError;
}

TEST(VeltoMCPTest, LinesOverOneMebibyteAreDroppedAndTheNextIsServed) {
  const auto pingOfLength = [](size_t length, int id) {  // padded with spaces to the length
    std::string line = R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":"ping")";
    return line + std::string(length - line.size() - 1, ' ') + "}";
  };
  ServerHarness harness;
  EXPECT_EQ(
      lines(harness
                .run(pingOfLength(kMaxLineBytes, 1) + "\n" + pingOfLength(kMaxLineBytes + 1, 2) +
                     "\n" + pingOfLength(kMaxLineBytes, 3) + "\r\n" +
                     std::string(3 * kMaxLineBytes, '[') + "\n" + kPing)
                .standardOutput),
      (std::vector<std::string>{kPong, R"({"id":3,"jsonrpc":"2.0","result":{}})", kPong}));
}

TEST(VeltoMCPTest, ALibraryReplacedMidSessionIsReadWholeOldOrWholeNew) {
  ServerHarness harness;
  LibraryState before = harness.sampleLibrary();
  LibraryState after = before;
  after.tabs.resize(1);
  for (int i = 0; i < 2000; ++i) before.tabs.push_back(before.tabs[1]);  // a larger file
  harness.saveLibrary(before);
  std::atomic<bool> done = false;
  std::thread app([&] {
    for (bool flip = false; !done; flip = !flip) harness.saveLibrary(flip ? after : before);
  });
  std::string input = kHandshake;
  for (int i = 0; i < 300; ++i) {
    input +=
        R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"search_closed_tabs","arguments":{"query":"","limit":1}}})"
        "\n";
  }
  const std::vector<std::string> out = lines(harness.run(input).standardOutput);
  done = true;
  app.join();
  ASSERT_EQ(out.size(), 301u);
  for (size_t i = 1; i < out.size(); ++i) {
    const auto total =
        nlohmann::json::parse(out[i])["result"]["structuredContent"].value("total", 0);
    EXPECT_TRUE(total == 1 || total == 2002) << out[i].substr(0, 200);
  }
}

}  // namespace
}  // namespace velto::testing
