// The shortcut for the host of an http(s) URL must agree with the full parser on every
// input, and neither may crash.
#include <cstdlib>
#include <string>

#include "core/support/url.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::string fastBuffer, slowBuffer;
  const auto fast = velto::safeHttpHost(text, fastBuffer);
  const auto slow = velto::parsedHttpHost(text, slowBuffer);
  if (fast != slow) std::abort();
  if (const auto url = velto::Url::parse(text)) (void)url->text();
  return 0;
}
