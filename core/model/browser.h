#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace velto {

// The browsers Velto watches, in their fixed order. Safari is one scripting family;
// Chrome, Brave and Edge form the Chromium family (one scripting dictionary, one history
// schema).
enum class Browser { safari, chrome, brave, edge };

inline constexpr std::array<Browser, 4> kAllBrowsers{Browser::safari, Browser::chrome,
                                                     Browser::brave, Browser::edge};

// "safari", "chrome", "brave", "edge": the stored and wire form.
std::string_view rawValue(Browser browser);
// "com.apple.Safari", "com.google.Chrome", "com.brave.Browser", "com.microsoft.edgemac".
std::string_view bundleID(Browser browser);
// "Safari", "Chrome", "Brave", "Edge": the short name shown to people.
std::string_view displayName(Browser browser);
bool isSafariFamily(Browser browser);
// Absent for any text but the four raw values (case-sensitive).
std::optional<Browser> browserFromRawValue(std::string_view text);

// A set of browsers (the user's connected browsers).
class BrowserSet {
 public:
  BrowserSet() = default;
  BrowserSet(std::initializer_list<Browser> browsers) {
    for (Browser b : browsers) insert(b);
  }
  void insert(Browser browser) { bits_ |= bit(browser); }
  void erase(Browser browser) { bits_ &= static_cast<uint8_t>(~bit(browser)); }
  bool contains(Browser browser) const { return (bits_ & bit(browser)) != 0; }
  bool empty() const { return bits_ == 0; }
  bool operator==(const BrowserSet&) const = default;

 private:
  static uint8_t bit(Browser browser) {
    return static_cast<uint8_t>(1u << static_cast<int>(browser));
  }
  uint8_t bits_ = 0;
};

// Whether a tab's pinning is known: the scripts cannot see it, so snapshots say unknown.
enum class PinState { pinned, unpinned, unknown };
std::string_view rawValue(PinState state);
std::optional<PinState> pinStateFromRawValue(std::string_view text);

// A saved tab's life: kept (maybe still open), asked to close, confirmed closed.
enum class ArchiveState { saved, pendingClose, closed };
std::string_view rawValue(ArchiveState state);
std::optional<ArchiveState> archiveStateFromRawValue(std::string_view text);

}  // namespace velto
