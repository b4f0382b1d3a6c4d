// Whatever the app can hold in memory, a save must be loadable again: random records
// over the full range of every field are written and read back, and what the file form
// cannot hold is refused at save time rather than written for every later load to fail.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <random>

#include "core/model/library_codec.h"
#include "core/model/library_store.h"
#include "core/support/testing/files.h"

namespace velto {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono;

const Date kFirstWritable = dateFromUTC(1, 1, 1);
const Date kLastWritable = dateFromUTC(9999, 12, 31, 23, 59, 59);

// Random values over each field's whole range, with its edges drawn often.
class RandomRecords {
 public:
  explicit RandomRecords(uint64_t seed) : random_(seed) {}

  LibraryState library() {
    LibraryState state;
    state.version = integer();
    for (size_t n = below(4); n-- > 0;) state.tabs.push_back(savedTab());
    for (size_t n = below(4); n-- > 0;) state.liveTabs.push_back(liveTab());
    state.liveUpdatedAt = maybe([&] { return date(); });
    state.preferences = preferences();
    for (size_t n = below(3); n-- > 0;) {
      state.clients.push_back({uuid(), text(), text(), flip(), date()});
    }
    return state;
  }

 private:
  size_t below(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(random_); }
  bool flip() { return below(2) == 1; }
  template <class F>
  auto maybe(F make) -> std::optional<decltype(make())> {
    if (flip()) return make();
    return std::nullopt;
  }

  int64_t integer() {
    constexpr int64_t edges[] = {std::numeric_limits<int64_t>::min(),
                                 std::numeric_limits<int64_t>::max(), -1, 0, 1};
    if (below(3) == 0) return edges[below(std::size(edges))];
    return static_cast<int64_t>(random_());
  }

  // Whole seconds: the file keeps no fraction.
  Date date() {
    if (below(4) == 0) return flip() ? kFirstWritable : kLastWritable;
    const auto first = duration_cast<seconds>(kFirstWritable.time_since_epoch()).count();
    const auto last = duration_cast<seconds>(kLastWritable.time_since_epoch()).count();
    return Date(seconds(std::uniform_int_distribution<int64_t>(first, last)(random_)));
  }

  // Well-formed UTF-8 from every plane: controls, quotes, backslashes and slashes
  // included, and the NUL character.
  std::string text() {
    std::string out;
    for (size_t n = below(12); n-- > 0;) {
      constexpr uint32_t ranges[][2] = {{0x00, 0x7f},    {0x20, 0x7e},     {0x80, 0x7ff},
                                        {0x800, 0xd7ff}, {0xe000, 0xffff}, {0x10000, 0x10ffff}};
      const auto& range = ranges[below(std::size(ranges))];
      const auto c = std::uniform_int_distribution<uint32_t>(range[0], range[1])(random_);
      if (c < 0x80) {
        out.push_back(static_cast<char>(c));
      } else if (c < 0x800) {
        out.append({static_cast<char>(0xc0 | c >> 6), static_cast<char>(0x80 | (c & 0x3f))});
      } else if (c < 0x10000) {
        out.append({static_cast<char>(0xe0 | c >> 12), static_cast<char>(0x80 | (c >> 6 & 0x3f)),
                    static_cast<char>(0x80 | (c & 0x3f))});
      } else {
        out.append({static_cast<char>(0xf0 | c >> 18), static_cast<char>(0x80 | (c >> 12 & 0x3f)),
                    static_cast<char>(0x80 | (c >> 6 & 0x3f)),
                    static_cast<char>(0x80 | (c & 0x3f))});
      }
    }
    return out;
  }

  Uuid uuid() {
    Uuid id;
    for (uint8_t& byte : id.bytes) byte = static_cast<uint8_t>(random_());
    return id;
  }
  Browser browser() { return kAllBrowsers[below(std::size(kAllBrowsers))]; }

  SavedTab savedTab() {
    SavedTab tab;
    tab.id = uuid();
    tab.title = text();
    tab.url = text();
    tab.browser = browser();
    tab.savedAt = date();
    tab.closedAt = maybe([&] { return date(); });
    tab.state = static_cast<ArchiveState>(below(3));
    tab.isFavorite = flip();
    return tab;
  }

  LiveTab liveTab() {
    LiveTab tab;
    tab.id = text();
    tab.browser = browser();
    tab.windowID = integer();
    tab.tabID = maybe([&] { return text(); });
    tab.index = integer();
    tab.title = text();
    tab.url = text();
    tab.isActive = flip();
    tab.pinState = static_cast<PinState>(below(3));
    tab.lastActiveAt = date();
    tab.observedAt = date();
    tab.neverSelectedSince = maybe([&] { return date(); });
    tab.lastVisitAt = maybe([&] { return date(); });
    return tab;
  }

  Preferences preferences() {
    Preferences p;
    p.idleHours = integer();
    p.autoClose = flip();
    p.tabLimit = maybe([&] { return integer(); });
    p.automaticTabLimit = maybe([&] { return flip(); });
    p.connectedBrowsers = {};
    for (Browser b : kAllBrowsers) {
      if (flip()) p.connectedBrowsers.insert(b);
    }
    p.exclusions.clear();
    for (size_t n = below(4); n-- > 0;) p.exclusions.push_back(text());
    p.flaURL = text();
    for (auto* flag : {&p.websiteIcons, &p.veltoActivity, &p.compactActivity, &p.confirmTuckAway,
                       &p.memoryAlerts, &p.browserHistory}) {
      *flag = maybe([&] { return flip(); });
    }
    p.protectedTabs = maybe([&] { return integer(); });
    return p;
  }

  std::mt19937_64 random_;
};

TEST(LibraryRoundTripTest, RandomLibrariesReadBackEqual) {
  RandomRecords records(20261123);
  for (int round = 0; round < 300; ++round) {
    const LibraryState state = records.library();
    const auto bytes = encodeLibraryFile(state);
    ASSERT_TRUE(bytes) << bytes.error().message;
    const auto decoded = decodeLibrary(*bytes);
    ASSERT_TRUE(decoded) << decoded.error().message << "\n" << *bytes;
    ASSERT_EQ(*decoded, state) << *bytes;
  }
}

using LibrarySaveTest = testing::TempDirTest;

TEST_F(LibrarySaveTest, RandomLibrariesSurviveSaveAndLoad) {
  const LibraryStore store(root_ / "Velto");
  RandomRecords records(7);
  for (int round = 0; round < 20; ++round) {
    LibraryState state = records.library();
    state.version = 1;  // the only version a load accepts
    ASSERT_TRUE(store.save(state));
    const auto loaded = store.load();
    ASSERT_TRUE(loaded) << loaded.error().message;
    EXPECT_EQ(*loaded, state);
  }
}

// A date the file form cannot hold would be written as text every later load refuses,
// making the whole library unreadable: the save fails instead and the file stays.
TEST_F(LibrarySaveTest, DatesOutsideTheWritableYearsFailTheSaveAndKeepTheFile) {
  const LibraryStore store(root_ / "Velto");
  LibraryState good;
  good.tabs.emplace_back().savedAt = kLastWritable;
  good.liveUpdatedAt = kFirstWritable;
  ASSERT_TRUE(store.save(good));
  const std::string before = testing::readFile(store.fileURL());
  EXPECT_EQ(*store.load(), good);

  using Edit = std::pair<std::function<void(LibraryState&)>, std::string>;  // change, key path
  const Date tooLate = kLastWritable + seconds(1);
  const Date tooEarly = kFirstWritable - microseconds(1);
  for (const auto& [edit, path] : std::vector<Edit>{
           {[&](LibraryState& s) { s.tabs[0].savedAt = tooLate; }, "tabs[0].savedAt"},
           {[&](LibraryState& s) { s.tabs[0].closedAt = tooEarly; }, "tabs[0].closedAt"},
           {[&](LibraryState& s) { s.liveUpdatedAt = dateFromUTC(-5, 3, 1); }, "liveUpdatedAt"},
           {[&](LibraryState& s) { s.liveTabs.emplace_back().lastVisitAt = tooLate; },
            "liveTabs[0].lastVisitAt"},
           {[&](LibraryState& s) { s.liveTabs.emplace_back().neverSelectedSince = tooEarly; },
            "liveTabs[0].neverSelectedSince"},
           {[&](LibraryState& s) {
              s.liveTabs.emplace_back().observedAt = dateFromUTC(12000, 1, 1);
            },
            "liveTabs[0].observedAt"},
           {[&](LibraryState& s) { s.clients.emplace_back().createdAt = tooLate; },
            "clients[0].createdAt"}}) {
    LibraryState bad = good;
    edit(bad);
    const auto saved = store.save(bad);
    ASSERT_FALSE(saved) << path;
    EXPECT_EQ(saved.error().message, "The library could not be saved: \"" + path +
                                         "\" is a date outside the years 1 to 9999, which the "
                                         "file cannot hold.");
    EXPECT_EQ(testing::readFile(store.fileURL()), before) << path;
    EXPECT_EQ(std::distance(fs::directory_iterator(root_ / "Velto"), fs::directory_iterator()), 1);
  }
}

}  // namespace
}  // namespace velto
