// Feeds arbitrary bytes to the reader of the script runner's output, and checks that a
// value it accepts survives the coercions and the snapshot row rules.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/browser/browser_bridge.h"
#include "core/browser/script_value.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view output(reinterpret_cast<const char*>(data), size);
  const auto value = velto::parseScriptOutput(output);
  if (!value) return 0;
  (void)value->stringValue();
  (void)value->int32Value();
  (void)value->booleanValue();
  for (velto::Browser browser : velto::kAllBrowsers) {
    for (const velto::LiveTab& tab : velto::liveTabsFromSnapshot(*value, browser)) {
      // An empty title is replaced by the URL, so it can only stay empty with the URL.
      if (tab.id.empty() || (tab.title.empty() && !tab.url.empty())) __builtin_trap();
    }
  }
  return 0;
}
