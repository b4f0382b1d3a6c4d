#include "core/browser/browser_bridge.h"

#include <gtest/gtest.h>

#include "core/browser/browser_scripts.h"
#include "core/browser/fake_script_runner.h"
#include "core/model/velto_error.h"

namespace velto {
namespace {

using V = ScriptValue;

// Records what the bridge asked of the applications.
class RecordingLauncher : public ApplicationLauncher {
 public:
  bool isInstalled(Browser browser) override {
    asked.push_back("installed " + std::string(rawValue(browser)));
    return installed;
  }
  bool isRunning(Browser browser) override {
    asked.push_back("running " + std::string(rawValue(browser)));
    return true;
  }
  Result<void> open(std::string_view url, Browser browser) override {
    asked.push_back("open " + std::string(url) + " " + std::string(rawValue(browser)));
    return {};
  }
  bool installed = true;
  std::vector<std::string> asked;
};

V row(std::string window, V tabID, V index, V title, V url, V active) {
  return V::list({V::text(std::move(window)), std::move(tabID), std::move(index), std::move(title),
                  std::move(url), std::move(active)});
}
V row(std::string window, std::string tabID = "567", std::string title = "Title") {
  return row(std::move(window), V::text(tabID), V::integer(2), V::text(std::move(title)),
             V::text("https://a.org/"), V::boolean(false));
}

class BrowserBridgeTest : public testing::Test {
 protected:
  FakeScriptRunner runner_;
  RecordingLauncher launcher_;
  BrowserBridge bridge_{runner_, launcher_};
};

TEST_F(BrowserBridgeTest, SnapshotRowsBecomeLiveTabs) {
  const Date before = now();
  const auto tabs =
      liveTabsFromSnapshot(V::list({row("1234", V::text("567"), V::integer(1), V::text("One"),
                                        V::text("https://a.org/"), V::boolean(true)),
                                    row("-5", V::integer(9), V::text("2"), V::text(""),
                                        V::text("https://b.org/"), V::boolean(false))}),
                           Browser::chrome);
  const Date after = now();
  ASSERT_EQ(tabs.size(), 2u);

  LiveTab expected;
  expected.id = "chrome:1234:567";
  expected.browser = Browser::chrome;
  expected.windowID = 1234;
  expected.tabID = "567";
  expected.index = 1;
  expected.title = "One";
  expected.url = "https://a.org/";
  expected.isActive = true;
  expected.pinState = PinState::unknown;
  expected.lastActiveAt = expected.observedAt = tabs[0].observedAt;
  EXPECT_EQ(tabs[0], expected);
  EXPECT_GE(tabs[0].observedAt, before);
  EXPECT_LE(tabs[1].observedAt, after);

  // An integer tab id, a textual position and an empty title (which becomes the URL).
  EXPECT_EQ(tabs[1].id, "chrome:-5:9");
  EXPECT_EQ(tabs[1].tabID, "9");
  EXPECT_EQ(tabs[1].index, 2);
  EXPECT_EQ(tabs[1].title, "https://b.org/");
  EXPECT_FALSE(tabs[1].isActive);
}

TEST_F(BrowserBridgeTest, SafariTabsAreKnownByPosition) {
  const auto tabs = liveTabsFromSnapshot(
      V::list({row("88", V::text("3"), V::integer(3), V::text("t"), V::text("u"), V()),
               row("88", V::text("ignored"), V::integer(4), V::text("t"), V::text("u"),
                   V::boolean(false))}),
      Browser::safari);
  ASSERT_EQ(tabs.size(), 2u);
  EXPECT_EQ(tabs[0].id, "safari:88:3");
  EXPECT_EQ(tabs[0].tabID, std::nullopt);
  EXPECT_TRUE(tabs[0].isActive);  // a missing active flag counts as active
  EXPECT_EQ(tabs[1].id, "safari:88:4");
}

TEST_F(BrowserBridgeTest, MalformedRowsAreSkippedAndTheRestKept) {
  const V good = row("7");
  const V rows[] = {
      V::list({V::text("7"), V::text("1"), V::integer(1), V::text("t"), V::text("u")}),  // 5 items
      V::list({V::text("7"), V::text("1"), V::integer(1), V::text("t"), V::text("u"),
               V::boolean(true), V::boolean(true)}),  // 7 items
      V::text("not a row"),
      V::list({}),
      row("12a"),
      row(""),
      row("+"),
      row("-"),
      row("+-12"),
      row(" 12"),
      row("9223372036854775808"),
      row("1e3"),
      row("7", V(), V::integer(1), V::text("t"), V::text("u"), V::boolean(true)),
      row("7", V::text("1"), V::integer(1), V(), V::text("u"), V::boolean(true)),
      row("7", V::text("1"), V::integer(1), V::text("t"), V::boolean(true), V::boolean(true)),
      V::list({V(), V::text("1"), V::integer(1), V::text("t"), V::text("u"), V::boolean(true)}),
  };
  for (const V& bad : rows) {
    const auto tabs = liveTabsFromSnapshot(V::list({bad, good}), Browser::brave);
    ASSERT_EQ(tabs.size(), 1u);
    EXPECT_EQ(tabs[0].id, "brave:7:567");
  }
  const struct {
    std::string window;
    int64_t id;
  } accepted[] = {{"+12", 12}, {"-12", -12}, {"0", 0}, {"9223372036854775807", INT64_MAX}};
  for (const auto& c : accepted) {
    const auto tabs = liveTabsFromSnapshot(V::list({row(c.window)}), Browser::edge);
    ASSERT_EQ(tabs.size(), 1u) << c.window;
    EXPECT_EQ(tabs[0].windowID, c.id);
  }
  EXPECT_TRUE(liveTabsFromSnapshot(V::text("tabs"), Browser::chrome).empty());
  EXPECT_TRUE(liveTabsFromSnapshot(V(), Browser::chrome).empty());
}

TEST_F(BrowserBridgeTest, SnapshotRunsTheBrowsersScript) {
  runner_.replies.push_back(V::list({row("1")}));
  runner_.replies.push_back(VeltoError::automationFailure(-1743));
  const auto tabs = bridge_.snapshot(Browser::edge).get();
  const auto refused = bridge_.snapshot(Browser::safari).get();
  ASSERT_TRUE(tabs.ok());
  EXPECT_EQ(tabs->size(), 1u);
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(refused.error(), VeltoError::automationFailure(-1743));
  EXPECT_EQ(runner_.ran,
            (std::vector<std::string>{BrowserScripts::snapshotScript(Browser::edge),
                                      BrowserScripts::snapshotScript(Browser::safari)}));
}

TEST_F(BrowserBridgeTest, CloseReportsWhatTheScriptAnswered) {
  LiveTab tab;
  tab.browser = Browser::chrome;
  tab.windowID = 3;
  tab.tabID = "44";
  tab.url = "https://a.org/";
  const struct {
    Result<ScriptValue> reply;
    Result<void> expected;
  } cases[] = {
      {V::boolean(true), {}},
      {V::boolean(false), VeltoError::tabChanged()},
      {V(), VeltoError::tabChanged()},
      {V::text("true"), VeltoError::tabChanged()},
      {VeltoError::automationFailure(-1712), VeltoError::automationFailure(-1712)},
  };
  for (const auto& c : cases) {
    runner_.replies.push_back(c.reply);
    EXPECT_EQ(bridge_.close(tab, true, 3).get(), c.expected);
  }
  ASSERT_EQ(runner_.ran.size(), 5u);
  EXPECT_EQ(runner_.ran[0], BrowserScripts::closeScript(tab, true, 3));
}

TEST_F(BrowserBridgeTest, AutomaticCloseOfAPinnedTabNeverReachesTheBrowser) {
  LiveTab tab;
  tab.browser = Browser::safari;
  tab.pinState = PinState::pinned;
  auto refused = bridge_.close(tab, true, 0);
  ASSERT_EQ(refused.wait_for(std::chrono::seconds(0)), std::future_status::ready);
  EXPECT_EQ(refused.get(), Result<void>(VeltoError::tabPinned()));
  EXPECT_TRUE(runner_.ran.empty());

  runner_.replies.push_back(V::boolean(true));
  EXPECT_TRUE(bridge_.close(tab, false, 0).get().ok());  // the user may close it
  EXPECT_EQ(runner_.ran, std::vector<std::string>{BrowserScripts::closeScript(tab, false, 0)});
}

TEST_F(BrowserBridgeTest, ScriptsFromManyBridgesShareOneWorker) {
  FakeScriptRunner otherRunner;
  BrowserBridge other(otherRunner, launcher_);
  std::vector<std::future<Result<std::vector<LiveTab>>>> pending;
  for (int i = 0; i < 20; ++i) {
    pending.push_back(bridge_.snapshot(Browser::chrome));
    pending.push_back(other.snapshot(Browser::brave));
  }
  for (auto& future : pending) EXPECT_TRUE(future.get().ok());
  ASSERT_EQ(runner_.threads.size(), 20u);
  ASSERT_EQ(otherRunner.threads.size(), 20u);
  const auto worker = runner_.threads.front();
  EXPECT_NE(worker, std::this_thread::get_id());
  for (const auto& id : runner_.threads) EXPECT_EQ(id, worker);
  for (const auto& id : otherRunner.threads) EXPECT_EQ(id, worker);
}

TEST_F(BrowserBridgeTest, ApplicationQuestionsGoToTheLauncher) {
  EXPECT_TRUE(bridge_.isInstalled(Browser::brave));
  EXPECT_TRUE(bridge_.isRunning(Browser::edge));
  EXPECT_EQ(bridge_.reopen("ftp://a.org/", Browser::chrome),
            Result<void>(VeltoError::onlyWebLinks()));
  EXPECT_TRUE(bridge_.reopen("https://a.org/x", Browser::chrome).ok());
  launcher_.installed = false;
  EXPECT_EQ(bridge_.reopen("https://a.org/", Browser::brave),
            Result<void>(VeltoError::notInstalled(Browser::brave)));
  EXPECT_EQ(launcher_.asked,
            (std::vector<std::string>{"installed brave", "running edge", "installed chrome",
                                      "open https://a.org/x chrome", "installed brave"}));
  EXPECT_TRUE(runner_.ran.empty());
}

#ifndef __APPLE__
TEST_F(BrowserBridgeTest, WithoutAScriptRunnerEverySnapshotFails) {
  const auto runner = platformScriptRunner();
  BrowserBridge platform(*runner, launcher_);
  const auto result = platform.snapshot(Browser::chrome).get();
  ASSERT_FALSE(result.ok());
  EXPECT_EQ(result.error(), VeltoError::scriptNotCreated());
}
#endif

}  // namespace
}  // namespace velto
