#include "core/support/url.h"

#include <uriparser/Uri.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "core/support/host_name.h"

namespace velto {

namespace {

bool isHex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Character classes as tables: every tab of a library goes through them on each request.
enum : uint8_t { kUnreserved = 1, kPathChar = 2 };

constexpr auto kClasses = [] {
  std::array<uint8_t, 256> table{};
  for (int c = 0; c < 256; ++c) {
    const bool unreserved = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                            (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' || c == '~';
    const bool pathOnly =
        std::string_view("!$&'()*+,;=:@/?").find(static_cast<char>(c)) != std::string_view::npos;
    table[c] = static_cast<uint8_t>((unreserved ? kUnreserved | kPathChar : 0) |
                                    (pathOnly && c != 0 ? kPathChar : 0));
  }
  return table;
}();

bool isUnreserved(char c) { return kClasses[static_cast<unsigned char>(c)] & kUnreserved; }
bool isPathChar(char c) { return kClasses[static_cast<unsigned char>(c)] & kPathChar; }

bool isSubDelim(char c) { return c != '\0' && std::strchr("!$&'()*+,;=", c) != nullptr; }

// Characters that may stand as they are somewhere in a URI reference.
bool isURIChar(char c) {
  return isUnreserved(c) || isSubDelim(c) || (c != '\0' && std::strchr(":/?#[]@%", c) != nullptr);
}

// Percent-encodes what can never stand in a URI as it is, like an address bar does.
std::string encodeInvalidCharacters(std::string_view text) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const bool strayPercent =
        c == '%' && !(i + 2 < text.size() && isHex(text[i + 1]) && isHex(text[i + 2]));
    if (isURIChar(c) && !strayPercent) {
      out.push_back(c);
    } else {
      const auto byte = static_cast<unsigned char>(c);
      out.push_back('%');
      out.push_back(kDigits[byte >> 4]);
      out.push_back(kDigits[byte & 0x0f]);
    }
  }
  return out;
}

std::string rangeText(const UriTextRangeA& range) {
  if (range.first == nullptr || range.afterLast == nullptr) return {};
  return std::string(range.first, range.afterLast);
}

bool rangePresent(const UriTextRangeA& range) { return range.first != nullptr; }

std::string percentDecoded(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && isHex(text[i + 1]) && isHex(text[i + 2])) {
      out.push_back(static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16)));
      i += 2;
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

}  // namespace

std::optional<Url> Url::parse(std::string_view input) {
  const std::string text = encodeInvalidCharacters(input);
  UriUriA uri;
  const char* error = nullptr;
  if (uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), &error) != URI_SUCCESS) {
    return std::nullopt;
  }
  Url url;
  bool valid = rangePresent(uri.scheme);
  url.scheme = rangeText(uri.scheme);
  if (rangePresent(uri.userInfo)) url.userInfo = rangeText(uri.userInfo);
  url.host = percentDecoded(rangeText(uri.hostText));
  url.hasHost = !url.host.empty();
  if (rangePresent(uri.portText) && uri.portText.first != uri.portText.afterLast) {
    const std::string port = rangeText(uri.portText);
    if (port.size() > 9) {
      valid = false;
    } else {
      url.port = static_cast<uint32_t>(std::stoul(port));
    }
  }
  // Rebuild the path from its segments: uriparser keeps them as a list.
  if (uri.absolutePath || (rangePresent(uri.hostText) && uri.pathHead != nullptr)) {
    url.path.push_back('/');
  }
  for (const UriPathSegmentA* segment = uri.pathHead; segment; segment = segment->next) {
    if (segment != uri.pathHead) url.path.push_back('/');
    url.path += rangeText(segment->text);
  }
  if (rangePresent(uri.query)) url.query = rangeText(uri.query);
  if (rangePresent(uri.fragment)) url.fragment = rangeText(uri.fragment);
  uriFreeUriMembersA(&uri);
  if (!valid) return std::nullopt;
  return url;
}

std::string Url::text() const {
  // Appends only: g++ 12 warns falsely (-Wrestrict) on chains of operator+ with literals.
  std::string out = scheme;
  out.push_back(':');
  if (hasHost) {
    out.append("//");
    if (userInfo) out.append(*userInfo).push_back('@');
    const bool bracketed = host.find(':') != std::string::npos;
    if (bracketed) out.push_back('[');
    out.append(host);
    if (bracketed) out.push_back(']');
    if (port) out.append(":").append(std::to_string(*port));
  }
  out.append(path);
  if (query) out.append("?").append(*query);
  if (fragment) out.append("#").append(*fragment);
  return out;
}

namespace {

bool startsWithNoCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    char c = text[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    if (c != prefix[i]) return false;
  }
  return true;
}

// The common shape "http(s)://simple-host[:digits][/...]" whose remainder is plain URI
// text; nullopt means "not sure", and the full parser decides.
std::optional<std::optional<std::string_view>> fastHost(std::string_view text) {
  size_t at;
  if (startsWithNoCase(text, "https://")) {
    at = 8;
  } else if (startsWithNoCase(text, "http://")) {
    at = 7;
  } else {
    return std::nullopt;
  }
  size_t end = at;
  while (end < text.size() && isUnreserved(text[end])) ++end;
  const std::string_view host = text.substr(at, end - at);
  if (end < text.size() && text[end] == ':') {
    size_t digits = end + 1;
    while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9') ++digits;
    if (digits - end - 1 > 9) return std::nullopt;
    end = digits;
  }
  if (end < text.size() && text[end] != '/' && text[end] != '?' && text[end] != '#') {
    return std::nullopt;
  }
  bool sawFragment = false;
  for (size_t i = end; i < text.size(); ++i) {
    const char c = text[i];
    if (isPathChar(c)) continue;  // nearly every byte: one table look-up
    if (c == '#') {
      if (sawFragment) return std::nullopt;
      sawFragment = true;
    } else if (c == '%') {
      if (!(i + 2 < text.size() && isHex(text[i + 1]) && isHex(text[i + 2]))) return std::nullopt;
    } else {
      return std::nullopt;
    }
  }
  if (host.empty()) return std::optional<std::string_view>{};
  return std::optional<std::string_view>{host};
}

}  // namespace

std::optional<std::string_view> parsedHttpHost(std::string_view text, std::string& buffer) {
  const auto url = Url::parse(text);
  if (!url || url->userInfo || !url->hasHost) return std::nullopt;
  std::string scheme = url->scheme;
  std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (scheme != "http" && scheme != "https") return std::nullopt;
  auto host = canonicalHost(url->host);
  if (!host) return std::nullopt;
  buffer = std::move(*host);
  return std::string_view(buffer);
}

std::optional<std::string_view> safeHttpHost(std::string_view text, std::string& buffer) {
  if (const auto fast = fastHost(text)) {
    if (!*fast) return std::nullopt;
    std::string_view host = **fast;
    while (!host.empty() && host.front() == '.') host.remove_prefix(1);
    while (!host.empty() && host.back() == '.') host.remove_suffix(1);
    // Hosts are nearly always written in lowercase ASCII, already canonical: no copy is
    // needed for those.
    if (isPlainASCIIHost(host) &&
        std::none_of(host.begin(), host.end(), [](char c) { return c >= 'A' && c <= 'Z'; })) {
      return host;
    }
    auto canonical = canonicalHost(host);
    if (!canonical) return std::nullopt;
    buffer = std::move(*canonical);
    return std::string_view(buffer);
  }
  return parsedHttpHost(text, buffer);
}

}  // namespace velto
