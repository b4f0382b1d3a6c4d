#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

// Which icon addresses may be fetched for a tab. Icon fetching must not reveal anything
// about private or excluded sites, so only public HTTPS host names are ever contacted:
// never a host the user excluded, never an address with credentials, a private or
// reserved name, or an IP literal. Pure and total.
namespace FaviconPolicy {

// One video site keeps the icons of all its hosts in one place: pages on its short-link
// host, its bare domain or any subdomain take their icon from its www host, and that host
// is tried first at a fixed address on the site's static image host.
inline constexpr std::string_view kVideoShortLinkHost = "youtu.be";
inline constexpr std::string_view kVideoDomain = "youtube.com";
inline constexpr std::string_view kVideoWWWHost = "www.youtube.com";
inline constexpr std::string_view kVideoFixedIconURL =
    "https://s.ytimg.com/yts/img/favicon_144-vfliLAfaB.png";

// Labels that never name a public host, whether alone or as the last labels of a name.
inline constexpr std::string_view kReservedNames[] = {
    "localhost", "local", "internal", "test", "invalid", "example", "onion", "home", "lan", "arpa"};

// A dotted name that is not an IP literal, not made only of dots and number characters
// (of any script), and not a reserved name or a name ending in "." + a reserved name,
// all tested on its canonical form (canonicalHost), which is what a resolver looks up:
// "a.ｌｏｃａｌ" and "x.printer．local" are refused as "a.local" is. A name without a
// canonical form is refused.
bool isPublicHostname(std::string_view host);

// The primary icon address of a page: https://HOST/favicon.ico for a page that is not
// excluded, is plain http(s) on a public host, and names no port or port 80 or 443.
// HOST is the page's canonical host (ASCII), with what cannot stand in a host left
// percent-encoded (the video site's hosts become its www host). Absent when the page
// gets no icon, or when that address is itself excluded.
std::optional<std::string> iconURL(std::string_view pageURL,
                                   const std::vector<std::string>& exclusions);

// The addresses to try, in order, for an icon address: the video site's fixed address
// (only for its www host), the icon address itself, then apple-touch-icon.png beside it,
// each with its host in canonical form; only those that allowsRedirect would accept are
// kept.
std::vector<std::string> candidates(std::string_view iconURL,
                                    const std::vector<std::string>& exclusions);

// True only for https, no user part, no port or port 443, a public host, not excluded.
bool allowsRedirect(std::string_view url, const std::vector<std::string>& exclusions);

// `url` with its host replaced by its canonical (ASCII) form, as it is handed to the
// network: the network library then never maps a name it was not asked to check. Absent
// when the URL does not parse, has no host, or the host has no canonical form.
std::optional<std::string> withCanonicalHost(std::string_view url);

// How one candidate is requested: a GET with "Accept: image/*", no cookies, nothing taken
// from a local cache, 8 s to connect and to wait for each answer, 12 s for the whole
// resource (redirects included).
struct IconRequest {
  std::string url;
  std::string accept = "image/*";
  std::chrono::seconds answerTimeout{8};
  std::chrono::seconds resourceTimeout{12};
};
IconRequest request(std::string_view url);

}  // namespace FaviconPolicy

}  // namespace velto
