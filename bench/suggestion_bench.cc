// Cleanup and tab-budget suggestions over realistic snapshots: several browsers and
// windows, a tenth of the tabs repeating another tab's URL, pinned and unknown pin
// states, some tabs on excluded hosts. BM_CopySnapshot is the yardstick measured in the
// same run: copying the snapshot once is what any answer that returns tabs by value
// approaches, so each builder is judged as a multiple of it.

#include <benchmark/benchmark.h>

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

void BM_CopySnapshot(benchmark::State& state) {
  const auto tabs = snapshot(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::vector<LiveTab> copy(tabs);
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_CopySnapshot)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

void BM_CleanupSuggestion(benchmark::State& state) {
  const auto tabs = snapshot(static_cast<int>(state.range(0)));
  const Preferences p = preferences();
  for (auto _ : state) {
    CleanupSuggestion suggestion(tabs, p, kNow);
    benchmark::DoNotOptimize(suggestion);
  }
  const CleanupSuggestion sample(tabs, p, kNow);
  state.counters["idle"] = static_cast<double>(sample.tabs.size());
  state.counters["duplicates"] = static_cast<double>(sample.duplicates.size());
}
BENCHMARK(BM_CleanupSuggestion)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

void BM_TabBudgetSuggestion(benchmark::State& state) {
  const auto tabs = snapshot(static_cast<int>(state.range(0)));
  const Preferences p = preferences();
  for (auto _ : state) {
    TabBudgetSuggestion suggestion(tabs, std::nullopt, p, kNow);
    benchmark::DoNotOptimize(suggestion);
  }
  state.counters["proposed"] =
      static_cast<double>(TabBudgetSuggestion(tabs, std::nullopt, p, kNow).tabs.size());
}
BENCHMARK(BM_TabBudgetSuggestion)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace velto
