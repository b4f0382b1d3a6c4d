// VeltoMCP as a client sees it: the real binary spoken to over stdin/stdout, on a seeded
// library of 100,000 saved tabs and 200 open tabs (about 37 MB). Every figure is reported
// as a ratio to a yardstick measured in the same run:
//   search and list requests, the first request after the library changed, and spawn to
//   the answer of the first tool call   / a bare simdjson DOM parse of the same file
//                                         (reused parser)
//   spawn to the answer of a ping       / spawning /bin/true and reaping it
//   the server's peak memory            / (2.5 x the file's size + 16 MB)

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <simdjson.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench/library_generator.h"

namespace velto {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr size_t kSavedTabs = 100'000;
constexpr size_t kLiveTabs = 200;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0 : values[values.size() / 2];
}

// The server under test: the one built beside this benchmark, or another build named by
// VELTO_MCP_BINARY (to compare two builds on the same machine).
const char* binary() {
  const char* other = std::getenv("VELTO_MCP_BINARY");
  return other && *other ? other : VELTO_MCP_BINARY;
}

// One VeltoMCP process with pipes to its stdin and stdout.
class Server {
 public:
  explicit Server(const std::vector<std::string>& environment, const char* path = binary()) {
    int in[2], out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) std::abort();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    std::vector<char*> envp;
    for (const std::string& variable : environment)
      envp.push_back(const_cast<char*>(variable.c_str()));
    envp.push_back(nullptr);
    char* argv[] = {const_cast<char*>(path), nullptr};
    if (::posix_spawn(&pid_, path, &actions, nullptr, argv, envp.data()) != 0) std::abort();
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    in_ = in[1];
    out_ = out[0];
  }
  ~Server() {
    ::close(in_);  // end of input: the server exits
    ::close(out_);
    ::waitpid(pid_, nullptr, 0);
  }

  // Sends one line (a notification: nothing comes back).
  void send(const std::string& line) {
    const std::string framed = line + "\n";
    if (::write(in_, framed.data(), framed.size()) != static_cast<ssize_t>(framed.size()))
      std::abort();
  }

  // Sends one line and returns the one line that answers it.
  std::string ask(const std::string& line) {
    send(line);
    while (true) {
      const size_t end = pending_.find('\n');
      if (end != std::string::npos) {
        std::string answer = pending_.substr(0, end);
        pending_.erase(0, end + 1);
        return answer;
      }
      char buffer[65536];
      const ssize_t n = ::read(out_, buffer, sizeof buffer);
      if (n <= 0) std::abort();
      pending_.append(buffer, static_cast<size_t>(n));
    }
  }

  // The most memory the process has held (VmHWM), in bytes.
  double peakBytes() const {
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with("VmHWM:")) return std::stod(line.substr(6)) * 1024;
    }
    return 0;
  }

 private:
  pid_t pid_ = 0;
  int in_ = -1;
  int out_ = -1;
  std::string pending_;
};

const std::string kPing = R"({"jsonrpc":"2.0","id":1,"method":"ping"})";

const std::string kInitialize =
    R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25","clientInfo":{"name":"bench"}}})";
const std::string kInitialized = R"({"jsonrpc":"2.0","method":"notifications/initialized"})";
const std::string kSearch =
    R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"search_closed_tabs","arguments":{"query":"github swift","limit":20}}})";

struct World {
  fs::path home;
  fs::path file;
  std::string json;
  std::vector<std::string> environment;
  // The yardstick's input and parser, kept so that each parse reuses warm memory.
  simdjson::padded_string bytes;
  simdjson::dom::parser parser;

  World() {
    char name[] = "/tmp/velto-mcp-bench-XXXXXX";
    if (!::mkdtemp(name)) std::abort();
    home = name;
    fs::create_directories(home / "data" / "Velto");
    json = bench::generateLibraryJSON(kSavedTabs, kLiveTabs, 42, now());
    file = home / "data" / "Velto" / "library.json";
    std::ofstream(file, std::ios::binary) << json;
    bytes = simdjson::padded_string(json);
    parseSeconds();  // sizes the parser
    environment = {"HOME=" + home.string(), "XDG_DATA_HOME=" + (home / "data").string(),
                   "PATH=/usr/bin:/bin", "VELTO_CLIENT_ID=" + std::string(bench::kBenchClientID),
                   "VELTO_CLIENT_TOKEN=" + std::string(bench::kBenchClientToken)};
  }
  ~World() { fs::remove_all(home); }

  double parseSeconds() {
    const auto start = Clock::now();
    auto root = parser.parse(bytes);
    if (root.error()) std::abort();
    benchmark::DoNotOptimize(root);
    return secondsSince(start);
  }

  // A server past the handshake, kept for the whole run like a client keeps it.
  Server& server() {
    static Server* server = [this] {
      auto* s = new Server(environment);
      s->ask(kInitialize);
      s->send(kInitialized);
      return s;
    }();
    return *server;
  }
};

World& world() {
  static World instance;  // its folder is removed at exit
  return instance;
}

// Alternates `run` and `yardstick` (each returns the seconds it measured) so that both
// see the same load, and reports the median of each and their ratio.
template <class Run, class Yardstick>
void compare(benchmark::State& state, Run run, Yardstick yardstick, const char* ratioName) {
  std::vector<double> runs, yardsticks;
  for (auto _ : state) {
    yardsticks.push_back(yardstick());
    runs.push_back(run());
    state.SetIterationTime(runs.back());
  }
  state.counters["median_ms"] = median(runs) * 1e3;
  state.counters["yardstick_ms"] = median(yardsticks) * 1e3;
  state.counters[ratioName] = median(runs) / median(yardsticks);
}

void request(benchmark::State& state, const std::string& line) {
  Server& server = world().server();
  if (server.ask(line).find("\"isError\":false") == std::string::npos) {
    state.SkipWithError("the request failed");
    return;
  }
  compare(
      state,
      [&] {
        const auto start = Clock::now();
        benchmark::DoNotOptimize(server.ask(line));
        return secondsSince(start);
      },
      [] { return world().parseSeconds(); }, "x_parse");
}

void BM_SearchClosedTabs(benchmark::State& state) { request(state, kSearch); }

void BM_SearchClosedTabsEmptyQuery(benchmark::State& state) {
  request(
      state,
      R"({"jsonrpc":"2.0","id":3,"method":"tools/call","params":{"name":"search_closed_tabs","arguments":{"query":""}}})");
}

void BM_ListTabs(benchmark::State& state) {
  request(
      state,
      R"({"jsonrpc":"2.0","id":4,"method":"tools/call","params":{"name":"list_tabs","arguments":{"limit":100}}})");
}

// The library rewritten before every request (untimed), alternating between two texts
// that differ in one letter of one URL, so that each request finds bytes it has not
// decoded yet; the original is back afterwards.
void BM_FirstRequestAfterChange(benchmark::State& state) {
  World& w = world();
  Server& server = w.server();
  std::string changed = w.json;
  const size_t host = changed.find("\"url\": \"https://") + 16;
  changed[host] = changed[host] == 'x' ? 'y' : 'x';
  bool flip = false;
  compare(
      state,
      [&] {
        std::ofstream(w.file, std::ios::binary | std::ios::trunc)
            << ((flip = !flip) ? changed : w.json);
        const auto start = Clock::now();
        const std::string answer = server.ask(kSearch);
        const double seconds = secondsSince(start);
        if (answer.find("\"isError\":false") == std::string::npos) std::abort();
        return seconds;
      },
      [&] { return w.parseSeconds(); }, "x_parse");
  std::ofstream(w.file, std::ios::binary | std::ios::trunc) << w.json;
}

void BM_PeakMemory(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(world().server().ask(kPing));
  const double limit = 2.5 * static_cast<double>(world().json.size()) + 16e6;
  state.counters["MB"] = static_cast<double>(world().json.size()) / 1e6;
  state.counters["peak_MB"] = world().server().peakBytes() / 1e6;
  state.counters["x_limit"] = world().server().peakBytes() / limit;
}

double spawnTrueSeconds() {
  const auto start = Clock::now();
  pid_t pid = 0;
  char* argv[] = {const_cast<char*>("/bin/true"), nullptr};
  char* envp[] = {nullptr};
  if (::posix_spawn(&pid, "/bin/true", nullptr, nullptr, argv, envp) != 0) std::abort();
  ::waitpid(pid, nullptr, 0);
  return secondsSince(start);
}

void BM_SpawnToFirstAnswer(benchmark::State& state) {
  compare(
      state,
      [] {
        const auto start = Clock::now();
        Server server(world().environment);
        benchmark::DoNotOptimize(server.ask(kPing));
        return secondsSince(start);  // before the server is told to exit
      },
      spawnTrueSeconds, "x_true");
}

// A client's first tool call: spawn, handshake and one search, all on a library the new
// process has never read.
void BM_SpawnToFirstToolCall(benchmark::State& state) {
  compare(
      state,
      [] {
        const auto start = Clock::now();
        Server server(world().environment);
        server.ask(kInitialize);
        server.send(kInitialized);
        benchmark::DoNotOptimize(server.ask(kSearch));
        return secondsSince(start);
      },
      [] { return world().parseSeconds(); }, "x_parse");
}

// The seeded library and three changed versions of it: a title changed, a tab removed,
// a tab inserted (a copy of the one after it).
std::vector<std::string> libraryVersions(const std::string& json) {
  std::vector<std::string> versions = {json};
  // A title that starts with an ASCII letter, so that changing one byte keeps it UTF-8.
  size_t title = json.find("\"title\": \"", json.size() / 3);
  while (!std::isalpha(static_cast<unsigned char>(json[title + 10]))) {
    title = json.find("\"title\": \"", title + 1);
  }
  versions.push_back(json);
  versions.back()[title + 10] = json[title + 10] == 'Q' ? 'R' : 'Q';
  const std::string tabStart = "\n    {\n";
  const size_t tab = json.find(tabStart, json.size() / 2);
  const size_t next = json.find(tabStart, tab + 1);
  versions.push_back(json.substr(0, tab) + json.substr(next));
  versions.push_back(json.substr(0, next) + json.substr(tab, next - tab) + json.substr(next));
  return versions;
}

// Not a timing, run when VELTO_MCP_REFERENCE names another build of the server: the answers
// of the server under test, kept running while the library changes under it, against
// those of the reference started afresh for each version, to 45 searches and listings.
// `differing` must be 0.
void BM_SameAnswersAsReference(benchmark::State& state) {
  const char* reference = std::getenv("VELTO_MCP_REFERENCE");
  World& w = world();
  std::vector<std::string> lines;
  const auto call = [&](const std::string& name, const std::string& arguments) {
    lines.push_back(R"({"jsonrpc":"2.0","id":)" + std::to_string(lines.size() + 10) +
                    R"(,"method":"tools/call","params":{"name":")" + name + R"(","arguments":)" +
                    arguments + "}}");
  };
  for (const char* query : {"github swift", "", "swift", "GitHub", "東京", "café", "news",
                            "docs python", "x", "zz-no-match"}) {
    for (int limit : {1, 20, 50}) {
      call("search_closed_tabs",
           R"({"query":")" + std::string(query) + R"(","limit":)" + std::to_string(limit) + "}");
    }
    call("search_closed_tabs",
         R"({"query":")" + std::string(query) + R"(","since":"2026-01-01T00:00:00Z"})");
  }
  for (const char* limit : {"1", "50", "100", "500"})
    call("list_tabs", R"({"limit":)" + std::string(limit) + "}");
  call("list_tabs", "{}");
  double answers = 0, differing = 0;
  for (auto _ : state) {
    for (const std::string& version : libraryVersions(w.json)) {
      std::ofstream(w.file, std::ios::binary | std::ios::trunc) << version;
      Server fresh(w.environment, reference);
      fresh.ask(kInitialize);
      fresh.send(kInitialized);
      for (const std::string& line : lines) {
        ++answers;
        differing += w.server().ask(line) != fresh.ask(line);
      }
    }
  }
  std::ofstream(w.file, std::ios::binary | std::ios::trunc) << w.json;
  state.counters["answers"] = answers;
  state.counters["differing"] = differing;
}

// Few iterations, each timed by hand: a request costs tens of milliseconds.
BENCHMARK(BM_SearchClosedTabs)->UseManualTime()->Iterations(30)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SearchClosedTabsEmptyQuery)
    ->UseManualTime()
    ->Iterations(30)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ListTabs)->UseManualTime()->Iterations(30)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FirstRequestAfterChange)
    ->UseManualTime()
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PeakMemory)->Iterations(1);
BENCHMARK(BM_SpawnToFirstAnswer)->UseManualTime()->Iterations(50)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SpawnToFirstToolCall)->UseManualTime()->Iterations(20)->Unit(benchmark::kMillisecond);
// Only when there is a reference to compare with.
[[maybe_unused]] const bool kComparesAnswers = [] {
  const char* reference = std::getenv("VELTO_MCP_REFERENCE");
  if (reference && *reference) {
    benchmark::RegisterBenchmark("BM_SameAnswersAsReference", BM_SameAnswersAsReference)
        ->Iterations(1);
  }
  return true;
}();

}  // namespace
}  // namespace velto
