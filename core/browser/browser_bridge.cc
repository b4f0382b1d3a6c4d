#include "core/browser/browser_bridge.h"

#include <charconv>

#include "core/browser/reopen.h"
#include "core/browser/script_queue.h"
#include "core/model/velto_error.h"

namespace velto {

namespace {

// Base-10 with an optional sign; the standard parser alone would refuse the '+'.
std::optional<int64_t> parseWindowID(std::string_view text) {
  const bool plus = text.starts_with('+');
  if (plus) text.remove_prefix(1);
  if (plus && text.starts_with('-')) return std::nullopt;
  int64_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

std::optional<LiveTab> liveTabFromRow(const ScriptValue& row, Browser browser) {
  if (row.numberOfItems() != 6) return std::nullopt;
  const auto windowText = row.item(1)->stringValue();
  if (!windowText) return std::nullopt;
  const auto windowID = parseWindowID(*windowText);
  if (!windowID) return std::nullopt;
  auto tabID = row.item(2)->stringValue();
  auto title = row.item(4)->stringValue();
  auto url = row.item(5)->stringValue();
  if (!tabID || !title || !url) return std::nullopt;

  LiveTab tab;
  tab.browser = browser;
  tab.windowID = *windowID;
  tab.index = row.item(3)->int32Value();
  // Safari's "tab id" is only the position again, so it is not kept as one.
  const std::string ownPart = isSafariFamily(browser) ? std::to_string(tab.index) : *tabID;
  tab.id = std::string(rawValue(browser)) + ":" + std::to_string(tab.windowID) + ":" + ownPart;
  if (!isSafariFamily(browser)) tab.tabID = std::move(*tabID);
  tab.title = title->empty() ? *url : std::move(*title);
  tab.url = std::move(*url);
  const ScriptValue& active = *row.item(6);
  tab.isActive = active.kind() == ScriptValue::Kind::missing || active.booleanValue();
  tab.pinState = PinState::unknown;
  tab.lastActiveAt = tab.observedAt = now();
  return tab;
}

}  // namespace

std::vector<LiveTab> liveTabsFromSnapshot(const ScriptValue& rows, Browser browser) {
  std::vector<LiveTab> tabs;
  for (size_t position = 1; position <= rows.numberOfItems(); ++position) {
    if (auto tab = liveTabFromRow(*rows.item(position), browser)) tabs.push_back(std::move(*tab));
  }
  return tabs;
}

BrowserBridge::BrowserBridge(TabSource& tabs, ApplicationLauncher& launcher)
    : tabs_(tabs), launcher_(launcher) {}

std::future<Result<std::vector<LiveTab>>> BrowserBridge::snapshot(Browser browser) {
  return ScriptQueue::shared().submit([&tabs = tabs_, browser] { return tabs.snapshot(browser); });
}

std::future<Result<void>> BrowserBridge::close(const LiveTab& tab, bool automatic,
                                               int64_t protectedTabs) {
  if (automatic && tab.pinState == PinState::pinned) {
    std::promise<Result<void>> refused;
    refused.set_value(VeltoError::tabPinned());
    return refused.get_future();
  }
  return ScriptQueue::shared().submit([&tabs = tabs_, tab, automatic, protectedTabs] {
    return tabs.close(tab, automatic, protectedTabs);
  });
}

bool BrowserBridge::isInstalled(Browser browser) { return launcher_.isInstalled(browser); }

bool BrowserBridge::isRunning(Browser browser) { return launcher_.isRunning(browser); }

Result<void> BrowserBridge::reopen(std::string_view url, Browser browser) {
  return reopenTab(launcher_, url, browser);
}

}  // namespace velto
