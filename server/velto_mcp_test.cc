// The real VeltoMCP binary, started the way a client starts it.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "core/model/library_store.h"
#include "server/line_loop.h"
#include "server/testing/server_harness.h"

namespace velto::testing {
namespace {

namespace fs = std::filesystem;

const std::string kPing = R"({"jsonrpc":"2.0","id":1,"method":"ping"})";
const std::string kPong = R"({"id":1,"jsonrpc":"2.0","result":{}})";
const std::string kHandshake =
    R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25","clientInfo":{"name":"t","version":"1"}}})"
    "\n"
    R"({"jsonrpc":"2.0","method":"notifications/initialized"})"
    "\n";
const std::string kNotAllowed =
    R"({"error":{"code":-32001,"message":"Connection not allowed."},"id":0,"jsonrpc":"2.0"})";

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
    out.push_back(text.substr(start, end - start));
  }
  EXPECT_EQ(start, text.size()) << "output does not end with a line feed";
  return out;
}

std::string reopenCall(const std::string& id) {
  return R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"reopen_tab","arguments":{"id":")" +
         id +
         R"("}}})"
         "\n";
}

class VeltoMCPTest : public ::testing::Test {
 protected:
  void SetUp() override { harness_.saveLibrary(sampleLibrary()); }

  ServerHarness harness_;
};

TEST_F(VeltoMCPTest, EndOfInputEndsQuietly) {
  const ProcessOutput idle = harness_.run("");
  EXPECT_EQ(idle.exitStatus, 0);
  EXPECT_EQ(idle.standardOutput, "");
  EXPECT_EQ(idle.standardError, "");

  const ProcessOutput unterminated = harness_.run(kPing);  // the last line needs no LF
  EXPECT_EQ(unterminated.exitStatus, 0);
  EXPECT_EQ(unterminated.standardOutput, kPong + "\n");
}

TEST_F(VeltoMCPTest, WithoutAHomeTheServerStopsAndSaysWhy) {
  harness_.environment.erase("HOME");
  harness_.environment.erase("XDG_DATA_HOME");
  const ProcessOutput output = harness_.run(kPing + "\n");
  EXPECT_NE(output.exitStatus, 0);
  EXPECT_EQ(output.standardOutput, "");
  EXPECT_EQ(lines(output.standardError).size(), 1u) << output.standardError;
}

TEST_F(VeltoMCPTest, FindsTheLibraryUnderHomeWithoutXDGDataHome) {
  harness_.environment.erase("XDG_DATA_HOME");
  EXPECT_EQ(harness_.run(kHandshake).standardOutput.substr(0, 11),
            R"({"error":{")");  // no library there
  fs::create_directories(harness_.home() / ".local" / "share" / "Velto");
  fs::copy_file(harness_.libraryFile(),
                harness_.home() / ".local" / "share" / "Velto" / "library.json");
  EXPECT_EQ(harness_.run(kHandshake).standardOutput.substr(0, 9), R"({"id":0,")");
}

TEST_F(VeltoMCPTest, WithoutClientVariablesOnlyPingIsServed) {
  harness_.environment.erase("VELTO_CLIENT_ID");
  harness_.environment.erase("VELTO_CLIENT_TOKEN");
  EXPECT_EQ(lines(harness_.run(kHandshake + kPing).standardOutput),
            (std::vector<std::string>{kNotAllowed, kPong}));
}

TEST_F(VeltoMCPTest, AnUnreadableLibraryIsReportedAsContent) {
  fs::remove(harness_.libraryFile());
  fs::create_directory(harness_.libraryFile());  // unreadable as a file, even for root
  const std::vector<std::string> out = lines(harness_.run(kHandshake + kPing).standardOutput);
  ASSERT_EQ(out.size(), 2u);
  const std::string message =
      LibraryStore(harness_.libraryFile().parent_path()).load().error().message;
  EXPECT_EQ(out[0], R"({"id":0,"jsonrpc":"2.0","result":{"content":[{"text":)" +
                        nlohmann::json(message).dump() + R"(,"type":"text"}],"isError":true}})");
  EXPECT_EQ(out[1], kPong);
}

TEST_F(VeltoMCPTest, LinesOverOneMebibyteAreDroppedAndTheNextIsServed) {
  // Pad a ping with spaces inside the object to an exact length.
  const auto pingOfLength = [](size_t length, const char* id) {
    std::string line = R"({"jsonrpc":"2.0","id":)" + std::string(id) + R"(,"method":"ping")";
    line += std::string(length - line.size() - 1, ' ') + "}";
    return line;
  };
  const std::string input = pingOfLength(kMaxLineBytes, "1") + "\n" +
                            pingOfLength(kMaxLineBytes + 1, "2") + "\n" +
                            pingOfLength(kMaxLineBytes, "3") + "\r\n" +
                            std::string(3 * kMaxLineBytes, '[') + "\n" + kPing;
  EXPECT_EQ(lines(harness_.run(input).standardOutput),
            (std::vector<std::string>{kPong, R"({"id":3,"jsonrpc":"2.0","result":{}})", kPong}));
}

TEST_F(VeltoMCPTest, ReopenStartsTheBrowserWithTheURLAsOneArgument) {
  const fs::path script = harness_.bin() / "google-chrome-stable";
  const fs::path recorded = harness_.home() / "argv.txt";
  std::ofstream(script) << "#!/bin/sh\nfor a in \"$@\"; do printf '[%s]\\n' \"$a\"; done > " +
                               recorded.string() + ".tmp\nmv " + recorded.string() + ".tmp " +
                               recorded.string() + "\n";
  fs::permissions(script, fs::perms::owner_all);
  LibraryState library = sampleLibrary();
  library.tabs[0].url = "https://github.com/velto/core/pull/42?x=1&y=$(id) z";
  harness_.saveLibrary(library);

  const std::vector<std::string> out = lines(
      harness_.run(kHandshake + reopenCall("5A7ED000-0000-4000-8000-000000000001")).standardOutput);
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(
      out[1],
      R"({"id":2,"jsonrpc":"2.0","result":{"content":[{"text":"{\"opened\":true}","type":"text"}],)"
      R"("isError":false,"structuredContent":{"opened":true}}})");
  // The browser runs detached: wait for it to have written what it was given.
  for (int i = 0; i < 200 && !fs::exists(recorded); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
  }
  std::ifstream arguments(recorded);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(arguments), {}),
            "[https://github.com/velto/core/pull/42?x=1&y=$(id)%20z]\n");
}

TEST_F(VeltoMCPTest, ReopenReportsTheBrowserBridgeMessages) {
  const auto textOf = [&](const std::string& id) -> std::string {
    const std::vector<std::string> out =
        lines(harness_.run(kHandshake + reopenCall(id)).standardOutput);
    return out.size() == 2
               ? nlohmann::json::parse(out[1])["result"]["content"][0]["text"].get<std::string>()
               : "";
  };
  // No google-chrome-stable in bin/ (nor, on a test machine, in /usr/bin).
  EXPECT_EQ(textOf("5A7ED000-0000-4000-8000-000000000001"),
            "Chrome is not installed. Copy this link to open it in another browser.");
  // Not a web link: excluded before any browser is involved.
  EXPECT_EQ(textOf("5A7ED000-0000-4000-8000-000000000006"), "Tab not found or excluded.");
  EXPECT_EQ(textOf("5A7ED000-0000-4000-8000-000000000002"),
            "Safari is not installed. Copy this link to open it in another browser.");
  // A browser whose exec fails is reported, not counted as opened.
  const fs::path broken = harness_.bin() / "brave-browser";
  std::ofstream(broken) << "#!/nonexistent/interpreter\n";
  fs::permissions(broken, fs::perms::owner_all);
  EXPECT_EQ(textOf("5A7ED000-0000-4000-8000-000000000007").substr(0, 16), "Could not start ");
}

TEST_F(VeltoMCPTest, ALibraryReplacedMidSessionIsReadWholeOldOrWholeNew) {
  LibraryState before = sampleLibrary(0);
  LibraryState after = before;
  after.tabs.resize(1);
  for (int i = 0; i < 2000; ++i) before.tabs.push_back(before.tabs[1]);  // a larger file
  harness_.saveLibrary(before);

  std::atomic<bool> done = false;
  std::thread app([&] {
    for (bool flip = false; !done; flip = !flip) harness_.saveLibrary(flip ? after : before);
  });
  std::string input = kHandshake;
  for (int i = 0; i < 300; ++i) {
    input +=
        R"({"jsonrpc":"2.0","id":)" + std::to_string(i + 1) +
        R"(,"method":"tools/call","params":{"name":"search_closed_tabs","arguments":{"query":"","limit":1}}})"
        "\n";
  }
  const std::vector<std::string> out = lines(harness_.run(input).standardOutput);
  done = true;
  app.join();
  ASSERT_EQ(out.size(), 301u);
  for (size_t i = 1; i < out.size(); ++i) {
    const nlohmann::json total =
        nlohmann::json::parse(out[i])["result"]["structuredContent"]["total"];
    EXPECT_TRUE(total == 1 || total == 2002) << out[i].substr(0, 200);
  }
}

}  // namespace
}  // namespace velto::testing
