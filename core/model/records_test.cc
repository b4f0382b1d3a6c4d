#include "core/model/records.h"

#include <gtest/gtest.h>

#include <thread>

#include "core/model/velto_error.h"

namespace velto {
namespace {

SavedTab savedTab(std::string title, std::string url, Browser browser = Browser::chrome) {
  SavedTab tab;
  tab.title = std::move(title);
  tab.url = std::move(url);
  tab.browser = browser;
  return tab;
}

TEST(PreferencesTest, DefaultsAndDerivedValues) {
  const Preferences defaults;
  EXPECT_EQ(defaults.idleHours, 24);
  EXPECT_FALSE(defaults.autoClose);
  EXPECT_EQ(defaults.exclusions.size(), 14u);
  EXPECT_EQ(defaults.flaURL, "");
  EXPECT_EQ(defaults.activeTabLimit(), 25);
  EXPECT_EQ(defaults.protectedTabsPerWindow(), 3);
  EXPECT_EQ(defaults.idleThreshold(), 86400);
  EXPECT_FALSE(defaults.automaticallyEnforcesTabLimit());
  EXPECT_FALSE(defaults.keepsActivityCompact());
  EXPECT_TRUE(defaults.websiteIconsEnabled() && defaults.veltoActivityEnabled() &&
              defaults.shouldConfirmTuckAway() && defaults.memoryAlertsEnabled() &&
              defaults.browserHistoryEnabled());
  for (const std::string& domain : defaults.exclusions) {
    EXPECT_EQ(domain.find("://"), std::string::npos);
    EXPECT_FALSE(domain.starts_with("www."));
  }

  struct Case {
    std::optional<int64_t> tabLimit, protectedTabs;
    int64_t idleHours, limit, protectedCount;
    double threshold;
  };
  for (const Case& c : {Case{0, -2, 0, 5, 0, 3600}, Case{1000, 50, -5, 200, 50, 3600},
                        Case{5, 0, 1, 5, 0, 3600}, Case{200, {}, 48, 200, 3, 172800},
                        Case{37, 7, 2, 37, 7, 7200}}) {
    Preferences p;
    p.tabLimit = c.tabLimit;
    p.protectedTabs = c.protectedTabs;
    p.idleHours = c.idleHours;
    EXPECT_EQ(p.activeTabLimit(), c.limit);
    EXPECT_EQ(p.protectedTabsPerWindow(), c.protectedCount);
    EXPECT_EQ(p.idleThreshold(), c.threshold);
  }
}

TEST(PreferencesTest, IdleOverrideAppliesToEveryValueFromAnyThread) {
  Preferences a, b;
  b.idleHours = 3;
  std::thread([] { Preferences::setIdleSecondsOverride(30); }).join();
  EXPECT_EQ(a.idleThreshold(), 30);
  EXPECT_EQ(b.idleThreshold(), 30);
  Preferences::setIdleSecondsOverride(std::nullopt);
  EXPECT_EQ(b.idleThreshold(), 10800);
  EXPECT_FALSE(Preferences::idleSecondsOverride());
}

TEST(RecordsTest, DomainsKeepOrDropTheLeadingWww) {
  LiveTab live;
  live.url = "https://www.example.org/path";
  EXPECT_EQ(live.domain(), "www.example.org");
  EXPECT_EQ(savedTab("", "https://www.example.org/path").domain(), "example.org");
  EXPECT_EQ(savedTab("", "https://wwwx.example.org").domain(), "wwwx.example.org");
  EXPECT_EQ(savedTab("", "https://a.www.example.org").domain(), "a.www.example.org");
  for (const char* hostless : {"not a url", "about:blank", ""}) {
    live.url = hostless;
    EXPECT_EQ(live.domain(), "Website") << hostless;
    EXPECT_EQ(savedTab("", hostless).domain(), "Website") << hostless;
  }
}

TEST(RecordsTest, ActivityDateUsesClosedAtOnlyForClosedTabs) {
  SavedTab tab = savedTab("t", "https://a.org");
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
  const SavedTab tab = savedTab("Caf\xC3\xA9 R\xC3\xA9sum\xC3\xA9", "https://github.com/velto", Browser::safari);
  EXPECT_TRUE(tab.matches(""));
  EXPECT_TRUE(tab.matches(" \n "));
  EXPECT_TRUE(tab.matches("GITHUB safari"));
  EXPECT_TRUE(tab.matches("cafe resume"));
  EXPECT_TRUE(tab.matches("SAFARI\tcaf\xC3\xA9"));
  EXPECT_TRUE(tab.matches("hub.com/vel"));
  EXPECT_FALSE(tab.matches("github chrome"));
  EXPECT_FALSE(tab.matches("safari-github"));  // terms do not straddle fields
  EXPECT_TRUE(savedTab("R\xC3\xA9sum\xC3\xA9", "https://x.org").matches("RESUME"));
  EXPECT_TRUE(savedTab("Resume", "https://x.org").matches("r\xC3\xA9sum\xC3\xA9"));
}

TEST(VeltoErrorTest, AutomationNumbersMapToTheirSentences) {
  EXPECT_EQ(VeltoError::automationFailure(-600).message, "Open the browser, then try again.");
  EXPECT_EQ(VeltoError::automationFailure(-1712).message,
            "The browser took too long to respond. Your tabs were left alone.");
  EXPECT_EQ(VeltoError::automationFailure(-1743).message,
            "Permission needed. Allow Velto in System Settings \xE2\x86\x92 Privacy & Security "
            "\xE2\x86\x92 Automation, then reconnect.");
  EXPECT_EQ(VeltoError::automationFailure(-1719).message,
            "The browser could not complete the request (-1719). Try reconnecting it.");
  EXPECT_EQ(VeltoError::automationFailure(0).message,
            "The browser could not complete the request (0). Try reconnecting it.");
  EXPECT_EQ(VeltoError::notInstalled(Browser::brave).message,
            "Brave is not installed. Copy this link to open it in another browser.");
  EXPECT_EQ(VeltoError::notInstalled(Browser::brave).domain, Error::Domain::velto);
}

TEST(BrowserTest, RawValuesRoundTripAndNothingElseParses) {
  for (Browser b : kAllBrowsers) EXPECT_EQ(browserFromRawValue(rawValue(b)), b);
  EXPECT_FALSE(browserFromRawValue("Safari"));
  EXPECT_FALSE(browserFromRawValue("firefox"));
  EXPECT_FALSE(pinStateFromRawValue("Pinned"));
  EXPECT_EQ(archiveStateFromRawValue("pendingClose"), ArchiveState::pendingClose);
  EXPECT_TRUE(isSafariFamily(Browser::safari));
  EXPECT_FALSE(isSafariFamily(Browser::edge));
  BrowserSet set{Browser::brave};
  EXPECT_TRUE(set.contains(Browser::brave));
  EXPECT_FALSE(set.contains(Browser::chrome));
}

}  // namespace
}  // namespace velto
