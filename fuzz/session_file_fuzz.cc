// A session file of any shape replays without crashing, in bounded time and memory, into
// windows that hold tabs, each window's selection one of its own tabs, and tabs whose ids
// stay unique once shaped as open tabs; a cut-off copy of a readable file stays readable.
#include <cstdlib>
#include <string>
#include <unordered_set>

#include "core/browser/session_file.h"
#include "core/browser/session_tabs.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto session = velto::SessionFile::parse(bytes);
  if (!session) return 0;
  for (const auto& window : session->windows) {
    if (window.tabs.empty() || window.selected >= window.tabs.size()) std::abort();
  }
  if (!velto::SessionFile::parse(bytes.substr(0, 8 + size / 2))) std::abort();

  std::vector<velto::LiveTab> tabs;
  velto::SessionTabs::append(*session, "Profile 1", velto::Browser::brave, {}, velto::now(), tabs);
  if (tabs.size() > velto::SessionTabs::kMaxTabs) std::abort();
  std::unordered_set<std::string> ids;
  for (const auto& tab : tabs) {
    if (!ids.insert(tab.id).second || (tab.title.empty() && !tab.url.empty())) std::abort();
  }
  return 0;
}
