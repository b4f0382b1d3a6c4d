#include "core/mcp/mcp_service.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "core/mcp/client_authorization.h"
#include "core/model/velto_error.h"

namespace velto {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Session = MCPService::Session;

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);
Date ago(double seconds) { return addingSeconds(kNow, -seconds); }

const std::string kReader = "0A1B2C3D-0000-4000-8000-000000000001";
const std::string kOpener = "0A1B2C3D-0000-4000-8000-000000000002";
const std::string kToken(64, 'a');
const std::string kInitialize =
    R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2025-11-25","clientInfo":{}}})";
const std::string kInitialized = R"({"jsonrpc":"2.0","method":"notifications/initialized"})";
const std::string kList = R"({"jsonrpc":"2.0","id":2,"method":"tools/list"})";

std::string tabID(int n) { return "5A7ED000-0000-4000-8000-00000000000" + std::to_string(n); }

class MCPServiceTest : public ::testing::Test {
 protected:
  MCPServiceTest()
      : directory_(fs::temp_directory_path() / ("mcp_service_test." + std::to_string(::getpid()))) {
    for (const auto& [id, reopen] : {std::pair{kReader, false}, {kOpener, true}}) {
      library_.clients.push_back(
          {*Uuid::parse(id), "c", ClientAuthorization::hash(kToken), reopen, kNow});
    }
    library_.preferences.connectedBrowsers = {Browser::chrome, Browser::safari};
    library_.preferences.exclusions = {"bank.example"};
    library_.liveUpdatedAt = ago(30);
    for (const std::string id : {"chrome:1:1", "chrome:1:2", "brave:1:1", "safari:1:1"}) {
      LiveTab& tab = library_.liveTabs.emplace_back();
      tab.id = id;
      tab.browser = *browserFromRawValue(id.substr(0, id.find(':')));
      tab.url = id == "chrome:1:2" ? "https://bank.example/" : "https://a.example/";
    }
    // 1 and 6 closed at the same time, 2 earlier; 3 saved, 4 pending, 5 excluded.
    for (const auto& [n, url, state, closedAgo] :
         {std::tuple{1, "https://github.com/x", ArchiveState::closed, 500},
          {2, "https://notes.example/", ArchiveState::closed, 900},
          {3, "https://saved.example/", ArchiveState::saved, 10},
          {4, "https://pending.example/", ArchiveState::pendingClose, 10},
          {5, "https://bank.example/", ArchiveState::closed, 10},
          {6, "https://tie.example/", ArchiveState::closed, 500}}) {
      SavedTab& tab = library_.tabs.emplace_back();
      tab.id = *Uuid::parse(tabID(n));
      tab.title = "Tab " + std::to_string(n);
      tab.url = url;
      tab.browser = Browser::chrome;
      tab.savedAt = ago(5000);
      tab.closedAt = ago(closedAgo);
      tab.state = state;
    }
  }
  ~MCPServiceTest() override { fs::remove_all(directory_); }

  // A new service over the current library_, as `clientID`, past the handshake if `ready`.
  MCPService& start(const std::string& clientID = kOpener, bool ready = true,
                    const std::string& token = kToken) {
    EXPECT_TRUE(LibraryStore(directory_).save(library_).ok());
    service_.emplace(
        LibraryStore(directory_), clientID, token,
        [this](const SavedTab& tab) {
          opened_.push_back(tab.url);
          return openerResult_;
        },
        [] { return kNow; });
    if (ready) {
      service_->respond(kInitialize);
      service_->respond(kInitialized);
    }
    return *service_;
  }

  json send(const std::string& line) {
    return json::parse(service_->respond(line).value_or("null"));
  }
  json call(const std::string& tool, const std::string& arguments) {
    return send(R"({"jsonrpc":"2.0","id":9,"method":"tools/call","params":{"name":")" + tool +
                R"(","arguments":)" + arguments + "}}");
  }
  // "-32602 message" for an error, the text of a tool error, or "ok".
  static std::string outcome(const json& response) {
    if (response.contains("error")) {
      return std::to_string(response["error"]["code"].get<int>()) + " " +
             response["error"]["message"].get<std::string>();
    }
    return response["result"].value("isError", false) ? response["result"]["content"][0]["text"]
                                                      : "ok";
  }
  static std::vector<std::string> ids(const json& response) {
    std::vector<std::string> out;
    for (const json& tab : response["result"]["structuredContent"]["tabs"])
      out.push_back(tab["id"]);
    return out;
  }

  fs::path directory_;
  LibraryState library_;
  std::optional<MCPService> service_;
  std::vector<std::string> opened_;
  Result<void> openerResult_;
};

TEST_F(MCPServiceTest, SessionMovesOnlyThroughTheHandshake) {
  MCPService& s = start(kOpener, false);
  const std::string unknown = R"({"jsonrpc":"2.0","id":3,"method":"resources/list"})";
  const std::string ping = R"({"jsonrpc":"2.0","id":4,"method":"ping"})";
  struct Step {
    std::string line;
    std::string reply;  // "none", "ok" or the error code
    Session after;
  };
  for (
      const Step& step : std::vector<Step>{
          {ping, "ok", Session::fresh},
          {kList, "-32002", Session::fresh},
          {unknown, "-32002", Session::fresh},
          {R"({"jsonrpc":"2.0","id":4,"method":"initialize","params":{"protocolVersion":"x"}})",
           "-32602", Session::fresh},
          {R"({"jsonrpc":"2.0","id":4,"method":"initialize","params":{"protocolVersion":1,"clientInfo":{}}})",
           "-32602", Session::fresh},
          {kInitialized, "none", Session::fresh},
          {kInitialize, "ok", Session::initialized},
          {kList, "-32002", Session::initialized},
          {kInitialize, "-32602", Session::initialized},
          {R"({"jsonrpc":"2.0","id":5,"method":"notifications/initialized"})", "-32002",
           Session::initialized},
          {kInitialized, "none", Session::ready},
          {kList, "ok", Session::ready},
          {kInitialize, "-32602", Session::ready},
          {unknown, "-32601", Session::ready},
          {ping, "ok", Session::ready},
      }) {
    const std::optional<std::string> reply = s.respond(step.line);
    const json response = json::parse(reply.value_or("{}"));
    const std::string got = !reply ? "none"
                            : response.contains("error")
                                ? std::to_string(response["error"]["code"].get<int>())
                                : "ok";
    EXPECT_EQ(got, step.reply) << step.line;
    EXPECT_EQ(s.session(), step.after) << step.line;
  }
}

TEST_F(MCPServiceTest, RefusedClientsGetNothingButPing) {
  for (const auto& [id, token] : {std::pair{kOpener, std::string(63, 'a')},
                                  {kOpener, std::string(64, 'A')},
                                  {kOpener.substr(1), kToken}}) {
    MCPService& s = start(id, false, token);
    EXPECT_EQ(outcome(send(kInitialize)), "-32001 Connection not allowed.") << id << " " << token;
    EXPECT_EQ(outcome(send(R"({"jsonrpc":"2.0","id":1,"method":"ping"})")), "ok");
    EXPECT_EQ(s.session(), Session::fresh);
  }
  start("0a1b2c3d-0000-4000-8000-000000000002", false);  // the same UUID in lower case
  EXPECT_EQ(outcome(send(kInitialize)), "ok");
}

TEST_F(MCPServiceTest, LibraryProblemsAreToolErrorsEvenForInitialize) {
  start(kOpener, false);
  std::ofstream(directory_ / "library.json") << R"({"version":1,"tabs":[)";
  EXPECT_EQ(outcome(send(kInitialize)), LibraryStore(directory_).load().error().message);
  library_.version = 2;
  start(kOpener, false);
  EXPECT_EQ(outcome(send(kInitialize)), VeltoError::newerLibrary().message);
  EXPECT_EQ(service_->session(), Session::fresh);
  library_.version = 1;  // repaired: the next request reads it again
  EXPECT_TRUE(LibraryStore(directory_).save(library_).ok());
  EXPECT_EQ(outcome(send(kInitialize)), "ok");
}

TEST_F(MCPServiceTest, ArgumentsAreCheckedBeforeAnythingRuns) {
  start(kReader);
  const std::string list = "-32602 Invalid arguments";
  const std::string usage =
      "-32602 Provide query (up to 500 characters) and an optional limit from 1 to 100.";
  const std::string since = "-32602 since must be an ISO 8601 timestamp.";
  const std::string uuid = "-32602 Provide the saved tab's UUID.";
  std::string longest;
  for (int i = 0; i < 500; ++i) longest += "e\xCC\x81";  // 500 characters in 1,500 bytes
  struct Case {
    std::string tool, arguments, outcome;
  };
  for (const Case& c : std::vector<Case>{
           {"list_tabs", R"({"limit":0})", list},
           {"list_tabs", R"({"limit":101})", list},
           {"list_tabs", R"({"limit":2.5})", list},
           {"list_tabs", R"({"limit":"5"})", list},
           {"list_tabs", R"({"limit":true})", list},
           {"list_tabs", R"({"limit":18446744073709551615})", list},
           {"list_tabs", R"({"browser":"firefox","tabs":1})", list},
           {"list_tabs", R"({"browser":3})", "-32602 Unknown browser"},
           {"list_tabs", R"({"limit":100,"browser":"brave"})", "ok"},
           {"list_tabs", R"({"limit":5.0})", "ok"},
           {"list_tabs", "[1]", "ok"},  // arguments that are not an object count as none
           {"search_closed_tabs", "{}", usage},
           {"search_closed_tabs", R"({"query":"a","extra":1})", usage},
           {"search_closed_tabs", R"({"query":")" + longest + "\"}", "ok"},
           {"search_closed_tabs", R"({"query":")" + longest + "e\"}", usage},
           {"search_closed_tabs", R"({"query":"a","limit":0,"since":"x"})", usage},
           {"search_closed_tabs", R"({"query":"","since":"yesterday"})", since},
           {"search_closed_tabs", R"({"query":"","since":"2025-01-01T00:00:00.000Z"})", since},
           {"search_closed_tabs", R"({"query":"","since":1})", since},
           {"reopen_tab", "{}", uuid},
           {"reopen_tab", R"({"id":")" + tabID(1) + R"(","force":true})", uuid},
           {"reopen_tab", R"({"id":")" + tabID(1) + R"("})",
            "This connection is read-only. Enable reopening for this client in Velto."},
       }) {
    EXPECT_EQ(outcome(call(c.tool, c.arguments)), c.outcome)
        << c.tool << " " << c.arguments.substr(0, 60);
  }
  EXPECT_EQ(outcome(send(R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":7}})")),
            "-32602 A tool name is required.");
  EXPECT_TRUE(opened_.empty());
}

TEST_F(MCPServiceTest, ListTabsOnlyFromAFreshSnapshot) {
  const std::string stale = "The open-tab snapshot is stale. Open Velto and refresh your browsers.";
  for (const auto& [age, expected] : std::vector<std::pair<std::optional<double>, std::string>>{
           {0, "ok"}, {119, "ok"}, {120, stale}, {-1, stale}, {std::nullopt, stale}}) {
    library_.liveUpdatedAt = age ? std::optional(ago(*age)) : std::nullopt;
    start();
    EXPECT_EQ(outcome(call("list_tabs", "{}")), expected) << age.value_or(-99);
  }
  // Excluded and unconnected browsers' tabs are neither listed nor counted.
  library_.liveUpdatedAt = ago(30);
  start();
  const json one = call("list_tabs", R"({"limit":1})");
  EXPECT_EQ(ids(one), (std::vector<std::string>{"chrome:1:1"}));
  EXPECT_EQ(one["result"]["structuredContent"]["total"], 2);
  EXPECT_EQ(call("list_tabs", R"({"browser":"brave"})")["result"]["structuredContent"]["total"], 0);
}

TEST_F(MCPServiceTest, SearchSortsNewestFirstKeepingLibraryOrderForTies) {
  start();
  for (const auto& [arguments, found, total] :
       std::vector<std::tuple<std::string, std::vector<int>, int>>{
           {R"({"query":" "})", {1, 6, 2}, 3},
           {R"({"query":"","limit":2})", {1, 6}, 3},
           {R"({"query":"tab","since":")" + formatISO8601(ago(500)) + "\"}", {1, 6}, 2}}) {
    std::vector<std::string> expected;
    for (int n : found) expected.push_back(tabID(n));
    const json response = call("search_closed_tabs", arguments);
    EXPECT_EQ(ids(response), expected) << arguments;
    EXPECT_EQ(response["result"]["structuredContent"]["total"], total) << arguments;
  }
}

TEST_F(MCPServiceTest, ReopenOpensOnlyAvailableTabsAndReportsTheBrowser) {
  start();
  for (const auto& [n, expected] : {std::pair{4, "Tab not found or excluded."},
                                    {5, "Tab not found or excluded."},
                                    {7, "Tab not found or excluded."},
                                    {3, "ok"}}) {
    EXPECT_EQ(outcome(call("reopen_tab", R"({"id":")" + tabID(n) + "\"}")), expected) << n;
  }
  EXPECT_EQ(opened_, (std::vector<std::string>{"https://saved.example/"}));
  openerResult_ = VeltoError::notInstalled(Browser::chrome);
  EXPECT_EQ(outcome(call("reopen_tab", R"({"id":")" + tabID(1) + "\"}")),
            openerResult_.error().message);
  EXPECT_EQ(LibraryStore(directory_).load().value(), library_);  // nothing written
}

TEST_F(MCPServiceTest, IdsComeBackAsSentAndDeepNestingIsRefused) {
  start(kOpener, false);
  const auto ping = [&](const std::string& fields) {
    return service_->respond(R"({"jsonrpc":"2.0","method":"ping",)" + fields + "}")
        .value_or("none");
  };
  // The last of two "id" members counts, however its key is written.
  EXPECT_EQ(ping(R"("\u0069d" : 1.50, "id" : 2.0 )"), R"({"id":2.0,"jsonrpc":"2.0","result":{}})");
  EXPECT_EQ(ping(R"("id":1,"x":)" + std::string(500, '[') + std::string(500, ']')),
            R"({"id":1,"jsonrpc":"2.0","result":{}})");
  EXPECT_EQ(ping(R"("id":1,"x":)" + std::string(600, '[') + std::string(600, ']')),
            R"({"error":{"code":-32700,"message":"Parse error"},"id":null,"jsonrpc":"2.0"})");
}

}  // namespace
}  // namespace velto
