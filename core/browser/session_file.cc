#include "core/browser/session_file.h"

#include <algorithm>
#include <map>
#include <unordered_map>

#include "core/browser/session_pickle.h"
#include "core/support/text.h"

namespace velto::SessionFile {

namespace {

// Command ids of the session format. Payloads of the plain ones are fixed-layout records
// of 4-byte ids and indices; UpdateTabNavigation's is pickled.
enum Command : uint8_t {
  kSetTabWindow = 0,           // window id, tab id
  kSetTabIndexInWindow = 2,    // tab id, position in the tab strip
  kTabClosedObsolete = 3,      // tab id, ...
  kWindowClosedObsolete = 4,   // window id, ...
  kPrunedFromBack = 5,         // tab id, first navigation index removed
  kUpdateTabNavigation = 6,    // pickle: tab id, navigation index, URL, title, ...
  kSetSelectedNavigation = 7,  // tab id, navigation index
  kSetSelectedTab = 8,         // window id, position of the selected tab
  kSetWindowType = 9,          // window id, type
  kPrunedFromFront = 11,       // tab id, number of navigations removed from the front
  kSetPinnedState = 12,        // tab id, one byte: pinned
  kTabClosed = 16,             // tab id, padding, close time
  kWindowClosed = 17,          // window id, padding, close time
  kLastActiveTime = 21,        // tab id, padding, microseconds since 1601-01-01 UTC
  kPruned = 24,                // tab id, first navigation index removed, count removed
};

constexpr int32_t kDevToolsWindow = 3;
// A real tab keeps at most 50 navigations; a hostile file must not make every prune
// command walk an unbounded list.
constexpr size_t kMaxNavigations = 128;
constexpr int64_t kMicrosecondsFrom1601To1970 = 11644473600LL * 1000000;
// The last microsecond of year 9999: later times are garbage that a library could not
// write back as a date.
constexpr int64_t kLatestMicrosecondsSince1970 = 253402300799999999LL;

// Microseconds since 1601-01-01 UTC as a date from 1970 to year 9999; absent otherwise.
std::optional<Date> dateFrom1601(int64_t time) {
  if (time < kMicrosecondsFrom1601To1970 ||
      time - kMicrosecondsFrom1601To1970 > kLatestMicrosecondsSince1970) {
    return std::nullopt;
  }
  return Date(std::chrono::microseconds(time - kMicrosecondsFrom1601To1970));
}

struct Navigation {
  std::string url;
  std::string title;
};

struct TabState {
  uint64_t order = 0;  // when the file first named the tab, to break ties of position
  std::optional<int32_t> window;
  int32_t index = 0;
  int32_t selectedNavigation = 0;
  bool pinned = false;
  std::optional<Date> lastActiveAt;
  std::map<int32_t, Navigation> navigations;
};

struct WindowState {
  uint64_t order = 0;
  int32_t selected = 0;
  int32_t type = 0;
};

class Replay {
 public:
  void apply(uint8_t command, std::string_view payload) {
    const auto first = int32At(payload, 0), second = int32At(payload, 4);
    switch (command) {
      case kSetTabWindow:
        if (first && second) {
          window(*first);
          tab(*second).window = *first;
        }
        break;
      case kSetTabIndexInWindow:
        if (first && second) tab(*first).index = *second;
        break;
      case kTabClosed:
      case kTabClosedObsolete:
        if (first) tabs_.erase(*first);
        break;
      case kWindowClosed:
      case kWindowClosedObsolete:
        if (first) windows_.erase(*first);
        break;
      case kPrunedFromBack:
        if (first && second) prune(tab(*first), *second, INT32_MAX);
        break;
      case kPrunedFromFront:
        if (first && second) prune(tab(*first), 0, *second);
        break;
      case kPruned:
        if (const auto count = int32At(payload, 8); first && second && count) {
          prune(tab(*first), *second, *count);
        }
        break;
      case kUpdateTabNavigation:
        updateNavigation(payload);
        break;
      case kSetSelectedNavigation:
        if (first && second) tab(*first).selectedNavigation = *second;
        break;
      case kSetSelectedTab:
        if (first && second) window(*first).selected = *second;
        break;
      case kSetWindowType:
        if (first && second) window(*first).type = *second;
        break;
      case kSetPinnedState:
        if (first && payload.size() > 4) tab(*first).pinned = payload[4] != 0;
        break;
      case kLastActiveTime:
        // The 64-bit time follows the id at its natural alignment.
        if (const auto time = int64At(payload, 8); first && time) {
          if (const auto date = dateFrom1601(*time)) tab(*first).lastActiveAt = *date;
        }
        break;
      default:
        break;
    }
  }

  std::vector<SessionWindow> windows() const {
    struct Member {
      int32_t index;
      uint64_t order;
      SessionTab tab;
    };
    std::unordered_map<int32_t, std::vector<Member>> members;
    for (const auto& [id, state] : tabs_) {
      if (!state.window || state.navigations.empty()) continue;
      members[*state.window].push_back({state.index, state.order, sessionTab(id, state)});
    }
    std::vector<std::pair<uint64_t, SessionWindow>> open;
    for (const auto& [id, state] : windows_) {
      const auto found = members.find(id);
      if (state.type == kDevToolsWindow || found == members.end()) continue;
      auto& list = found->second;
      std::sort(list.begin(), list.end(), [](const Member& a, const Member& b) {
        return std::pair(a.index, a.order) < std::pair(b.index, b.order);
      });
      SessionWindow window{id, {}, 0};
      for (Member& member : list) window.tabs.push_back(std::move(member.tab));
      window.selected = static_cast<size_t>(
          std::clamp<int64_t>(state.selected, 0, static_cast<int64_t>(window.tabs.size()) - 1));
      open.emplace_back(state.order, std::move(window));
    }
    std::sort(open.begin(), open.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<SessionWindow> result;
    for (auto& entry : open) result.push_back(std::move(entry.second));
    return result;
  }

 private:
  TabState& tab(int32_t id) {
    auto [entry, inserted] = tabs_.try_emplace(id);
    if (inserted) entry->second.order = next_++;
    return entry->second;
  }
  WindowState& window(int32_t id) {
    auto [entry, inserted] = windows_.try_emplace(id);
    if (inserted) entry->second.order = next_++;
    return entry->second;
  }

  // Removes the navigations [from, from + count) and moves the later ones down by
  // `count`, as the browser does when it drops entries from a tab's history.
  static void prune(TabState& state, int32_t from, int32_t count) {
    if (count <= 0) return;
    const int64_t end = static_cast<int64_t>(from) + count;
    std::map<int32_t, Navigation> kept;
    for (auto& [index, navigation] : state.navigations) {
      if (index < from) {
        kept.emplace(index, std::move(navigation));
      } else if (index >= end) {
        kept.emplace(static_cast<int32_t>(index - count), std::move(navigation));
      }
    }
    state.navigations = std::move(kept);
    if (state.selectedNavigation >= end) {
      state.selectedNavigation = static_cast<int32_t>(state.selectedNavigation - count);
    } else if (state.selectedNavigation >= from) {
      state.selectedNavigation = from;
    }
  }

  void updateNavigation(std::string_view payload) {
    PickleReader pickle(payload);
    const auto id = pickle.readInt32();
    const auto index = pickle.readInt32();
    auto url = pickle.readString();
    auto title = pickle.readString16();
    if (!id || !index || !url || !title) return;
    TabState& state = tab(*id);
    if (!state.navigations.contains(*index) && state.navigations.size() >= kMaxNavigations) {
      // The oldest history goes first; the selected page is nearly always a recent one.
      state.navigations.erase(state.navigations.begin());
    }
    // URLs are ASCII in practice; whatever else a file holds must not reach the library.
    if (!isValidUTF8(*url)) *url = sanitizedUTF8(*url);
    state.navigations[*index] = Navigation{std::move(*url), std::move(*title)};
  }

  // The page of the selected navigation; the nearest later one when that index is gone,
  // the last one when none follows.
  static SessionTab sessionTab(int32_t id, const TabState& state) {
    auto page = state.navigations.lower_bound(state.selectedNavigation);
    if (page == state.navigations.end()) page = std::prev(page);
    return SessionTab{id, state.pinned, state.lastActiveAt, page->second.url, page->second.title};
  }

  std::unordered_map<int32_t, TabState> tabs_;
  std::unordered_map<int32_t, WindowState> windows_;
  uint64_t next_ = 0;
};

}  // namespace

std::optional<Session> parse(std::string_view bytes) {
  if (!bytes.starts_with("SNSS")) return std::nullopt;
  const auto version = int32At(bytes, 4);
  if (version != 1 && version != 3) return std::nullopt;  // 2 and 4 are encrypted
  Replay replay;
  for (size_t at = 8; bytes.size() - at >= 2;) {
    const size_t size = static_cast<unsigned char>(bytes[at]) |
                        static_cast<size_t>(static_cast<unsigned char>(bytes[at + 1])) << 8;
    at += 2;
    if (size > bytes.size() - at) break;  // the browser is still writing it
    if (size > 0) replay.apply(static_cast<uint8_t>(bytes[at]), bytes.substr(at + 1, size - 1));
    at += size;
  }
  return Session{*version, replay.windows()};
}

}  // namespace velto::SessionFile
