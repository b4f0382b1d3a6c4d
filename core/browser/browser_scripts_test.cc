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
      {"plain", R"("plain")"},
      {R"(a\b)", R"("a\\b")"},
      {R"(say "hi")", R"("say \"hi\"")"},
      {"a\rb\nc", R"("a\rb\nc")"},
      {"\\\"", R"("\\\"")"},  // the quote's new backslash is not doubled again
      {"tab\there\x01", "\"tab\there\x01\""},
      {"caf\u00e9 \u2265", "\"caf\u00e9 \u2265\""},
  };
  for (const auto& c : cases) EXPECT_EQ(BrowserScripts::quoted(c.text), c.literal) << c.text;
}

TEST(BrowserScriptsTest, ChromiumSnapshotScript) {
  EXPECT_EQ(snapshotScript(Browser::brave),
            lines({"with timeout of 12 seconds",
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
                   "                    if tu is not missing value then set end of rows to {wi, "
                   "tid, ti, tn, tu, ta}",
                   "                end try",
                   "                if (count of rows) \u2265 1000 then return rows",
                   "            end repeat",
                   "            end if",
                   "        end repeat",
                   "        return rows",
                   "    end tell",
                   "end timeout"}));
  EXPECT_NE(snapshotScript(Browser::chrome).find("\"com.google.Chrome\""), std::string::npos);
  EXPECT_NE(snapshotScript(Browser::edge).find("\"com.microsoft.edgemac\""), std::string::npos);
}

TEST(BrowserScriptsTest, SafariSnapshotScriptKeepsEmptyLines) {
  EXPECT_EQ(snapshotScript(Browser::safari),
            lines({"with timeout of 12 seconds",
                   "    tell application id \"com.apple.Safari\"",
                   "        set rows to {}",
                   "        repeat with w in windows",
                   "            ",
                   "            set wi to (id of w) as text",
                   "            ",
                   "            set n to count of tabs of w",
                   "            repeat with ti from 1 to n",
                   "                try",
                   "                    set t to tab ti of w",
                   "                    set tu to URL of t",
                   "                    set tn to name of t",
                   "                    set ta to visible of t",
                   "                    set tid to ti as text",
                   "                    if tu is not missing value then set end of rows to {wi, "
                   "tid, ti, tn, tu, ta}",
                   "                end try",
                   "                if (count of rows) \u2265 1000 then return rows",
                   "            end repeat",
                   "            ",
                   "        end repeat",
                   "        return rows",
                   "    end tell",
                   "end timeout"}));
}

TEST(BrowserScriptsTest, ChromiumAutomaticCloseScript) {
  EXPECT_EQ(closeScript(tab(Browser::chrome, "https://x.org/\"q\""), true, 2),
            lines({"with timeout of 10 seconds",
                   "    tell application id \"com.google.Chrome\"",
                   "        if not running then return false",
                   "        repeat with w in windows",
                   "            if (id of w) as text is \"1234\" then",
                   "                if mode of w is not \"normal\" then return false",
                   "                ",
                   "                repeat with ti from 1 to count of tabs of w",
                   "                    set t to tab ti of w",
                   "                    if (id of t) as text is \"567\" then",
                   "                        if URL of t is not \"https://x.org/\\\"q\\\"\" then "
                   "return false",
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
                   "end timeout"}));
}

TEST(BrowserScriptsTest, ChromiumManualCloseWithoutTabIDMatchesNothing) {
  LiveTab t = tab(Browser::edge, "https://x.org/");
  t.tabID.reset();
  t.windowID = -7;
  EXPECT_EQ(
      closeScript(t, false, 5),
      lines({"with timeout of 10 seconds",
             "    tell application id \"com.microsoft.edgemac\"",
             "        if not running then return false",
             "        repeat with w in windows",
             "            if (id of w) as text is \"-7\" then",
             "                if mode of w is not \"normal\" then return false",
             "                ",
             "                repeat with ti from 1 to count of tabs of w",
             "                    set t to tab ti of w",
             "                    if (id of t) as text is \"\" then",
             "                        if URL of t is not \"https://x.org/\" then return false",
             "                        ",
             "                        ",
             "                        close t",
             "                        return true",
             "                    end if",
             "                end repeat",
             "            end if",
             "        end repeat",
             "        return false",
             "    end tell",
             "end timeout"}));
}

// The Safari close script for tab(safari, "https://x.org/a\nb") closed automatically with
// protectedTabs -3 (so 0).
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

TEST(BrowserScriptsTest, SafariAutomaticCloseHasUnindentedUniquenessBlock) {
  EXPECT_EQ(closeScript(tab(Browser::safari, "https://x.org/a\nb"), true, -3),
            lines(kSafariAutomaticClose));
}

TEST(BrowserScriptsTest, SafariManualCloseLeavesGuardLinesEmpty) {
  std::vector<std::string> expected = kSafariAutomaticClose;
  expected[15] = expected[16] = std::string(24, ' ');
  EXPECT_EQ(closeScript(tab(Browser::safari, "https://x.org/a\nb"), false, 3), lines(expected));
}

}  // namespace
}  // namespace velto::BrowserScripts
