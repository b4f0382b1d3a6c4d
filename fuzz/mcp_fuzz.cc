// Drives MCPService with arbitrary lines from each session state and checks what must
// always hold: one well-formed response line per request carrying its id, none for a
// notification, and session moves only along the handshake.

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/mcp/client_authorization.h"
#include "core/mcp/json_message.h"
#include "core/mcp/mcp_service.h"
#include "fuzz/json_lines_mutation.h"

namespace {

using namespace velto;
using nlohmann::json;
using Session = MCPService::Session;

constexpr const char* kClientID = "C0FFEE00-0000-4000-8000-000000000001";
const std::string kToken(64, '1');
const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);

// A library of open and saved tabs in every state, removed at exit.
struct LibraryFolder {
  std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("velto-mcp-fuzz." + std::to_string(::getpid()));

  LibraryFolder() {
    LibraryState library;
    library.clients.push_back(
        {*Uuid::parse(kClientID), "fuzz", ClientAuthorization::hash(kToken), true, kNow});
    library.preferences.connectedBrowsers = {Browser::chrome, Browser::safari};
    library.liveUpdatedAt = addingSeconds(kNow, -10);
    for (int i = 0; i < 4; ++i) {
      const std::string n = std::to_string(i);
      LiveTab& live = library.liveTabs.emplace_back();
      live.id = "chrome:1:" + n;
      live.browser = i % 2 ? Browser::chrome : Browser::safari;
      live.title = "Live \xC3\xA9 " + n;
      live.url = "https://example.org/live/" + n;
      SavedTab& saved = library.tabs.emplace_back();
      saved.id = *Uuid::parse("5A7ED000-0000-4000-8000-00000000000" + n);
      saved.title = "Saved " + n;
      saved.url = i == 3 ? "ftp://example.org/" : "https://example.org/saved/" + n;
      saved.savedAt = addingSeconds(kNow, -1000.0 * i);
      saved.state = static_cast<ArchiveState>(i % 3);
    }
    if (!LibraryStore(path).save(library).ok()) std::abort();
  }
  ~LibraryFolder() { std::filesystem::remove_all(path); }
};

// The id that the answer to `line` must carry, decided from the envelope alone; absent
// when `line` must not be answered.
std::optional<json> expectedId(std::string_view line) {
  const std::optional<JSONMessage> message = parseJSONMessage(line);
  if (!message) return json();
  const json& object = message->object;
  const bool valid =
      object.value("jsonrpc", json()) == "2.0" && object.value("method", json()).is_string();
  if (valid && !message->idJSON) return std::nullopt;
  return object.value("id", json());
}

// One line, one envelope, and the id of the request as the same JSON value.
bool answers(const std::string& response, const json& id) {
  const json parsed = json::parse(response, nullptr, false);
  return response.find('\n') == std::string::npos && parsed.is_object() && parsed.size() == 3 &&
         parsed.value("jsonrpc", "") == "2.0" && parsed.contains("id") && parsed["id"] == id &&
         parsed.contains("result") != parsed.contains("error");
}

bool allowedMove(Session from, Session to, bool answered) {
  if (from == to) return true;
  if (from == Session::fresh && to == Session::initialized) return answered;
  return from == Session::initialized && to == Session::ready && !answered;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const LibraryFolder folder;
  // One decoding of the unchanged library for all sessions: each request still reads it.
  static const auto reader = std::make_shared<LibraryReader>();
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  std::vector<std::string_view> lines;
  for (size_t start = 0; start <= input.size() && lines.size() < 16;) {
    const size_t end = std::min(input.find('\n', start), input.size());
    lines.push_back(input.substr(start, end - start));
    start = end + 1;
  }

  // What each line must be answered with depends on the line alone, not on the session.
  std::vector<std::optional<json>> ids;
  ids.reserve(lines.size());
  for (std::string_view line : lines) ids.push_back(expectedId(line));

  const std::string handshake[] = {
      R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25","clientInfo":{}}})",
      R"({"jsonrpc":"2.0","method":"notifications/initialized"})"};
  for (int steps = 0; steps <= 2; ++steps) {
    MCPService service(
        LibraryStore(folder.path), kClientID, kToken,
        [](const SavedTab&) { return Result<void>(); }, [] { return kNow; }, {}, reader);
    for (int i = 0; i < steps; ++i) (void)service.respond(handshake[i]);
    if (static_cast<int>(service.session()) != steps) std::abort();

    for (size_t i = 0; i < lines.size(); ++i) {
      const Session before = service.session();
      const std::optional<json>& id = ids[i];
      const std::optional<std::string> response = service.respond(lines[i]);
      if (response.has_value() != id.has_value()) std::abort();
      if (response && !answers(*response, *id)) std::abort();
      if (!allowedMove(before, service.session(), response.has_value())) std::abort();
    }
  }
  return 0;
}

// Defaults of this target, placed before the command line's flags so that those win.
// Value profiling keeps inputs that bring an argument closer to a value the code
// compares it with (a limit, a year, an id's digit), which is how this target reaches
// one particular value in a tool. Length control, which libFuzzer turns off for a custom
// mutator, keeps inputs near the seeds' size for longer: every line more is a request
// more in each of the three sessions of every run.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  static char valueProfile[] = "-use_value_profile=1";
  static char lengthControl[] = "-len_control=100";
  static std::vector<char*> arguments(*argv, *argv + *argc);
  arguments.insert(arguments.begin() + 1, {valueProfile, lengthControl});
  arguments.push_back(nullptr);
  *argc = static_cast<int>(arguments.size()) - 1;
  *argv = arguments.data();
  return 0;
}

// Most of a run is allocation, and AddressSanitizer records where each block was
// allocated and freed: two frames instead of thirty make this target about a fifth
// faster. To see whole stacks for a crash, run it again with
// ASAN_OPTIONS=malloc_context_size=30.
extern "C" const char* __asan_default_options() { return "malloc_context_size=2"; }

// Requests are mutated as JSON, so that one argument value changes at a time.
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize,
                                          unsigned seed) {
  return JSONLinesMutation::mutate(data, size, maxSize, seed);
}
