// The fast host path must agree with the full URL parser on every input, and neither
// may crash.
#include <cstdlib>
#include <string>

#include "core/support/url.h"

namespace {

std::optional<std::string> slowHost(std::string_view text) {
  const auto url = velto::Url::parse(text);
  if (!url || url->userInfo || !url->hasHost) return std::nullopt;
  std::string scheme = url->scheme;
  for (char& c : scheme) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (scheme != "http" && scheme != "https") return std::nullopt;
  std::string_view host = url->host;
  while (!host.empty() && host.front() == '.') host.remove_prefix(1);
  while (!host.empty() && host.back() == '.') host.remove_suffix(1);
  std::string lowered(host);
  for (char& c : lowered) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return lowered;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::string buffer;
  const auto fast = velto::safeHttpHost(text, buffer);
  const auto slow = slowHost(text);
  if (fast.has_value() != slow.has_value() || (fast && *fast != *slow)) std::abort();
  if (const auto url = velto::Url::parse(text)) (void)url->text();
  return 0;
}
