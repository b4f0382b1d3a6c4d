// Drives MCPService with arbitrary lines from each session state and checks what must
// always hold: one well-formed response line per request, none for a notification, and
// session moves only along the handshake.

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "core/mcp/client_authorization.h"
#include "core/mcp/json_message.h"
#include "core/mcp/mcp_service.h"

namespace {

using namespace velto;
using nlohmann::json;

constexpr const char* kClientID = "C0FFEE00-0000-4000-8000-000000000001";
const std::string kToken(64, '1');
const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);

// Holds the library for the whole run and removes it at exit.
struct LibraryFolder {
  std::filesystem::path path;
  ~LibraryFolder() { std::filesystem::remove_all(path); }
};

const std::filesystem::path& libraryFolder() {
  static const LibraryFolder folder = [] {
    const auto path =
        std::filesystem::temp_directory_path() / ("velto-mcp-fuzz." + std::to_string(::getpid()));
    LibraryState library;
    library.clients.push_back(
        {*Uuid::parse(kClientID), "fuzz", ClientAuthorization::hash(kToken), true, kNow});
    library.preferences.connectedBrowsers = {Browser::chrome, Browser::safari};
    library.liveUpdatedAt = addingSeconds(kNow, -10);
    for (int i = 0; i < 4; ++i) {
      LiveTab live;
      live.id = "chrome:1:" + std::to_string(i);
      live.browser = i % 2 ? Browser::chrome : Browser::safari;
      live.title = "Live \xC3\xA9 " + std::to_string(i);
      live.url = "https://example.org/live/" + std::to_string(i);
      library.liveTabs.push_back(live);
      SavedTab saved;
      saved.id = *Uuid::parse("5A7ED000-0000-4000-8000-00000000000" + std::to_string(i));
      saved.title = "Saved " + std::to_string(i);
      saved.url = i == 3 ? "ftp://example.org/" : "https://example.org/saved/" + std::to_string(i);
      saved.browser = Browser::chrome;
      saved.savedAt = addingSeconds(kNow, -1000.0 * i);
      saved.state = static_cast<ArchiveState>(i % 3);
      library.tabs.push_back(saved);
    }
    if (!LibraryStore(path).save(library).ok()) std::abort();
    return LibraryFolder{path};
  }();
  return folder.path;
}

// Whether `line` must be answered, decided from the envelope alone.
bool expectsResponse(std::string_view line) {
  const std::optional<JSONMessage> message = parseJSONMessage(line);
  if (!message) return true;
  const json& object = message->object;
  const bool validEnvelope = object.contains("jsonrpc") && object["jsonrpc"] == "2.0" &&
                             object.contains("method") && object["method"].is_string();
  return !validEnvelope || object.contains("id");
}

void checkResponse(const std::string& response) {
  if (response.find('\n') != std::string::npos) std::abort();
  const json parsed = json::parse(response, nullptr, false);
  if (parsed.is_discarded() || !parsed.is_object() || parsed.size() != 3 ||
      parsed.value("jsonrpc", "") != "2.0" || !parsed.contains("id") ||
      parsed.contains("result") == parsed.contains("error")) {
    std::abort();
  }
}

bool allowedMove(MCPService::Session from, MCPService::Session to, bool answered) {
  using Session = MCPService::Session;
  if (from == to) return true;
  if (from == Session::fresh && to == Session::initialized) return answered;
  if (from == Session::initialized && to == Session::ready) return !answered;
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  std::vector<std::string_view> lines;
  for (size_t start = 0; start <= input.size() && lines.size() < 16;) {
    const size_t end = std::min(input.find('\n', start), input.size());
    lines.push_back(input.substr(start, end - start));
    start = end + 1;
  }

  const std::string handshake[] = {
      R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25","clientInfo":{}}})",
      R"({"jsonrpc":"2.0","method":"notifications/initialized"})"};
  for (int steps = 0; steps <= 2; ++steps) {
    MCPService service(
        LibraryStore(libraryFolder()), kClientID, kToken,
        [](const SavedTab&) -> Result<void> { return {}; }, [] { return kNow; });
    for (int i = 0; i < steps; ++i) (void)service.respond(handshake[i]);
    if (static_cast<int>(service.session()) != steps) std::abort();

    for (std::string_view line : lines) {
      const MCPService::Session before = service.session();
      const std::optional<std::string> response = service.respond(line);
      if (response.has_value() != expectsResponse(line)) std::abort();
      if (response) checkResponse(*response);
      if (!allowedMove(before, service.session(), response.has_value())) std::abort();
    }
  }
  return 0;
}
