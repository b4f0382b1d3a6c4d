#include "core/model/browser.h"

namespace velto {

std::string_view rawValue(Browser browser) {
  switch (browser) {
    case Browser::safari:
      return "safari";
    case Browser::chrome:
      return "chrome";
    case Browser::brave:
      return "brave";
    case Browser::edge:
      return "edge";
  }
  return "";
}

std::string_view bundleID(Browser browser) {
  switch (browser) {
    case Browser::safari:
      return "com.apple.Safari";
    case Browser::chrome:
      return "com.google.Chrome";
    case Browser::brave:
      return "com.brave.Browser";
    case Browser::edge:
      return "com.microsoft.edgemac";
  }
  return "";
}

std::string_view displayName(Browser browser) {
  switch (browser) {
    case Browser::safari:
      return "Safari";
    case Browser::chrome:
      return "Chrome";
    case Browser::brave:
      return "Brave";
    case Browser::edge:
      return "Edge";
  }
  return "";
}

bool isSafariFamily(Browser browser) { return rawValue(browser) == "safari"; }

std::optional<Browser> browserFromRawValue(std::string_view text) {
  for (Browser browser : kAllBrowsers) {
    if (rawValue(browser) == text) return browser;
  }
  return std::nullopt;
}

std::string_view rawValue(PinState state) {
  switch (state) {
    case PinState::pinned:
      return "pinned";
    case PinState::unpinned:
      return "unpinned";
    case PinState::unknown:
      return "unknown";
  }
  return "";
}

std::optional<PinState> pinStateFromRawValue(std::string_view text) {
  for (PinState state : {PinState::pinned, PinState::unpinned, PinState::unknown}) {
    if (rawValue(state) == text) return state;
  }
  return std::nullopt;
}

std::string_view rawValue(ArchiveState state) {
  switch (state) {
    case ArchiveState::saved:
      return "saved";
    case ArchiveState::pendingClose:
      return "pendingClose";
    case ArchiveState::closed:
      return "closed";
  }
  return "";
}

std::optional<ArchiveState> archiveStateFromRawValue(std::string_view text) {
  for (ArchiveState state :
       {ArchiveState::saved, ArchiveState::pendingClose, ArchiveState::closed}) {
    if (rawValue(state) == text) return state;
  }
  return std::nullopt;
}

}  // namespace velto
