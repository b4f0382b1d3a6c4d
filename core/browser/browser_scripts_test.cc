#include "core/browser/browser_scripts.h"

#include <gtest/gtest.h>

#include <vector>

namespace velto::BrowserScripts {
namespace {

// Whole expected texts, one element per line, so that indentation-only lines are visible.
std::string lines(const std::vector<std::string>& all) {
  std::string text;
  for (size_t i = 0; i < all.size(); ++i) text += (i ? "\n" : "") + all[i];
  return text;
}

LiveTab tab(Browser browser, std::string url) {
  LiveTab t;
  t.browser = browser;
  t.windowID = 1234;
  t.tabID = "567";
  t.index = 3;
  t.url = std::move(url);
  return t;
}

TEST(BrowserScriptsTest, QuotedEscapesBackslashFirstThenQuoteCRAndLF) {
  const struct {
    std::string text, literal;
  } cases[] = {
      {"", R"("")"},
      {R"(a\b)", R"("a\\b")"},
      {R"(say "hi")", R"("say \"hi\"")"},
      {"a\rb\nc", R"("a\rb\nc")"},
      {"\\\"", R"("\\\"")"},  // the quote's new backslash is not doubled again
      {"tab\there\x01", "\"tab\there\x01\""},
      {"caf\u00e9 \u2265", "\"caf\u00e9 \u2265\""},
  };
  for (const auto& c : cases) EXPECT_EQ(BrowserScripts::quoted(c.text), c.literal) << c.text;
}

// clang-format off
const std::vector<std::string> kBraveSnapshot = {
    "with timeout of 12 seconds",
    "    tell application id \"com.brave.Browser\"",
    "        set rows to {}",
    "        repeat with w in windows",
    "            if mode of w is \"normal\" then",
    "            set wi to (id of w) as text",
    "            set selectedIndex to active tab index of w",
    "            set n to count of tabs of w",
    "            repeat with ti from 1 to n",
    "                try",
    "                    set t to tab ti of w",
    "                    set tu to URL of t",
    "                    set tn to title of t",
    "                    set ta to (ti is selectedIndex)",
    "                    set tid to (id of t) as text",
    "                    if tu is not missing value then set end of rows to {wi, tid, ti, tn, tu, ta}",
    "                end try",
    "                if (count of rows) \u2265 1000 then return rows",
    "            end repeat",
    "            end if",
    "        end repeat",
    "        return rows",
    "    end tell",
    "end timeout"};

// tab(chrome, "https://x.org/\"q\"") closed automatically with protectedTabs 2.
const std::vector<std::string> kChromeAutomaticClose = {
    "with timeout of 10 seconds",
    "    tell application id \"com.google.Chrome\"",
    "        if not running then return false",
    "        repeat with w in windows",
    "            if (id of w) as text is \"1234\" then",
    "                if mode of w is not \"normal\" then return false",
    "                ",
    "                repeat with ti from 1 to count of tabs of w",
    "                    set t to tab ti of w",
    "                    if (id of t) as text is \"567\" then",
    "                        if URL of t is not \"https://x.org/\\\"q\\\"\" then return false",
    "                        if active tab index of w is ti then return false",
    "                        if ti \u2264 2 then return false",
    "                        close t",
    "                        return true",
    "                    end if",
    "                end repeat",
    "            end if",
    "        end repeat",
    "        return false",
    "    end tell",
    "end timeout"};

// tab(safari, "https://x.org/a\nb") closed automatically with protectedTabs -3 (so 0). The
// uniqueness block after the first of its lines starts in column 0.
const std::vector<std::string> kSafariAutomaticClose = {
    "with timeout of 10 seconds",
    "    tell application id \"com.apple.Safari\"",
    "        if not running then return false",
    "        repeat with w in windows",
    "            if (id of w) as text is \"1234\" then",
    "                ",
    "                set matches to 0",
    "repeat with t in tabs of w",
    "if URL of t is \"https://x.org/a\\nb\" then set matches to matches + 1",
    "end repeat",
    "if matches is not 1 then return false",
    "                repeat with ti from 1 to count of tabs of w",
    "                    set t to tab ti of w",
    "                    if ti is 3 then",
    "                        if URL of t is not \"https://x.org/a\\nb\" then return false",
    "                        if visible of t then return false",
    "                        if ti \u2264 0 then return false",
    "                        close t",
    "                        return true",
    "                    end if",
    "                end repeat",
    "            end if",
    "        end repeat",
    "        return false",
    "    end tell",
    "end timeout"};
// clang-format on

TEST(BrowserScriptsTest, SnapshotScripts) {
  EXPECT_EQ(snapshotScript(Browser::brave), lines(kBraveSnapshot));

  std::vector<std::string> chrome = kBraveSnapshot;
  chrome[1] = "    tell application id \"com.google.Chrome\"";
  EXPECT_EQ(snapshotScript(Browser::chrome), lines(chrome));

  // Safari has no window filter and no selected index: those lines stay, as 12 spaces.
  std::vector<std::string> safari = kBraveSnapshot;
  safari[1] = "    tell application id \"com.apple.Safari\"";
  safari[4] = safari[6] = safari[19] = std::string(12, ' ');
  safari[12] = "                    set tn to name of t";
  safari[13] = "                    set ta to visible of t";
  safari[14] = "                    set tid to ti as text";
  EXPECT_EQ(snapshotScript(Browser::safari), lines(safari));
}

TEST(BrowserScriptsTest, CloseScripts) {
  EXPECT_EQ(closeScript(tab(Browser::chrome, "https://x.org/\"q\""), true, 2),
            lines(kChromeAutomaticClose));
  EXPECT_EQ(closeScript(tab(Browser::safari, "https://x.org/a\nb"), true, -3),
            lines(kSafariAutomaticClose));

  // A manual close has no guard lines; a tab without an id matches no tab.
  LiveTab edge = tab(Browser::edge, "https://x.org/\"q\"");
  edge.tabID.reset();
  edge.windowID = -7;
  std::vector<std::string> expected = kChromeAutomaticClose;
  expected[1] = "    tell application id \"com.microsoft.edgemac\"";
  expected[4] = "            if (id of w) as text is \"-7\" then";
  expected[9] = "                    if (id of t) as text is \"\" then";
  expected[11] = expected[12] = std::string(24, ' ');
  EXPECT_EQ(closeScript(edge, false, 5), lines(expected));

  std::vector<std::string> manual = kSafariAutomaticClose;
  manual[15] = manual[16] = std::string(24, ' ');
  EXPECT_EQ(closeScript(tab(Browser::safari, "https://x.org/a\nb"), false, 3), lines(manual));
}

}  // namespace
}  // namespace velto::BrowserScripts
