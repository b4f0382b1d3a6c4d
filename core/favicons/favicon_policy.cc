#include "core/favicons/favicon_policy.h"

#include <algorithm>

#include "core/policy/tab_policy.h"
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

std::string normalizedHost(std::string_view host) {
  while (!host.empty() && host.front() == '.') host.remove_prefix(1);
  while (!host.empty() && host.back() == '.') host.remove_suffix(1);
  return lowercased(host);
}

bool isNameOrSubdomain(std::string_view host, std::string_view name) {
  return host == name ||
         (host.size() > name.size() && host.ends_with(name) &&
          host[host.size() - name.size() - 1] == '.');
}

}  // namespace

bool isPublicHostname(std::string_view rawHost) {
  const std::string host = normalizedHost(rawHost);
  if (host.find('.') == std::string::npos || host.find_first_of(":[") != std::string::npos) {
    return false;
  }
  if (std::all_of(host.begin(), host.end(), [](char c) { return c == '.' || (c >= '0' && c <= '9'); })) {
    return false;
  }
  return std::none_of(std::begin(kReservedNames), std::end(kReservedNames),
                      [&](std::string_view name) { return isNameOrSubdomain(host, name); });
}

std::optional<std::string> iconURL(std::string_view pageURL,
                                   const std::vector<std::string>& exclusions) {
  if (TabPolicy::isExcluded(pageURL, exclusions)) return std::nullopt;
  const auto page = TabPolicy::safeURL(pageURL);
  if (!page || !page->hasHost || !isPublicHostname(page->host)) return std::nullopt;
  if (page->port && *page->port != 80 && *page->port != 443) return std::nullopt;
  std::string host = normalizedHost(page->host);
  if (host == kVideoShortLinkHost || isNameOrSubdomain(host, kVideoDomain)) {
    host = kVideoWWWHost;
  }
  std::string icon = "https://" + host + "/favicon.ico";
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
  const auto icon = Url::parse(iconURL);
  if (icon && icon->host == kVideoWWWHost) all.emplace_back(kVideoFixedIconURL);
  all.emplace_back(iconURL);
  if (icon) {
    Url sibling = *icon;
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
