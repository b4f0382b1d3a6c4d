#pragma once

#include <bitset>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velto {

// The user's exclusion entries (domains never listed, saved, closed or fetched icons
// for) normalized once, for testing many URLs against them. It sits below the policy so
// that the library summary and the policy apply one and the same rule.
//
// Hosts, of entries and of URLs alike, are compared in their canonical form
// (canonicalHost: IDNA to ASCII), so "ärzte.example", "ÄRZTE.example" and
// "xn--rzte-koa.example" name one site.
class ExclusionList {
 public:
  explicit ExclusionList(const std::vector<std::string>& entries);

  // True when the URL's host is, or is a subdomain of, one of the entries. Fails closed:
  // anything that is not an http(s) URL with a host and no user part, or whose host has
  // no canonical form, counts as excluded.
  bool excludes(std::string_view url) const;

  // An entry as the user typed it, reduced to a canonical domain ("*.x.org", " X.org. ",
  // "https://x.org/path" all give "x.org"; white space around it, Unicode's included, is
  // ignored); absent for entries that are not a dotted name (localhost, "",
  // "exa mple.org") or have no canonical form.
  static std::optional<std::string> normalizedDomain(std::string_view entry);

 private:
  // One bit per entry, at a slot taken from its suffix hash: most hosts match no entry,
  // and this rules out all their parent domains in one pass over the host.
  std::bitset<4096> mayHold_;
  // The entries by suffix hash, to confirm a candidate.
  std::vector<std::pair<uint64_t, std::string>> domains_;
};

}  // namespace velto
