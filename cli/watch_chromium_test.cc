// What a Linux user without the desktop app sees: a real Chromium with two pages open,
// the built `velto watch --once` run as a script would run it, and an AI client asking
// the real VeltoMCP. The client sees both tabs with the titles the pages carry, and once
// the user closes one and watch looks again, finds it among the closed tabs.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/browser/process_runner.h"
#include "core/browser/testing/chromium_session.h"
#include "core/support/testing/files.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using namespace std::chrono_literals;

class WatchChromiumTest : public velto::testing::TempDirTest {
 protected:
  void SetUp() override {
    const char* binaries = std::getenv("VELTO_BINARY_DIR");
    ASSERT_NE(binaries, nullptr) << "run through ctest";
    velto_ = fs::path(binaries) / "cli/velto";
    server_ = fs::path(binaries) / "server/VeltoMCP";
    // A user's own folders: Debian's Chromium keeps its profile under the configuration
    // folder, where velto finds it as Chrome's.
    env_ = {"-i", "HOME=" + root_.string(), "XDG_CONFIG_HOME=" + (root_ / "config").string(),
            "XDG_DATA_HOME=" + (root_ / "data").string()};
  }

  // The built velto run with `words` in the test's home; its output when it exited 0.
  std::string velto(const std::vector<std::string>& words) {
    std::vector<std::string> arguments = env_;
    arguments.push_back(velto_.string());
    arguments.insert(arguments.end(), words.begin(), words.end());
    const auto output = velto::runProcess("/usr/bin/env", arguments, {}, 30s);
    EXPECT_TRUE(output.ok());
    if (!output.ok()) return {};
    EXPECT_EQ(output->exitStatus, 0) << output->standardError;
    return output->standardOutput;
  }

  // What the tool `name` answers over a whole MCP session with the added client: its
  // structured result, or null when the call failed.
  json callTool(const std::string& name, const json& arguments) {
    std::vector<std::string> command = env_;
    command.insert(command.end(), {"VELTO_CLIENT_ID=" + clientID_, "VELTO_CLIENT_TOKEN=" + token_,
                                   server_.string()});
    const json call = {{"jsonrpc", "2.0"},
                       {"id", 1},
                       {"method", "tools/call"},
                       {"params", {{"name", name}, {"arguments", arguments}}}};
    const std::string session =
        R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25",)"
        R"("capabilities":{},"clientInfo":{"name":"test","version":"1"}}})"
        "\n"
        R"({"jsonrpc":"2.0","method":"notifications/initialized"})"
        "\n" +
        call.dump() + "\n";
    const auto output = velto::runProcess("/usr/bin/env", command, session, 30s);
    EXPECT_TRUE(output.ok());
    if (!output.ok()) return nullptr;
    std::istringstream lines(output->standardOutput);
    for (std::string line; std::getline(lines, line);) {
      const json reply = json::parse(line, nullptr, false);
      if (reply.is_object() && reply.value("id", -1) == 1) {
        EXPECT_FALSE(reply.contains("error")) << line;
        return reply.contains("result") ? reply["result"]["structuredContent"] : json();
      }
    }
    ADD_FAILURE() << "no answer to the call of " << name << ": " << output->standardError;
    return nullptr;
  }

  // Runs watch cycles until `done` holds after one, for at most `limit`.
  bool watchUntil(const std::function<bool()>& done, std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
      EXPECT_EQ(velto({"watch", "--once"}), "");
      if (done()) return true;
      std::this_thread::sleep_for(500ms);
    }
    return false;
  }

  fs::path velto_, server_;
  std::vector<std::string> env_;
  std::string clientID_, token_;
};

// The (title, URL) pairs of a tool's tabs.
std::vector<std::pair<std::string, std::string>> titledURLs(const json& result) {
  std::vector<std::pair<std::string, std::string>> pairs;
  if (!result.is_object() || !result.contains("tabs") || !result["tabs"].is_array()) return pairs;
  for (const json& tab : result["tabs"]) {
    pairs.emplace_back(tab.value("title", ""), tab.value("url", ""));
  }
  return pairs;
}

TEST_F(WatchChromiumTest, ClientSeesTheOpenTabsAndFindsTheOneClosed) {
  // Required wherever Linux builds run (CI included): scripts/bootstrap installs both.
  if (const std::string why = velto::testing::ChromiumSession::unavailableReason(); !why.empty()) {
#ifdef __linux__
    FAIL() << why << "; scripts/bootstrap installs it";
#else
    GTEST_SKIP() << why;
#endif
  }
  const std::string added = velto({"clients", "add", "Watch test"});
  std::smatch id, token;
  ASSERT_TRUE(std::regex_search(added, id, std::regex("Client id: (\\S+)"))) << added;
  ASSERT_TRUE(std::regex_search(added, token, std::regex("Token: +(\\S+)"))) << added;
  clientID_ = id[1];
  token_ = token[1];
  velto({"browsers", "connect", "chrome"});

  velto::testing::PageServer pages({{"/harbour", "Harbour Lights"}, {"/orchard", "Quiet Orchard"}});
  ASSERT_NE(pages.port(), 0);
  const std::string harbour = pages.url("/harbour"), orchard = pages.url("/orchard");
  std::string why;
  const auto browser =
      velto::testing::ChromiumSession::start(root_ / "config/chromium", {harbour, orchard}, why);
  ASSERT_TRUE(browser) << why;

  // The session file lands a few seconds after a change, and the titles in the history
  // database a little later: a user sees them within half a minute of the pages loading.
  const std::vector<std::pair<std::string, std::string>> bothOpen{{"Harbour Lights", harbour},
                                                                  {"Quiet Orchard", orchard}};
  json open;
  ASSERT_TRUE(watchUntil(
      [&] {
        open = callTool("list_tabs", json::object());
        return titledURLs(open) == bothOpen;
      },
      30s))
      << open.dump();

  std::string orchardPage;
  for (const auto& page : browser->pages()) {
    if (page.url == orchard) orchardPage = page.id;
  }
  ASSERT_FALSE(orchardPage.empty());
  ASSERT_TRUE(browser->closePage(orchardPage));
  json closed;
  ASSERT_TRUE(watchUntil(
      [&] {
        open = callTool("list_tabs", json::object());
        closed = callTool("search_closed_tabs", {{"query", "orchard"}});
        return titledURLs(open).size() == 1 && !titledURLs(closed).empty();
      },
      30s))
      << open.dump() << "\n"
      << closed.dump();
  EXPECT_EQ(titledURLs(open), (std::vector<std::pair<std::string, std::string>>{bothOpen[0]}));
  EXPECT_EQ(titledURLs(closed), (std::vector<std::pair<std::string, std::string>>{bothOpen[1]}));
}

}  // namespace
