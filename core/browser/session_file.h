#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/support/date.h"

namespace velto {

// One open tab as a Chromium session file leaves it: its id, where it stands, and the
// page of its selected navigation. `title` is often empty: the browser records a
// navigation when it commits, usually before the page has a title.
struct SessionTab {
  int32_t id = 0;
  bool pinned = false;
  std::optional<Date> lastActiveAt;  // absent when the file records none (or a time before
                                     // 1970 or after year 9999)
  std::string url;                   // valid UTF-8 (ill-formed bytes replaced)
  std::string title;

  bool operator==(const SessionTab&) const = default;
};

// One open window with its tabs in the order of its tab strip; `selected` is the
// position in `tabs` of its selected tab.
struct SessionWindow {
  int32_t id = 0;
  std::vector<SessionTab> tabs;
  size_t selected = 0;

  bool operator==(const SessionWindow&) const = default;
};

// The open windows of one session file, in the order the file first names them. Only
// windows with at least one tab are kept, and only tabs with at least one navigation.
struct Session {
  int32_t version = 0;  // 1 or 3
  std::vector<SessionWindow> windows;

  bool operator==(const Session&) const = default;
};

// Reads and replays the SNSS session files that Chromium-family browsers write into
// <profile>/Sessions: "SNSS", a 4-byte version, then commands, each a 2-byte length
// (of the id and payload), a 1-byte command id and the payload. Replaying them in order
// gives the windows and tabs open when the file was last written to.
namespace SessionFile {

// The session held by `bytes`; absent when they do not start with an unencrypted
// session header (versions 1 and 3). Total on any input and linear in its size:
// unknown commands and commands whose payload is too short are skipped, a partial last
// command (a file still being appended to) is ignored, and the end-of-snapshot marker
// of version 3 is not required (a fresh browser's first file has none yet).
std::optional<Session> parse(std::string_view bytes);

}  // namespace SessionFile

}  // namespace velto
