#include "core/model/records.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "core/model/velto_error.h"

namespace velto {
namespace {

SavedTab savedTab(std::string url, std::string title = "", Browser browser = Browser::chrome) {
  SavedTab tab;
  tab.url = std::move(url);
  tab.title = std::move(title);
  tab.browser = browser;
  return tab;
}

TEST(PreferencesTest, DefaultsAndDerivedValues) {
  const Preferences defaults;
  EXPECT_EQ(defaults.exclusions.size(), 14u);
  for (const std::string& domain : defaults.exclusions) {
    EXPECT_TRUE(domain.find('/') == std::string::npos && !domain.starts_with("www.")) << domain;
  }
  // Absent automaticTabLimit and compactActivity mean off, every other absent flag on.
  EXPECT_EQ((std::array{defaults.automaticallyEnforcesTabLimit(), defaults.keepsActivityCompact(),
                        defaults.websiteIconsEnabled(), defaults.veltoActivityEnabled(),
                        defaults.shouldConfirmTuckAway(), defaults.memoryAlertsEnabled(),
                        defaults.browserHistoryEnabled()}),
            (std::array{false, false, true, true, true, true, true}));

  struct Case {
    std::optional<int64_t> tabLimit, protectedTabs, idleHours;
    int64_t limit, protectedCount;
    double threshold;
  };
  const Case cases[] = {{{}, {}, {}, 25, 3, 86400},
                        {0, -2, 0, 5, 0, 3600},
                        {1000, 50, -5, 200, 50, 3600},
                        {200, {}, 48, 200, 3, 172800},
                        {37, 7, 2, 37, 7, 7200}};
  for (const Case& c : cases) {
    Preferences p;
    p.tabLimit = c.tabLimit;
    p.protectedTabs = c.protectedTabs;
    if (c.idleHours) p.idleHours = *c.idleHours;
    EXPECT_EQ(std::tuple(p.activeTabLimit(), p.protectedTabsPerWindow(), p.idleThreshold()),
              std::tuple(c.limit, c.protectedCount, c.threshold));
  }
}

TEST(PreferencesTest, IdleOverrideAppliesToEveryValueFromAnyThread) {
  Preferences a, b;
  b.idleHours = 3;
  std::thread([] { Preferences::setIdleSecondsOverride(30); }).join();
  EXPECT_EQ(a.idleThreshold(), 30);
  EXPECT_EQ(b.idleThreshold(), 30);
  // Every double is a value, NaN included; only clearing makes it absent.
  Preferences::setIdleSecondsOverride(std::nan(""));
  EXPECT_TRUE(std::isnan(Preferences::idleSecondsOverride().value_or(0)));
  Preferences::setIdleSecondsOverride(std::nullopt);
  EXPECT_EQ(b.idleThreshold(), 10800);
  EXPECT_FALSE(Preferences::idleSecondsOverride());
}

TEST(RecordsTest, DomainsKeepOrDropOneLeadingWww) {
  const std::array<const char*, 3> cases[] = {
      // url, LiveTab.domain, SavedTab.domain
      {"https://www.example.org/path", "www.example.org", "example.org"},
      {"https://www.www.x.org", "www.www.x.org", "www.x.org"},
      {"https://WWW.x.org", "WWW.x.org", "WWW.x.org"},
      {"https://wwwx.example.org", "wwwx.example.org", "wwwx.example.org"},
      {"https://a.www.x.org", "a.www.x.org", "a.www.x.org"},
      {"not a url", "Website", "Website"},
      {"about:blank", "Website", "Website"},
      {"", "Website", "Website"}};
  for (const auto& [url, live, saved] : cases) {
    LiveTab tab;
    tab.url = url;
    EXPECT_EQ(tab.domain(), live) << url;
    EXPECT_EQ(savedTab(url).domain(), saved) << url;
  }
}

TEST(RecordsTest, ActivityDateUsesClosedAtOnlyForClosedTabs) {
  SavedTab tab = savedTab("https://a.org");
  tab.savedAt = dateFromUTC(2026, 1, 1);
  tab.closedAt = dateFromUTC(2026, 2, 1);
  tab.state = ArchiveState::pendingClose;
  EXPECT_EQ(tab.activityDate(), tab.savedAt);
  tab.state = ArchiveState::closed;
  EXPECT_EQ(tab.activityDate(), *tab.closedAt);
  tab.closedAt.reset();
  EXPECT_EQ(tab.activityDate(), tab.savedAt);
}

TEST(RecordsTest, MatchesEveryTermInTitleUrlOrBrowserName) {
  const SavedTab tab = savedTab("https://github.com/velto", "R\u00E9sum\u00E9", Browser::safari);
  for (const char* query : {"", " \n ", "GITHUB safari", "hub.com/vel", "SAFARI\tresume",
                            "R\u00C9SUM\u00C9\u2028velto\u3000github"}) {
    EXPECT_TRUE(tab.matches(query)) << query;
  }
  // Every term must be found, and none straddles two fields.
  for (const char* query : {"github chrome", "safari-github", "resume edge", "velto safari x"}) {
    EXPECT_FALSE(tab.matches(query)) << query;
  }
}

TEST(VeltoErrorTest, AutomationNumbersMapToTheirSentences) {
  const std::pair<int64_t, const char*> cases[] = {
      {-600, "Open the browser, then try again."},
      {-1712, "The browser took too long to respond. Your tabs were left alone."},
      {-1743,
       "Permission needed. Allow Velto in System Settings \u2192 Privacy & Security "
       "\u2192 Automation, then reconnect."},
      {-1719, "The browser could not complete the request (-1719). Try reconnecting it."},
      {0, "The browser could not complete the request (0). Try reconnecting it."}};
  for (const auto& [number, text] : cases) {
    EXPECT_EQ(VeltoError::automationFailure(number), (Error{Error::Domain::velto, text}));
  }
  EXPECT_EQ(VeltoError::notInstalled(Browser::brave).message,
            "Brave is not installed. Copy this link to open it in another browser.");
}

}  // namespace
}  // namespace velto
