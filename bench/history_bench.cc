// lastVisits for 1,000 URLs against one Chromium history database of 100,000 URLs, next
// to a full scan of the same table, which is what every lookup would cost if the URL index
// were not used.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "core/browser/browser_history.h"

namespace {

namespace fs = std::filesystem;
using namespace velto;

constexpr int kRows = 100'000;

std::string urlNumber(int i) {
  return "https://site" + std::to_string(i % 997) + ".example/page/" + std::to_string(i);
}

// A fake home whose Chrome Default profile holds a 100,000-row History, made once.
struct Fixture {
  fs::path root;
  EnvironmentLookup env;
  fs::path database;

  Fixture() {
    char pattern[] = "/tmp/velto-history-bench-XXXXXX";
    root = mkdtemp(pattern);
    env = [home = (root / "home").string()](std::string_view name) -> std::optional<std::string> {
      if (name == "HOME") return home;
      return std::nullopt;
    };
    database = BrowserHistory::location(Browser::chrome, env)->path / "Default" / "History";
    fs::create_directories(database.parent_path());
    sqlite3* db = nullptr;
    sqlite3_open(database.c_str(), &db);
    sqlite3_exec(db,
                 "CREATE TABLE urls(id INTEGER PRIMARY KEY AUTOINCREMENT, url LONGVARCHAR,"
                 " title LONGVARCHAR, visit_count INTEGER DEFAULT 0 NOT NULL, typed_count INTEGER"
                 " DEFAULT 0 NOT NULL, last_visit_time INTEGER NOT NULL, hidden INTEGER DEFAULT 0"
                 " NOT NULL); CREATE INDEX urls_url_index ON urls (url); BEGIN;",
                 nullptr, nullptr, nullptr);
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO urls(url, title, last_visit_time) VALUES(?, 'Title', ?)",
                       -1, &insert, nullptr);
    for (int i = 0; i < kRows; ++i) {
      const std::string url = urlNumber(i);
      sqlite3_bind_text(insert, 1, url.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_int64(insert, 2, 13300000000000000 + int64_t{i} * 1'000'000);
      sqlite3_step(insert);
      sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    sqlite3_exec(db, "COMMIT;", nullptr, nullptr, nullptr);
    sqlite3_close(db);
  }
  ~Fixture() { fs::remove_all(root); }
};

Fixture& fixture() {
  static Fixture instance;
  return instance;
}

// `count` URLs spread over the table, every other one never visited.
std::vector<std::string> urls(int count) {
  std::vector<std::string> list;
  for (int i = 0; i < count; ++i) {
    list.push_back(i % 2 ? "https://never.example/" + std::to_string(i)
                         : urlNumber(i * (kRows / count)));
  }
  return list;
}

// What one read of every row of the table costs: open the database the same way, scan
// urls once.
void fullScan() {
  sqlite3* db = nullptr;
  sqlite3_open_v2(BrowserHistory::immutableURI(fixture().database).c_str(), &db,
                  SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
  sqlite3_stmt* scan = nullptr;
  sqlite3_prepare_v2(db, "SELECT url, last_visit_time FROM urls", -1, &scan, nullptr);
  while (sqlite3_step(scan) == SQLITE_ROW) benchmark::DoNotOptimize(sqlite3_column_text(scan, 0));
  sqlite3_finalize(scan);
  sqlite3_close(db);
}

double threadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Reports, besides the time, the ratio of one call's CPU time to the best of a few full
// scans measured in the same run: the figure the target is stated in.
void BM_LastVisits(benchmark::State& state) {
  const auto list = urls(static_cast<int>(state.range(0)));
  size_t found = 0;
  const double start = threadSeconds();
  for (auto _ : state) {
    found = BrowserHistory::lastVisits(list, {Browser::chrome}, fixture().env).size();
    benchmark::DoNotOptimize(found);
  }
  const double perCall = (threadSeconds() - start) / static_cast<double>(state.iterations());
  double bestScan = 1e9;
  for (int i = 0; i < 5; ++i) {
    const double scanStart = threadSeconds();
    fullScan();
    bestScan = std::min(bestScan, threadSeconds() - scanStart);
  }
  state.counters["found"] = static_cast<double>(found);
  state.counters["ratio_to_full_scan"] = perCall / bestScan;
}
BENCHMARK(BM_LastVisits)->Arg(1)->Arg(1000)->Unit(benchmark::kMillisecond);

void BM_FullScan(benchmark::State& state) {
  for (auto _ : state) fullScan();
}
BENCHMARK(BM_FullScan)->Unit(benchmark::kMillisecond);

}  // namespace
