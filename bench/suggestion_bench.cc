// Cleanup and tab-budget suggestions over realistic snapshots: several browsers and
// windows, a tenth of the tabs repeating another tab's URL, pinned and unknown pin
// states, some tabs on excluded hosts. The yardstick, measured in the same run, is copying
// the snapshot once: every answer that returns most tabs by value approaches it, so each
// builder reports `ratio_to_copy`, its CPU time per build over the best of five copies.

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <random>

#include "core/policy/cleanup_suggestion.h"
#include "core/policy/tab_budget_suggestion.h"

namespace velto {
namespace {

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);

std::vector<LiveTab> snapshot(int count) {
  std::mt19937 random(20260301);
  const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  const char* hosts[] = {"news.example.com",   "docs.example.org", "www.video.example.net",
                         "shop.example.co.uk", "mail.google.com",  "wiki.example.org",
                         "secure.chase.com",   "forum.example.io"};
  std::vector<LiveTab> tabs;
  tabs.reserve(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    LiveTab t;
    t.browser = kAllBrowsers[static_cast<size_t>(below(4))];
    t.windowID = 1000 + below(12);
    t.index = 1 + below(60);
    t.id = std::string(rawValue(t.browser)) + ":" + std::to_string(t.windowID) + ":" +
           std::to_string(i);
    t.title = "Article number " + std::to_string(below(count)) + " about something";
    if (i > 0 && below(10) == 0) {
      t.url = tabs[static_cast<size_t>(below(i))].url;  // a duplicate of an earlier tab
    } else {
      t.url = "https://" + std::string(hosts[below(8)]) + "/articles/" + std::to_string(i) +
              "?ref=home";
    }
    t.isActive = below(20) == 0;
    const int pin = below(10);
    t.pinState = pin == 0 ? PinState::pinned : pin < 5 ? PinState::unknown : PinState::unpinned;
    t.lastActiveAt = addingSeconds(kNow, -below(14 * 24 * 3600));
    t.observedAt = addingSeconds(kNow, -5);
    if (below(3) == 0) t.neverSelectedSince = addingSeconds(kNow, -below(48 * 3600));
    if (below(2) == 0) t.lastVisitAt = addingSeconds(kNow, -below(20 * 24 * 3600));
    tabs.push_back(std::move(t));
  }
  return tabs;
}

Preferences preferences() {
  Preferences p;
  p.connectedBrowsers = {Browser::safari, Browser::chrome, Browser::brave};
  p.tabLimit = 40;
  return p;
}

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double bestCopySeconds(const std::vector<LiveTab>& tabs) {
  double best = 1e9;
  for (int i = 0; i < 5; ++i) {
    const double start = cpuSeconds();
    std::vector<LiveTab> copy(tabs);
    benchmark::DoNotOptimize(copy);
    best = std::min(best, cpuSeconds() - start);
  }
  return best;
}

// Runs `build` in the benchmark loop and reports its ratio to copying `tabs`.
template <class Build>
void measure(benchmark::State& state, const std::vector<LiveTab>& tabs, Build build) {
  const double start = cpuSeconds();
  for (auto _ : state) {
    auto suggestion = build();
    benchmark::DoNotOptimize(suggestion);
  }
  const double perBuild = (cpuSeconds() - start) / static_cast<double>(state.iterations());
  state.counters["ratio_to_copy"] = perBuild / bestCopySeconds(tabs);
}

void BM_CleanupSuggestion(benchmark::State& state) {
  const auto tabs = snapshot(static_cast<int>(state.range(0)));
  const Preferences p = preferences();
  measure(state, tabs, [&] { return CleanupSuggestion(tabs, p, kNow); });
  const CleanupSuggestion sample(tabs, p, kNow);
  state.counters["idle"] = static_cast<double>(sample.tabs.size());
  state.counters["duplicates"] = static_cast<double>(sample.duplicates.size());
}
BENCHMARK(BM_CleanupSuggestion)->Arg(1000)->Arg(4000)->Arg(10000)->Unit(benchmark::kMicrosecond);

void BM_TabBudgetSuggestion(benchmark::State& state) {
  const auto tabs = snapshot(static_cast<int>(state.range(0)));
  const Preferences p = preferences();
  measure(state, tabs, [&] { return TabBudgetSuggestion(tabs, std::nullopt, p, kNow); });
  state.counters["proposed"] =
      static_cast<double>(TabBudgetSuggestion(tabs, std::nullopt, p, kNow).tabs.size());
}
BENCHMARK(BM_TabBudgetSuggestion)->Arg(1000)->Arg(4000)->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace velto
