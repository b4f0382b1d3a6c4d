#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

// A URL split into its RFC 3986 components.
//
// Parsing is lenient the way browsers' address bars are: characters that may not stand
// in a URL as they are (spaces, non-ASCII bytes, a '%' not followed by two hex digits,
// and the like) are percent-encoded first, so a URL copied from a tab parses. What is
// still not a URL after that (no scheme, a malformed authority) is absent.
struct Url {
  std::string scheme;                   // as written, e.g. "HTTPS"
  std::optional<std::string> userInfo;  // present whenever the URL has an "@" user part
  std::string host;                     // percent-decoded; IP literals without brackets
  bool hasHost = false;                 // false for "about:blank" and for "https:///path"
  std::optional<uint32_t> port;         // absent when not written (or written empty)
  std::string path;                     // percent-encoded, as written
  std::optional<std::string> query;
  std::optional<std::string> fragment;

  static std::optional<Url> parse(std::string_view text);

  // The URL written back as text (a host that needs brackets gets them).
  std::string text() const;

  bool operator==(const Url&) const = default;
};

// The host of `text` when it is an http or https URL (any letter case) that has a
// host and no user part, in its canonical form (canonicalHost: IDNA to ASCII, lowercase,
// "." trimmed from both ends); absent otherwise, and when the host has no canonical form.
// Answers common URLs without allocating or running the full parser, for the hot paths
// that test every tab of a library. Agrees with Url::parse in every case.
// The result views into `text` (a host already canonical, taken by the shortcut) or
// into `buffer`, which then receives the canonical host: keep both alive while using it.
std::optional<std::string_view> safeHttpHost(std::string_view text, std::string& buffer);

// The same answer from Url::parse alone, without the shortcut (the reference the
// shortcut is checked against).
std::optional<std::string_view> parsedHttpHost(std::string_view text, std::string& buffer);

}  // namespace velto
