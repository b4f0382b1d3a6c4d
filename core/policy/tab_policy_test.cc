#include "core/policy/tab_policy.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

const Date kNow = dateFromUTC(2026, 3, 1, 12, 0, 0);

Date ago(double seconds) { return addingSeconds(kNow, -seconds); }

class TabPolicyTest : public ::testing::Test {
 protected:
  void TearDown() override { Preferences::setIdleSecondsOverride(std::nullopt); }

  static LiveTab tab(int64_t index = 5, PinState pin = PinState::unknown) {
    LiveTab t;
    t.id = "chrome:1:" + std::to_string(index);
    t.browser = Browser::chrome;
    t.windowID = 1;
    t.index = index;
    t.url = "https://news.example.net/a";
    t.pinState = pin;
    t.lastActiveAt = ago(100000);
    t.observedAt = ago(10);
    return t;
  }
  static Preferences prefs() {
    Preferences p;
    p.connectedBrowsers = {Browser::chrome, Browser::safari};
    p.autoClose = true;
    p.automaticTabLimit = true;
    return p;
  }
};

TEST_F(TabPolicyTest, SafeURLTakesOnlyPlainWebAddresses) {
  EXPECT_TRUE(TabPolicy::safeURL("HTTPS://Example.org/x"));
  EXPECT_TRUE(TabPolicy::safeURL("http://example.org"));
  for (const char* bad : {"ftp://example.org", "about:blank", "https://user:pw@example.org",
                          "https://user@example.org", "https:///path", "javascript:alert(1)", ""}) {
    EXPECT_FALSE(TabPolicy::safeURL(bad)) << bad;
  }
}

TEST_F(TabPolicyTest, NormalizesExclusionEntries) {
  struct Case {
    const char* entry;
    std::optional<std::string> domain;
  };
  for (const Case& c :
       {Case{"*.Example.ORG ", "example.org"}, Case{"\texample.org.\n", "example.org"},
        Case{"https://Mail.Example.org/inbox", "mail.example.org"},
        Case{"www.example.org", "www.example.org"}, Case{"localhost", {}}, Case{"", {}},
        Case{"exa mple.org", {}}, Case{"*.", {}},
        Case{"ftp://files.example.org", "files.example.org"}}) {
    EXPECT_EQ(TabPolicy::normalizedDomain(c.entry), c.domain) << c.entry;
  }
}

TEST_F(TabPolicyTest, ExclusionMatchesHostsAndSubdomainsAndFailsClosed) {
  const std::vector<std::string> wildcard{"*.Example.ORG "};
  struct Case {
    const char* url;
    bool excluded;
  };
  for (const Case& c : {Case{"https://example.org/", true}, Case{"https://a.b.example.org", true},
                        Case{"https://Example.org./x", true}, Case{"https://notexample.org", false},
                        Case{"https://example.org.evil.net", false}, Case{"about:blank", true},
                        Case{"ftp://example.net", true}, Case{"https://u:p@safe.net", true},
                        Case{"http://safe.net", false}}) {
    EXPECT_EQ(TabPolicy::isExcluded(c.url, wildcard), c.excluded) << c.url;
  }
  EXPECT_TRUE(TabPolicy::isExcluded("about:blank", {}));
  EXPECT_FALSE(TabPolicy::isExcluded("https://example.org", {}));
  EXPECT_FALSE(TabPolicy::isExcluded("https://example.org", {"www.example.org"}));
  EXPECT_FALSE(TabPolicy::isExcluded("https://localhost.org", {"localhost", "", "exa mple.org"}));
  EXPECT_TRUE(TabPolicy::isExcluded("https://mail.google.com/u/0", defaultExclusions()));
}

TEST_F(TabPolicyTest, ProtectionByPinStateAndIndex) {
  Preferences p = prefs();
  EXPECT_TRUE(TabPolicy::isProtected(tab(40, PinState::pinned), p));
  EXPECT_TRUE(TabPolicy::isProtected(tab(3, PinState::unknown), p));
  EXPECT_FALSE(TabPolicy::isProtected(tab(4, PinState::unknown), p));
  EXPECT_FALSE(TabPolicy::isProtected(tab(1, PinState::unpinned), p));
  p.protectedTabs = -2;
  EXPECT_FALSE(TabPolicy::isProtected(tab(1, PinState::unknown), p));
  EXPECT_TRUE(TabPolicy::isProtected(tab(0, PinState::unknown), p));
}

TEST_F(TabPolicyTest, LastUsedPrefersNewerVisitsAndTrustsOlderOnesAfterNeglect) {
  const Preferences p = prefs();
  LiveTab t = tab();
  t.lastActiveAt = ago(5000);
  EXPECT_EQ(TabPolicy::lastUsed(t, p, kNow), ago(5000));
  t.lastVisitAt = ago(-10);  // in the future: ignored
  EXPECT_EQ(TabPolicy::lastUsed(t, p, kNow), ago(5000));
  t.lastVisitAt = ago(100);
  EXPECT_EQ(TabPolicy::lastUsed(t, p, kNow), ago(100));
  t.lastVisitAt = ago(9000);
  EXPECT_EQ(TabPolicy::lastUsed(t, p, kNow), ago(5000));
  t.neverSelectedSince = ago(3599);
  EXPECT_EQ(TabPolicy::lastUsed(t, p, kNow), ago(5000));
  t.neverSelectedSince = ago(3600);
  EXPECT_EQ(TabPolicy::lastUsed(t, p, kNow), ago(9000));
  Preferences::setIdleSecondsOverride(10);
  t.neverSelectedSince = ago(10);
  EXPECT_EQ(TabPolicy::lastUsed(t, p, kNow), ago(9000));
}

TEST_F(TabPolicyTest, NeverClosesActiveExcludedProtectedOrUnconnectedTabs) {
  const Preferences p = prefs();
  EXPECT_TRUE(TabPolicy::canSuggestClosing(tab(), p));
  EXPECT_TRUE(TabPolicy::canAutoClose(tab(), p, kNow));
  LiveTab active = tab(), excluded = tab(), pinned = tab(5, PinState::pinned), edge = tab();
  active.isActive = true;
  excluded.url = "https://chase.com/";
  edge.browser = Browser::edge;
  for (const LiveTab& t : {active, excluded, pinned, edge}) {
    EXPECT_FALSE(TabPolicy::canSuggestClosing(t, p));
    EXPECT_FALSE(TabPolicy::canAutoClose(t, p, kNow));
    EXPECT_FALSE(TabPolicy::canAutoCloseForTabLimit(t, p, kNow));
  }
}

TEST_F(TabPolicyTest, AutoCloseNeedsAFreshObservationAndIdleness) {
  Preferences p = prefs();
  struct Case {
    double observedAgo, usedAgo;
    bool autoClose, forLimit;
  };
  for (const Case& c :
       {Case{89.9, 86400, true, true}, Case{90, 86400, false, false}, Case{-1, 86400, false, false},
        Case{0, 86400, true, true}, Case{10, 86399.5, false, true}, Case{10, 300, false, true},
        Case{10, 299, false, false}}) {
    LiveTab t = tab();
    t.observedAt = ago(c.observedAgo);
    t.lastActiveAt = ago(c.usedAgo);
    EXPECT_EQ(TabPolicy::canAutoClose(t, p, kNow), c.autoClose)
        << c.observedAgo << " " << c.usedAgo;
    EXPECT_EQ(TabPolicy::canAutoCloseForTabLimit(t, p, kNow), c.forLimit)
        << c.observedAgo << " " << c.usedAgo;
  }
  p.autoClose = false;
  p.automaticTabLimit.reset();
  EXPECT_FALSE(TabPolicy::canAutoClose(tab(), p, kNow));
  EXPECT_FALSE(TabPolicy::canAutoCloseForTabLimit(tab(), p, kNow));
}

TEST_F(TabPolicyTest, ReconcileCarriesTimestampsOnlyForTheSameTab) {
  LiveTab old = tab();
  old.lastActiveAt = ago(7000);
  old.neverSelectedSince = ago(6000);
  old.lastVisitAt = ago(6500);
  old.observedAt = ago(30);

  LiveTab fresh = tab();
  fresh.lastVisitAt = ago(1);  // whatever the snapshot carried is replaced
  auto kept = TabPolicy::reconcile({fresh}, {old}, kNow);
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0].lastActiveAt, ago(7000));
  EXPECT_EQ(kept[0].neverSelectedSince, ago(6000));
  EXPECT_EQ(kept[0].lastVisitAt, ago(6500));
  EXPECT_EQ(kept[0].observedAt, kNow);

  // Moved Chrome tabs keep their history; moved Safari tabs do not.
  LiveTab movedChrome = fresh;
  movedChrome.index = 9;
  EXPECT_EQ(TabPolicy::reconcile({movedChrome}, {old}, kNow)[0].lastActiveAt, ago(7000));
  LiveTab oldSafari = old, movedSafari = fresh;
  oldSafari.browser = movedSafari.browser = Browser::safari;
  movedSafari.index = 9;
  const LiveTab renewed = TabPolicy::reconcile({movedSafari}, {oldSafari}, kNow)[0];
  EXPECT_EQ(renewed.lastActiveAt, kNow);
  EXPECT_EQ(renewed.neverSelectedSince, kNow);
  EXPECT_FALSE(renewed.lastVisitAt);

  // A stale previous snapshot, or a changed URL, makes every tab new.
  LiveTab stale = old;
  stale.observedAt = ago(90);
  EXPECT_EQ(TabPolicy::reconcile({fresh}, {stale}, kNow)[0].lastActiveAt, kNow);
  LiveTab otherURL = fresh;
  otherURL.url += "?changed";
  EXPECT_EQ(TabPolicy::reconcile({otherURL}, {old}, kNow)[0].neverSelectedSince, kNow);

  // An active tab is used now; later duplicates of an id win.
  LiveTab active = fresh;
  active.isActive = true;
  const LiveTab now = TabPolicy::reconcile({active}, {old}, kNow)[0];
  EXPECT_EQ(now.lastActiveAt, kNow);
  EXPECT_FALSE(now.neverSelectedSince);
  EXPECT_EQ(now.lastVisitAt, ago(6500));
  LiveTab later = old;
  later.lastActiveAt = ago(42);
  EXPECT_EQ(TabPolicy::reconcile({fresh}, {old, later}, kNow)[0].lastActiveAt, ago(42));
}

}  // namespace
}  // namespace velto
