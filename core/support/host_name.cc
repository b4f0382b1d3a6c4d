#include "core/support/host_name.h"

#include <idn2.h>

#include <cstdlib>
#include <memory>

namespace velto {

namespace {

char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

std::string_view trimmedDots(std::string_view host) {
  while (!host.empty() && host.front() == '.') host.remove_prefix(1);
  while (!host.empty() && host.back() == '.') host.remove_suffix(1);
  return host;
}

}  // namespace

bool isPlainASCIIHost(std::string_view host) {
  for (size_t i = 0; i < host.size(); ++i) {
    if (static_cast<unsigned char>(host[i]) >= 0x80) return false;
    // An A-label starts a label: at the start or after a dot.
    if ((i == 0 || host[i - 1] == '.') && i + 4 <= host.size() && lowered(host[i]) == 'x' &&
        lowered(host[i + 1]) == 'n' && host[i + 2] == '-' && host[i + 3] == '-') {
      return false;
    }
  }
  return true;
}

std::optional<std::string> canonicalHost(std::string_view host) {
  if (isPlainASCIIHost(host)) {
    std::string out(trimmedDots(host));
    for (char& c : out) c = lowered(c);
    return out;
  }
  // The converter takes a C string: a NUL inside the host would cut it short and let
  // the rest go unchecked.
  if (host.find('\0') != std::string_view::npos) return std::nullopt;
  const std::string text(host);
  char* converted = nullptr;
  if (idn2_to_ascii_8z(text.c_str(), &converted, IDN2_NONTRANSITIONAL) != IDN2_OK) {
    return std::nullopt;
  }
  const std::unique_ptr<char, decltype(&std::free)> owned(converted, std::free);
  // Mapping can turn a fullwidth or ideographic full stop at either end into a ".".
  std::string out(trimmedDots(converted));
  for (char& c : out) c = lowered(c);
  return out;
}

}  // namespace velto
