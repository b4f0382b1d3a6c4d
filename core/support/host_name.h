#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velto {

// `host` in the one form hosts are compared in: each label mapped and converted to ASCII
// under IDNA (UTS #46, non-transitional: case folded, fullwidth letters and the other
// dot characters mapped, "ß" kept), which is how browsers report international hosts,
// then "." trimmed from both ends. "ÄRZTE.example.", "xn--rzte-koa.example" and
// "ärzte.example" all give "xn--rzte-koa.example"; "a.ｌｏｃａｌ" gives "a.local".
// Absent when the host cannot be converted (ill-formed UTF-8, a malformed "xn--" label,
// a disallowed character): callers that guard something must then refuse.
// ASCII hosts without an "xn--" label only need lowercasing and take no conversion.
std::optional<std::string> canonicalHost(std::string_view host);

// True when `host` is ASCII and has no "xn--" label, so that canonicalHost is only
// lowercasing and trimming (the common case, answered without the conversion).
bool isPlainASCIIHost(std::string_view host);

}  // namespace velto
