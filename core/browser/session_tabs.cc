#include "core/browser/session_tabs.h"

#include "core/support/text.h"

namespace velto::SessionTabs {

int64_t windowID(std::string_view profile, int32_t sessionWindowID) {
  if (profile == "Default") return sessionWindowID;
  uint32_t hash = 2166136261u;
  for (const char c : profile) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 16777619u;
  }
  return static_cast<int64_t>(hash & 0x7FFFFFFFu) << 32 | static_cast<uint32_t>(sessionWindowID);
}

void append(const Session& session, std::string_view profile, Browser browser,
            const std::unordered_map<std::string, std::string>& titles, Date now,
            std::vector<LiveTab>& tabs) {
  for (const SessionWindow& window : session.windows) {
    const int64_t windowID = SessionTabs::windowID(profile, window.id);
    for (size_t position = 0; position < window.tabs.size(); ++position) {
      if (tabs.size() >= kMaxTabs) return;
      const SessionTab& source = window.tabs[position];
      LiveTab& tab = tabs.emplace_back();
      tab.tabID = std::to_string(source.id);
      tab.id = std::string(rawValue(browser)) + ":" + std::to_string(windowID) + ":" + *tab.tabID;
      tab.browser = browser;
      tab.windowID = windowID;
      tab.index = static_cast<int64_t>(position) + 1;
      tab.title = source.title;
      if (tab.title.empty()) {
        const auto known = titles.find(source.url);
        tab.title = known != titles.end() ? sanitizedUTF8(known->second) : source.url;
      }
      tab.url = source.url;
      tab.isActive = position == window.selected;
      tab.pinState = source.pinned ? PinState::pinned : PinState::unpinned;
      tab.lastActiveAt = source.lastActiveAt.value_or(now);
      tab.observedAt = now;
    }
  }
}

std::vector<std::string> untitledURLs(const Session& session) {
  std::vector<std::string> urls;
  for (const SessionWindow& window : session.windows) {
    for (const SessionTab& tab : window.tabs) {
      if (tab.title.empty()) urls.push_back(tab.url);
    }
  }
  return urls;
}

}  // namespace velto::SessionTabs
