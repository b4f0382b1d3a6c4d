#include "core/browser/session_file.h"

#include <gtest/gtest.h>

#include "core/browser/session_pickle.h"
#include "core/browser/testing/session_file_builder.h"
#include "core/support/testing/files.h"

namespace velto {
namespace {

using testing::SessionFileBuilder;

// Microseconds since 1601 for a time since 1970, as the browser records times.
int64_t windowsTime(int64_t secondsSince1970) { return (secondsSince1970 + 11644473600) * 1000000; }

SessionTab tab(int32_t id, std::string url, std::string title = "") {
  return SessionTab{id, false, std::nullopt, std::move(url), std::move(title)};
}

std::vector<int32_t> tabIDs(const SessionWindow& window) {
  std::vector<int32_t> ids;
  for (const auto& tab : window.tabs) ids.push_back(tab.id);
  return ids;
}

// A window 1 with tabs 10 and 11 on a.org and b.org, 11 selected.
SessionFileBuilder twoTabs() {
  SessionFileBuilder file;
  file.tabWindow(1, 10).tabIndex(10, 0).navigation(10, 0, "https://a.org/", "A");
  file.tabWindow(1, 11).tabIndex(11, 1).navigation(11, 0, "https://b.org/", "B");
  file.selectedTab(1, 1);
  return file;
}

std::string seed(const std::string& name) {
  return testing::readFile(std::string(VELTO_SOURCE_DIR) + "/fuzz/seeds/session_file/" + name);
}

Date dateFrom1601(int64_t microseconds) {
  return Date(std::chrono::microseconds(microseconds - 11644473600LL * 1000000));
}

TEST(SessionFileTest, ReplaysRealChromiumFiles) {
  // Chromium 156 opened a.html and b.html from the command line, then a third tab
  // (a.html?c) through DevTools, which also closed b.html.
  const std::string bytes = seed("chromium_156_closed_tab");
  ASSERT_EQ(bytes.size(), 3178u);
  const std::string base = "http://127.0.0.1:18765/";
  SessionWindow expected{
      1173110047, {tab(1173110048, base + "a.html"), tab(1173110050, base + "a.html?c")}, 1};
  expected.tabs[0].lastActiveAt = dateFrom1601(13439926511629672);
  expected.tabs[1].lastActiveAt = dateFrom1601(13439926531074422);
  const auto session = SessionFile::parse(bytes);
  ASSERT_TRUE(session);
  EXPECT_EQ(session->version, 3);
  ASSERT_EQ(session->windows.size(), 1u);
  EXPECT_EQ(session->windows[0], expected);

  // Before the close (the file as it stood while being appended to, cut inside the
  // closing command): all three tabs, the new one selected.
  const auto before = SessionFile::parse(bytes.substr(0, 3040));
  ASSERT_TRUE(before);
  EXPECT_EQ(tabIDs(before->windows.at(0)),
            (std::vector<int32_t>{1173110048, 1173110049, 1173110050}));
  EXPECT_EQ(before->windows[0].selected, 2u);
  EXPECT_EQ(before->windows[0].tabs[1].url, base + "b.html");

  // A fresh browser's first file, without an end-of-snapshot marker: c.html moved on to
  // a.html?next by script; a second window was opened on b.html and closed with its tab.
  const std::string other = "http://127.0.0.1:18766/";
  SessionWindow first{
      737688924, {tab(737688925, other + "a.html"), tab(737688926, other + "a.html?next")}, 0};
  first.tabs[0].lastActiveAt = dateFrom1601(13439928810205180);
  EXPECT_EQ(SessionFile::parse(seed("chromium_156_history_and_closed_window")),
            (Session{3, {first}}));
}

TEST(SessionFileTest, HeadersOtherThanPlainVersionsOneAndThreeAreRefused) {
  EXPECT_EQ(SessionFile::parse(SessionFileBuilder(1).bytes()), (Session{1, {}}));
  EXPECT_EQ(SessionFile::parse(SessionFileBuilder(3).bytes()), (Session{3, {}}));
  for (int32_t version : {0, 2, 4, -1, 1 << 16}) {
    EXPECT_EQ(SessionFile::parse(SessionFileBuilder(version).bytes()), std::nullopt) << version;
  }
  for (const char* bytes : {"", "SNSS", "SNSS\1\0\0", "SNSX\1\0\0\0", "snss\1\0\0\0"}) {
    EXPECT_EQ(SessionFile::parse(bytes), std::nullopt) << bytes;
  }
  // Version 1 files have no end-of-snapshot marker, version 3 ones need not have one yet.
  const auto withoutMarker = SessionFile::parse(twoTabs().bytes());
  const auto withMarker = SessionFile::parse(twoTabs().marker().bytes());
  ASSERT_TRUE(withoutMarker);
  EXPECT_EQ(withoutMarker, withMarker);
}

TEST(SessionFileTest, TabsFollowTheirWindowPositionAndSelection) {
  SessionFileBuilder file = twoTabs();
  // Tab 12 first lands in window 1, then moves to window 2 at position 0; tab 13 takes
  // position 1 in window 1 too (tied positions keep the order the file named them in).
  file.tabWindow(1, 12).navigation(12, 0, "https://c.org/", "").tabIndex(12, 5);
  file.tabWindow(2, 12).tabIndex(12, 0);
  file.tabWindow(1, 13).tabIndex(13, 1).navigation(13, 0, "https://d.org/", "D");
  file.pinned(10, true).pinned(13, true).pinned(13, false);
  file.lastActive(11, windowsTime(1700000000));
  file.selectedTab(2, 7);  // beyond its one tab: the last one
  const auto session = SessionFile::parse(file.bytes());
  ASSERT_TRUE(session);
  ASSERT_EQ(session->windows.size(), 2u);
  const SessionWindow& first = session->windows[0];
  EXPECT_EQ(first.id, 1);
  EXPECT_EQ(tabIDs(first), (std::vector<int32_t>{10, 11, 13}));
  EXPECT_EQ(first.selected, 1u);
  EXPECT_TRUE(first.tabs[0].pinned);
  EXPECT_FALSE(first.tabs[2].pinned);
  EXPECT_EQ(first.tabs[1].lastActiveAt, dateFromSecondsSince1970(1700000000));
  EXPECT_EQ(first.tabs[0].lastActiveAt, std::nullopt);
  // Times before 1970 or past year 9999 are not kept.
  for (int64_t garbage : {int64_t{0}, windowsTime(-1), INT64_MAX, windowsTime(253402300800)}) {
    EXPECT_EQ(SessionFile::parse(SessionFileBuilder(file).lastActive(10, garbage).bytes())
                  ->windows[0]
                  .tabs[0]
                  .lastActiveAt,
              std::nullopt)
        << garbage;
  }
  EXPECT_EQ(session->windows[1], (SessionWindow{2, {tab(12, "https://c.org/")}, 0}));
}

TEST(SessionFileTest, ClosedTabsAndWindowsAndTabsWithoutPagesAreGone) {
  SessionFileBuilder file = twoTabs();
  file.tabWindow(2, 20).navigation(20, 0, "https://closed-window.org/", "");
  file.windowClosed(2);
  file.tabWindow(1, 12).tabIndex(12, 2);  // never navigated
  file.tabClosed(10);
  file.tabWindow(3, 30).navigation(30, 0, "devtools://devtools/", "").windowType(3, 3);
  file.tabWindow(4, 40).navigation(40, 0, "https://popup.org/", "").windowType(4, 1);
  file.navigation(50, 0, "https://no-window.org/", "");
  const auto session = SessionFile::parse(file.bytes());
  ASSERT_TRUE(session);
  ASSERT_EQ(session->windows.size(), 2u);
  // The selection still names position 1, which is now past the last tab.
  EXPECT_EQ(session->windows[0], (SessionWindow{1, {tab(11, "https://b.org/", "B")}, 0}));
  EXPECT_EQ(session->windows[1].id, 4);

  // A closed id that comes back is a new tab.
  file.tabWindow(1, 10).navigation(10, 0, "https://again.org/", "");
  EXPECT_EQ(tabIDs(SessionFile::parse(file.bytes())->windows[0]), (std::vector<int32_t>{10, 11}));
}

TEST(SessionFileTest, TheSelectedNavigationGivesThePage) {
  SessionFileBuilder file;
  file.tabWindow(1, 10);
  for (int i = 0; i < 5; ++i) {
    file.navigation(10, i, "https://a.org/" + std::to_string(i), "Page " + std::to_string(i));
  }
  file.navigation(10, 2, "https://a.org/2b", "");  // the entry rewritten, title not yet known
  const auto page = [&](SessionFileBuilder more) {
    const auto tabs = SessionFile::parse(more.bytes())->windows.at(0).tabs;
    return std::pair(tabs.at(0).url, tabs.at(0).title);
  };
  using Page = std::pair<std::string, std::string>;
  EXPECT_EQ(page(SessionFileBuilder(file).selectedNavigation(10, 3)),
            Page("https://a.org/3", "Page 3"));
  EXPECT_EQ(page(SessionFileBuilder(file).selectedNavigation(10, 2)), Page("https://a.org/2b", ""));
  // Gone from the back: the last one left. Gone from the front: indices move down.
  EXPECT_EQ(page(SessionFileBuilder(file).selectedNavigation(10, 4).ints(5, {10, 2})),
            Page("https://a.org/1", "Page 1"));
  EXPECT_EQ(page(SessionFileBuilder(file).selectedNavigation(10, 4).ints(11, {10, 3})),
            Page("https://a.org/4", "Page 4"));
  EXPECT_EQ(page(SessionFileBuilder(file).ints(11, {10, 3}).selectedNavigation(10, 0)),
            Page("https://a.org/3", "Page 3"));
  // Two removed from the middle: the selected one moves down with the rest.
  EXPECT_EQ(page(SessionFileBuilder(file).selectedNavigation(10, 3).ints(24, {10, 1, 2})),
            Page("https://a.org/3", "Page 3"));
  EXPECT_EQ(page(SessionFileBuilder(file).ints(24, {10, 1, 2}).selectedNavigation(10, 1)),
            Page("https://a.org/3", "Page 3"));
  // A missing index picks the next page, or the last when none follows.
  EXPECT_EQ(page(SessionFileBuilder(file)
                     .ints(24, {10, 1, 1})
                     .ints(11, {10, 0})
                     .selectedNavigation(10, 9)),
            Page("https://a.org/4", "Page 4"));
}

TEST(SessionFileTest, TitlesAreUTF16AndTextIsAlwaysUTF8) {
  SessionFileBuilder file;
  file.tabWindow(1, 10).navigation(10, 0, "https://a.org/\xff",
                                   "Caf\xc3\xa9 \xe2\x86\x92 \xf0\x9f\x98\x80");
  const SessionTab tab = SessionFile::parse(file.bytes())->windows.at(0).tabs.at(0);
  EXPECT_EQ(tab.title, "Caf\xc3\xa9 \xe2\x86\x92 \xf0\x9f\x98\x80");
  EXPECT_EQ(tab.url, "https://a.org/\xef\xbf\xbd");
  // Lone surrogates, high and low, cannot be UTF-8 and become replacement characters.
  EXPECT_EQ(utf8FromUTF16LE(std::string("\x3d\xd8\x41\x00\x00\xdc", 6)),
            "\xef\xbf\xbd"
            "A\xef\xbf\xbd");
  EXPECT_EQ(utf8FromUTF16LE(std::string("\x41\x00\x42", 3)), "A");  // an odd byte is dropped
}

TEST(SessionFileTest, HostileBytesAreSkippedNeverTrusted) {
  const std::string good = twoTabs().bytes();
  const auto expected = SessionFile::parse(good);

  // A pickle that claims more than it holds, a URL longer than the pickle, a negative
  // title length, fixed payloads that are too short, an empty command: each ignored.
  SessionFileBuilder file = twoTabs();
  std::string pickle;
  SessionFileBuilder::int32(pickle, 0x7FFFFFFF);
  SessionFileBuilder::int32(pickle, 11);
  SessionFileBuilder::int32(pickle, 0);
  SessionFileBuilder::int32(pickle, 0x7FFFFFF0);
  file.command(6, pickle + "https://evil.org/");
  std::string negative;
  SessionFileBuilder::int32(negative, 16);
  for (int32_t value : {11, 0, 0, -4}) SessionFileBuilder::int32(negative, value);
  file.command(6, negative);
  file.command(0, "\1\0\0\0")
      .command(8, "\1\0")
      .command(12, "\x0b\0\0\0")
      .command(21, "\x0b\0\0\0\0\0\0\0\1");
  file.command(0, "", 0);
  EXPECT_EQ(SessionFile::parse(file.bytes()), expected);

  // A last command cut short, as a file being appended to can end: ignored.
  const std::string partial =
      SessionFileBuilder(twoTabs()).navigation(11, 0, "https://c.org/", "C").bytes();
  for (size_t cut = good.size(); cut < partial.size(); ++cut) {
    EXPECT_EQ(SessionFile::parse(std::string_view(partial).substr(0, cut)), expected) << cut;
  }
  // A length beyond the end of the file, then nothing more is read.
  EXPECT_EQ(SessionFile::parse(good + "\xff\xff\x06"), expected);

  // Every prefix and every single-byte change of a real file parses without failing.
  std::string bytes = SessionFileBuilder(twoTabs())
                          .pinned(10, true)
                          .lastActive(10, 1)
                          .tabClosed(11)
                          .marker()
                          .bytes();
  for (size_t cut = 0; cut <= bytes.size(); ++cut)
    (void)SessionFile::parse(std::string_view(bytes).substr(0, cut));
  for (size_t at = 8; at < bytes.size(); ++at) {
    std::string changed = bytes;
    changed[at] = static_cast<char>(changed[at] ^ 0xA5);
    EXPECT_TRUE(SessionFile::parse(changed)) << at;
  }
}

TEST(SessionFileTest, AHostileTabKeepsABoundedHistory) {
  SessionFileBuilder file;
  file.tabWindow(1, 10);
  for (int i = 0; i < 1000; ++i) file.navigation(10, i, "https://a.org/" + std::to_string(i), "");
  file.selectedNavigation(10, 0);  // long dropped: the oldest page kept stands in
  const auto tabs = SessionFile::parse(file.bytes())->windows.at(0).tabs;
  EXPECT_EQ(tabs.at(0).url, "https://a.org/872");
}

}  // namespace
}  // namespace velto
