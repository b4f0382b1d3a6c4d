#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/model/browser.h"
#include "core/model/preferences.h"
#include "core/support/date.h"
#include "core/support/uuid.h"

namespace velto {

// A tab seen open in a browser at the last snapshot.
struct LiveTab {
  std::string id;  // browser raw value, window id and tab id (Safari: position) joined by ":"
  Browser browser = Browser::safari;
  int64_t windowID = 0;
  std::optional<std::string> tabID;  // the browser's own tab id, where it has one
  int64_t index = 0;                 // 1-based position in its window
  std::string title;
  std::string url;  // as the browser reports it
  bool isActive = false;
  PinState pinState = PinState::unknown;
  Date lastActiveAt;
  Date observedAt;
  std::optional<Date> neverSelectedSince;
  std::optional<Date> lastVisitAt;

  // The host of `url`, "www." kept; "Website" when the URL has none.
  std::string domain() const;

  bool operator==(const LiveTab&) const = default;
};

// A tab kept in the library.
struct SavedTab {
  Uuid id;
  std::string title;
  std::string url;
  Browser browser = Browser::safari;  // where it was saved from and reopens
  Date savedAt;
  std::optional<Date> closedAt;  // when the close was confirmed
  ArchiveState state = ArchiveState::saved;
  bool isFavorite = false;

  // The host of `url` with one leading "www." removed; "Website" when there is none.
  std::string domain() const;
  // closedAt (else savedAt) for a closed tab; savedAt in every other state.
  Date activityDate() const;
  // Whether every whitespace-separated term of `query` occurs in "title url browser-name",
  // case- and diacritic-insensitively. A query without terms matches every tab.
  bool matches(std::string_view query) const;

  bool operator==(const SavedTab&) const = default;
};

// An external client the user has allowed to connect. Only the token's hash is kept.
struct ClientGrant {
  Uuid id;
  std::string name;
  std::string tokenHash;  // lowercase hex SHA-256 of the token
  bool allowReopen = false;
  Date createdAt;

  bool operator==(const ClientGrant&) const = default;
};

// The root of the library file. A default-constructed value is a fresh library.
struct LibraryState {
  int64_t version = 1;
  std::vector<SavedTab> tabs;
  std::vector<LiveTab> liveTabs;
  std::optional<Date> liveUpdatedAt;
  Preferences preferences;
  std::vector<ClientGrant> clients;

  bool operator==(const LibraryState&) const = default;
};

}  // namespace velto
