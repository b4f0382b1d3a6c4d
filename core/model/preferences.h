#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/model/browser.h"

namespace velto {

// The fourteen sensitive domains (mail, banking, health) that are excluded until the
// user says otherwise, as bare domains.
const std::vector<std::string>& defaultExclusions();

// The user's settings. A default-constructed value holds exactly the defaults. Optional
// fields stay absent for libraries written before they existed; read settings through
// the derived accessors, never the raw optionals.
struct Preferences {
  int64_t idleHours = 24;
  bool autoClose = false;
  std::optional<int64_t> tabLimit;
  std::optional<bool> automaticTabLimit;
  BrowserSet connectedBrowsers;
  std::vector<std::string> exclusions = defaultExclusions();
  std::string flaURL;  // stored and round-tripped only
  std::optional<bool> websiteIcons;
  std::optional<bool> veltoActivity;
  std::optional<bool> compactActivity;
  std::optional<bool> confirmTuckAway;
  std::optional<bool> memoryAlerts;
  std::optional<int64_t> protectedTabs;
  std::optional<bool> browserHistory;

  // Seconds without use after which a tab is idle: the process-wide override when set,
  // else max(idleHours, 1) hours.
  double idleThreshold() const;
  // tabLimit clamped to 5...200; 25 when unset.
  int64_t activeTabLimit() const;
  // Leading positions per window protected where pinning is unknown; 3 when unset,
  // never below 0.
  int64_t protectedTabsPerWindow() const;
  // Absent automaticTabLimit and compactActivity mean off; every other absent flag on.
  bool automaticallyEnforcesTabLimit() const { return automaticTabLimit.value_or(false); }
  bool websiteIconsEnabled() const { return websiteIcons.value_or(true); }
  bool veltoActivityEnabled() const { return veltoActivity.value_or(true); }
  bool keepsActivityCompact() const { return compactActivity.value_or(false); }
  bool shouldConfirmTuckAway() const { return confirmTuckAway.value_or(true); }
  bool memoryAlertsEnabled() const { return memoryAlerts.value_or(true); }
  bool browserHistoryEnabled() const { return browserHistory.value_or(true); }

  // One value for the whole process that overrides idleThreshold of every Preferences
  // (for demonstrations and tests). Safe to read and write from any thread; never stored.
  static std::optional<double> idleSecondsOverride();
  static void setIdleSecondsOverride(std::optional<double> seconds);

  bool operator==(const Preferences&) const = default;
};

}  // namespace velto
