#include "core/favicons/favicon_policy.h"

#include <utf8proc.h>

#include <algorithm>

#include "core/policy/tab_policy.h"
#include "core/support/host_name.h"
#include "core/support/url.h"

namespace velto::FaviconPolicy {

namespace {

std::string lowercased(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
  }
  return out;
}

// Digits of every script count, not only ASCII ones: a resolver that maps fullwidth
// digits reads "１２７.０.０.１" as the loopback address.
bool isNumbersAndDots(std::string_view host) {
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(host.data());
  const auto size = static_cast<utf8proc_ssize_t>(host.size());
  for (utf8proc_ssize_t at = 0; at < size;) {
    utf8proc_int32_t c = 0;
    const utf8proc_ssize_t length = utf8proc_iterate(bytes + at, size - at, &c);
    if (length <= 0) return false;
    const utf8proc_category_t category = utf8proc_category(c);
    if (c != '.' && category != UTF8PROC_CATEGORY_ND && category != UTF8PROC_CATEGORY_NL &&
        category != UTF8PROC_CATEGORY_NO) {
      return false;
    }
    at += length;
  }
  return true;
}

// A canonical host written back into a URL. Characters that would end the host ("/",
// "?", "#", "@") or could not stand in it stay encoded, so the URL names the host that
// was checked and no other.
std::string encodedHost(std::string_view host) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string out;
  for (const char c : host) {
    const auto byte = static_cast<unsigned char>(c);
    const bool alphanumeric =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    if (alphanumeric || std::string_view("-._~!$&'()*+,;=:").find(c) != std::string_view::npos) {
      out.push_back(c);
    } else {
      out.append({'%', kDigits[byte >> 4], kDigits[byte & 0x0f]});
    }
  }
  return out;
}

bool isNameOrSubdomain(std::string_view host, std::string_view name) {
  return host == name || (host.size() > name.size() && host.ends_with(name) &&
                          host[host.size() - name.size() - 1] == '.');
}

}  // namespace

bool isPublicHostname(std::string_view rawHost) {
  // The reserved names are tested on the form the name is looked up in: "a.ｌｏｃａｌ"
  // is "a.local" to every resolver that maps it.
  const auto host = canonicalHost(rawHost);
  if (!host || host->find('.') == std::string::npos ||
      host->find_first_of(":[") != std::string::npos) {
    return false;
  }
  // Digits that IDNA keeps as they are (other scripts' own) still read as a number to a
  // resolver that maps them, so the name as given is tested too.
  if (isNumbersAndDots(*host) || isNumbersAndDots(lowercased(rawHost))) return false;
  return std::none_of(std::begin(kReservedNames), std::end(kReservedNames),
                      [&](std::string_view name) { return isNameOrSubdomain(*host, name); });
}

std::optional<std::string> withCanonicalHost(std::string_view text) {
  auto url = Url::parse(text);
  if (!url || !url->hasHost) return std::nullopt;
  auto host = canonicalHost(url->host);
  if (!host || host->empty()) return std::nullopt;
  url->host = encodedHost(*host);
  return url->text();
}

std::optional<std::string> iconURL(std::string_view pageURL,
                                   const std::vector<std::string>& exclusions) {
  if (TabPolicy::isExcluded(pageURL, exclusions)) return std::nullopt;
  const auto page = TabPolicy::safeURL(pageURL);
  if (!page || !page->hasHost || !isPublicHostname(page->host)) return std::nullopt;
  if (page->port && *page->port != 80 && *page->port != 443) return std::nullopt;
  std::string host = canonicalHost(page->host).value_or("");
  if (host == kVideoShortLinkHost || isNameOrSubdomain(host, kVideoDomain)) {
    host = kVideoWWWHost;
  }
  std::string icon = "https://" + encodedHost(host) + "/favicon.ico";
  if (TabPolicy::isExcluded(icon, exclusions)) return std::nullopt;
  return icon;
}

bool allowsRedirect(std::string_view text, const std::vector<std::string>& exclusions) {
  const auto url = Url::parse(text);
  if (!url || lowercased(url->scheme) != "https" || url->userInfo) return false;
  if (url->port && *url->port != 443) return false;
  return url->hasHost && !TabPolicy::isExcluded(text, exclusions) && isPublicHostname(url->host);
}

std::vector<std::string> candidates(std::string_view iconURL,
                                    const std::vector<std::string>& exclusions) {
  std::vector<std::string> all;
  // Addresses are handed on with the host in the form it was checked in, so the network
  // library never maps a name by itself.
  const auto canonical = withCanonicalHost(iconURL);
  const auto icon = canonical ? Url::parse(*canonical) : std::nullopt;
  if (icon && icon->host == kVideoWWWHost) all.emplace_back(kVideoFixedIconURL);
  all.emplace_back(canonical.value_or(std::string(iconURL)));
  if (icon) {
    Url sibling = *icon;
    sibling.host = encodedHost(sibling.host);
    if (sibling.path.size() > 1 && sibling.path.ends_with('/')) sibling.path.pop_back();
    const size_t slash = sibling.path.rfind('/');
    sibling.path.resize(slash == std::string::npos ? 0 : slash);
    sibling.path += "/apple-touch-icon.png";
    sibling.query.reset();
    sibling.fragment.reset();
    all.push_back(sibling.text());
  }
  std::erase_if(all, [&](const std::string& url) { return !allowsRedirect(url, exclusions); });
  return all;
}

IconRequest request(std::string_view url) { return IconRequest{.url = std::string(url)}; }

}  // namespace velto::FaviconPolicy
