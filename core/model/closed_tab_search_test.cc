#include "core/model/closed_tab_search.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace velto {
namespace {

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);

// The search as stated, tab by tab: closed, not excluded, active at or after `since`,
// matching; newest first, equal dates in library order.
ClosedTabSearch::Page naiveSearch(const std::vector<SavedTab>& tabs,
                                  const std::vector<std::string>& exclusions,
                                  std::string_view query, std::optional<Date> since, size_t limit) {
  std::vector<const SavedTab*> kept;
  for (const SavedTab& tab : tabs) {
    if (tab.state == ArchiveState::closed && !ExclusionList(exclusions).excludes(tab.url) &&
        (!since || tab.activityDate() >= *since) && tab.matches(query)) {
      kept.push_back(&tab);
    }
  }
  std::stable_sort(kept.begin(), kept.end(), [](const SavedTab* a, const SavedTab* b) {
    return a->activityDate() > b->activityDate();
  });
  ClosedTabSearch::Page page;
  page.total = kept.size();
  page.tabs.assign(kept.begin(), kept.begin() + std::ptrdiff_t(std::min(limit, kept.size())));
  return page;
}

// Titles in several scripts, with accents precomposed and combining, case pairs whose
// folding changes length, and URLs on excluded hosts, in every state, with repeated dates.
std::vector<SavedTab> sampleTabs() {
  const std::vector<std::string> titles = {"Crème brûlée recipe",
                                           "Cre\xCC\x80me bru\xCC\x82le\xCC\x81"
                                           "e",
                                           "STRASSE und Straße",
                                           "İstanbul guide",
                                           "東京 travel notes 🚀",
                                           "Ελληνικά ΣΟΦΙΑ",
                                           "github: Swift pull",
                                           "swift-evolution proposals",
                                           "Ｆｕｌｌｗｉｄｔｈ text",
                                           "plain ascii Title",
                                           "",
                                           "Ǆemal ǅ ǆ"};
  const std::vector<std::string> urls = {"https://github.com/apple/swift",
                                         "https://bank.example/login",
                                         "https://www.caf\xC3\xA9.example/menu?q=SWIFT",
                                         "ftp://files.example/pub",
                                         "https://sub.bank.example/x",
                                         "http://example.org/Pull/42"};
  std::vector<SavedTab> tabs;
  for (size_t i = 0; i < 240; ++i) {
    SavedTab& tab = tabs.emplace_back();
    tab.title = titles[i % titles.size()];
    tab.url = urls[(i / 3) % urls.size()];
    tab.browser = static_cast<Browser>(i % 4);
    tab.state = static_cast<ArchiveState>((i / 2) % 3);
    tab.savedAt = addingSeconds(kNow, -3600.0 * double(i % 17));
    if (i % 5 != 0) tab.closedAt = addingSeconds(kNow, -1800.0 * double(i % 11));
  }
  return tabs;
}

TEST(ClosedTabSearchTest, FindsWhatTheTabByTabRuleFindsInTheSameOrder) {
  const std::vector<SavedTab> tabs = sampleTabs();
  const std::vector<std::string> exclusions = {"bank.example"};
  const ClosedTabSearch search(tabs, ExclusionList(exclusions));
  const std::vector<std::string> queries = {"",
                                            "   ",
                                            "swift",
                                            "SWIFT github",
                                            "creme",
                                            "CRÈME BRULEE",
                                            "strasse",
                                            "straße",
                                            "istanbul",
                                            "東京",
                                            "🚀",
                                            "σοφια",
                                            "fullwidth",
                                            "ｆｕｌｌ",
                                            "chrome",
                                            "safari pull",
                                            "edge 42",
                                            "brave",
                                            "ǆemal",
                                            "\xCC\x81",
                                            "e\xCC\x81",
                                            "caf",
                                            "café menu",
                                            "nothing-here",
                                            "pull pull",
                                            "l r",
                                            "https://github.com/apple",
                                            "t"};
  const std::vector<std::optional<Date>> sinces = {std::nullopt, addingSeconds(kNow, -7200),
                                                   addingSeconds(kNow, -5400), kNow};
  for (const std::string& query : queries) {
    for (const auto& since : sinces) {
      for (size_t limit : {size_t(1), size_t(7), size_t(100)}) {
        const auto expected = naiveSearch(tabs, exclusions, query, since, limit);
        const auto found = search.search(tabs, SearchQuery(query), since, limit);
        EXPECT_EQ(found.total, expected.total) << query << " limit " << limit;
        EXPECT_EQ(found.tabs, expected.tabs) << query << " limit " << limit;
      }
    }
  }
}

// Built again for a changed list from what it held, it finds what a search built for
// that list from nothing finds: through removals, changes and insertions that leave gone
// tabs' text behind, and the compactions that drop it.
TEST(ClosedTabSearchTest, AnUpdateFindsWhatABuildFromNothingFinds) {
  std::vector<SavedTab> tabs = sampleTabs();
  const ExclusionList exclusions({"bank.example"});
  ClosedTabSearch search(tabs, exclusions);
  const std::vector<std::string> queries = {"",       "swift", "CRÈME", "東京 travel",
                                            "chrome", "pull",  "x"};
  for (uint32_t round = 0; round < 30; ++round) {
    std::vector<SavedTab> next;
    std::vector<uint32_t> origins;
    for (uint32_t i = 0; i < tabs.size(); ++i) {
      switch ((i * 7 + round * 13) % 19) {
        case 0:  // removed
          continue;
        case 1:  // changed: another title, closed again later
          next.push_back(tabs[i]);
          next.back().title += " x";
          next.back().closedAt = addingSeconds(kNow, double(round));
          next.back().state = ArchiveState::closed;
          origins.push_back(ClosedTabSearch::kChanged);
          continue;
        case 2:  // a new tab before it
          next.push_back(tabs[(i + round) % tabs.size()]);
          next.back().url += "/new";
          origins.push_back(ClosedTabSearch::kChanged);
          break;
      }
      next.push_back(tabs[i]);
      origins.push_back(i);
    }
    search.update(next, exclusions, origins);
    tabs = std::move(next);
    const ClosedTabSearch fresh(tabs, exclusions);
    ASSERT_EQ(search.size(), fresh.size()) << "round " << round;
    for (const std::string& query : queries) {
      for (const auto& since : {std::optional<Date>(), std::optional(addingSeconds(kNow, -3600))}) {
        const auto expected = fresh.search(tabs, SearchQuery(query), since, 12);
        const auto found = search.search(tabs, SearchQuery(query), since, 12);
        EXPECT_EQ(found.total, expected.total) << "round " << round << " " << query;
        EXPECT_EQ(found.tabs, expected.tabs) << "round " << round << " " << query;
      }
    }
  }
}

TEST(ClosedTabSearchTest, AnEmptySearchFindsNothing) {
  const std::vector<SavedTab> tabs;
  const ClosedTabSearch empty;
  EXPECT_EQ(empty.search(tabs, SearchQuery(""), std::nullopt, 50).total, 0u);
  EXPECT_EQ(ClosedTabSearch(tabs, ExclusionList({})).search(tabs, SearchQuery("x"), kNow, 5).total,
            0u);
}

}  // namespace
}  // namespace velto
