// What the transcripts (server/transcripts) cannot show: a damaged library, a stopped
// clock and hostile nesting. Protocol bytes, argument checks and the tools' results are
// pinned there.

#include "core/mcp/mcp_service.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "core/mcp/client_authorization.h"
#include "core/mcp/json_message.h"
#include "core/model/velto_error.h"

namespace velto {
namespace {

namespace fs = std::filesystem;

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);

TEST(MCPServiceTest, LibraryProblemsAreToolErrorsEvenForInitialize) {
  const fs::path directory = fs::temp_directory_path() / ("mcp_test." + std::to_string(::getpid()));
  const LibraryStore store(directory);
  const std::string client = "0A1B2C3D-0000-4000-8000-000000000001", token(64, 'a');
  LibraryState library;
  library.clients.push_back(
      {*Uuid::parse(client), "c", ClientAuthorization::hash(token), false, kNow});
  MCPService service(store, client, token, {});
  const auto initialize = [&] {
    const nlohmann::json result = nlohmann::json::parse(*service.respond(
        R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2025-11-25","clientInfo":{}}})"))
        ["result"];
    return result.value("isError", false) ? result["content"][0].value("text", "") : "ok";
  };

  fs::create_directories(directory);
  std::ofstream(store.fileURL()) << R"({"version":1,"tabs":[)";
  const Result<LibraryState> damaged = store.load();
  ASSERT_FALSE(damaged.ok());
  EXPECT_EQ(initialize(), damaged.error().message);
  library.version = 2;
  ASSERT_TRUE(store.save(library).ok());
  EXPECT_EQ(initialize(), VeltoError::newerLibrary().message);
  EXPECT_EQ(service.session(), MCPService::Session::fresh);
  library.version = 1;  // repaired: the next request reads the file again
  ASSERT_TRUE(store.save(library).ok());
  EXPECT_EQ(initialize(), "ok");
  fs::remove_all(directory);
}

TEST(MCPServiceTest, ListsOpenTabsOnlyFromAFreshSnapshot) {
  const std::string stale = "The open-tab snapshot is stale. Open Velto and refresh your browsers.";
  PreparedLibrary library;
  for (const auto& [age, expected] : std::vector<std::pair<std::optional<double>, std::string>>{
           {0, "ok"}, {119, "ok"}, {120, stale}, {-1, stale}, {std::nullopt, stale}}) {
    library.state.liveUpdatedAt = age ? std::optional(addingSeconds(kNow, -*age)) : std::nullopt;
    library.prepare();
    const ToolCalls::ToolResult listed = ToolCalls::listTabs({}, library, kNow);
    EXPECT_EQ(listed.ok() ? "ok" : listed.error().message, expected) << age.value_or(-99);
  }
}

TEST(MCPServiceTest, DeepNestingIsRefusedWithoutExhaustingTheStack) {
  const auto nested = [](size_t depth) {
    return R"({"id":)" + std::string(depth, '[') + std::string(depth, ']') + "}";
  };
  EXPECT_TRUE(parseJSONMessage(nested(kMaxJSONDepth - 1)));
  EXPECT_FALSE(parseJSONMessage(nested(kMaxJSONDepth)));
  EXPECT_FALSE(parseJSONMessage(nested(100'000)));
}

}  // namespace
}  // namespace velto
