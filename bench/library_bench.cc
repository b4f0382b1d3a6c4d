// What loading the library costs the server on every request, for libraries of 1,000,
// 10,000 and 100,000 saved tabs (200 open tabs each). The yardstick, measured in the same
// run, is a bare simdjson DOM parse of the same bytes with a reused parser: each benchmark
// reports `ratio_to_parse`, its CPU time per iteration over the best of five such parses.
// Next to the decoder: reading the file into a kept buffer, indexing it (simdjson
// On-Demand's first pass, which the decoder starts with), copying the decoded records
// (the allocations any decoder into new records pays), and encoding.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <simdjson.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "bench/library_generator.h"
#include "core/model/library_codec.h"

namespace velto {
namespace {

struct Library {
  std::filesystem::path file;
  std::string json;
  LibraryState state;
  double bestParseSeconds = 0;
};

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double bestParseSeconds(const std::string& json) {
  const simdjson::padded_string bytes(json);
  simdjson::dom::parser parser;
  double best = 1e9;
  for (int i = 0; i < 6; ++i) {  // the first run only sizes the parser
    const double start = cpuSeconds();
    auto root = parser.parse(bytes);
    benchmark::DoNotOptimize(root);
    if (i > 0) best = std::min(best, cpuSeconds() - start);
  }
  return best;
}

const std::filesystem::path& temporaryFolder() {
  // Never destroyed, so the exit handler that removes the folder can still name it.
  static const auto* folder = [] {
    char name[] = "/tmp/velto-bench-XXXXXX";
    if (!::mkdtemp(name)) std::abort();
    auto* path = new std::filesystem::path(name);
    std::atexit([] { std::filesystem::remove_all(temporaryFolder()); });
    return path;
  }();
  return *folder;
}

// One generated library per size, written once to a temporary folder.
const Library& library(size_t tabs) {
  static std::map<size_t, Library> libraries;
  auto [it, inserted] = libraries.try_emplace(tabs);
  if (inserted) {
    Library& lib = it->second;
    lib.state = bench::generateLibrary(tabs, 200, 42, dateFromUTC(2026, 1, 31, 8, 15, 0));
    lib.json = encodeLibrary(lib.state);
    lib.file = temporaryFolder() / ("library-" + std::to_string(tabs) + ".json");
    std::ofstream(lib.file, std::ios::binary) << lib.json;
    // The generator promises whole-second dates, so the file decodes to the very same state.
    if (*decodeLibrary(lib.json) != lib.state) std::abort();
    lib.bestParseSeconds = bestParseSeconds(lib.json);
  }
  return it->second;
}

// Runs `step` in the benchmark loop and reports its ratio to the bare parse.
template <class Step>
void measure(benchmark::State& state, Step step) {
  const Library& lib = library(static_cast<size_t>(state.range(0)));
  const double start = cpuSeconds();
  for (auto _ : state) step(lib);
  const double perIteration = (cpuSeconds() - start) / static_cast<double>(state.iterations());
  state.counters["ratio_to_parse"] = perIteration / lib.bestParseSeconds;
  state.counters["MB"] = static_cast<double>(lib.json.size()) / 1e6;
}

void BM_ReadIntoKeptBuffer(benchmark::State& state) {
  std::unique_ptr<char[]> buffer;
  size_t capacity = 0;
  measure(state, [&](const Library& lib) {
    if (capacity <= lib.json.size()) {
      capacity = lib.json.size() + 1;
      buffer.reset(new char[capacity + simdjson::SIMDJSON_PADDING]);
    }
    const int fd = ::open(lib.file.c_str(), O_RDONLY | O_CLOEXEC);
    size_t size = 0;
    for (ssize_t n; (n = ::read(fd, buffer.get() + size, capacity - size)) > 0;) {
      size += static_cast<size_t>(n);
    }
    ::close(fd);
    benchmark::DoNotOptimize(size);
  });
}

void BM_BareDomParse(benchmark::State& state) {
  simdjson::dom::parser parser;
  std::unique_ptr<simdjson::padded_string> bytes;
  measure(state, [&](const Library& lib) {
    if (!bytes) bytes = std::make_unique<simdjson::padded_string>(lib.json);
    auto root = parser.parse(*bytes);
    if (root.error()) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(root);
  });
}

void BM_OnDemandIndex(benchmark::State& state) {
  simdjson::ondemand::parser parser;
  std::unique_ptr<simdjson::padded_string> bytes;
  measure(state, [&](const Library& lib) {
    if (!bytes) bytes = std::make_unique<simdjson::padded_string>(lib.json);
    auto document = parser.iterate(*bytes);
    if (document.error()) state.SkipWithError("indexing failed");
    benchmark::DoNotOptimize(document);
  });
}

void BM_DecodeFileReusedDecoder(benchmark::State& state) {
  LibraryDecoder decoder;
  measure(state, [&](const Library& lib) {
    Result<LibraryState> decoded = decoder.decodeFile(lib.file);
    if (!decoded.ok()) state.SkipWithError(decoded.error().message.c_str());
    benchmark::DoNotOptimize(decoded);
  });
}

// What the server does on every request: the records of the previous request are read
// over, so their strings and lists keep their storage.
void BM_DecodeFileIntoKeptRecords(benchmark::State& state) {
  LibraryDecoder decoder;
  LibraryState records;
  measure(state, [&](const Library& lib) {
    Result<void> decoded = decoder.decodeFileInto(lib.file, records);
    if (!decoded.ok()) state.SkipWithError(decoded.error().message.c_str());
    benchmark::DoNotOptimize(records);
  });
}

void BM_CopyRecords(benchmark::State& state) {
  measure(state, [&](const Library& lib) {
    LibraryState copy = lib.state;
    benchmark::DoNotOptimize(copy);
  });
}

void BM_EncodeLibrary(benchmark::State& state) {
  measure(state, [&](const Library& lib) {
    std::string bytes = encodeLibrary(lib.state);
    benchmark::DoNotOptimize(bytes);
  });
}

#define LIBRARY_SIZES Arg(1'000)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond)
BENCHMARK(BM_ReadIntoKeptBuffer)->LIBRARY_SIZES;
BENCHMARK(BM_BareDomParse)->LIBRARY_SIZES;
BENCHMARK(BM_OnDemandIndex)->LIBRARY_SIZES;
BENCHMARK(BM_DecodeFileReusedDecoder)->LIBRARY_SIZES;
BENCHMARK(BM_DecodeFileIntoKeptRecords)->LIBRARY_SIZES;
BENCHMARK(BM_CopyRecords)->LIBRARY_SIZES;
BENCHMARK(BM_EncodeLibrary)->LIBRARY_SIZES;

}  // namespace
}  // namespace velto
