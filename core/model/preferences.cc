#include "core/model/preferences.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace velto {

namespace {

// NaN stands for "not set", so one lock-free atomic carries both presence and value.
std::atomic<double> idleOverride{std::nan("")};

}  // namespace

const std::vector<std::string>& defaultExclusions() {
  static const std::vector<std::string> kDomains{
      // Mail and personal cloud.
      "mail.google.com", "gmail.com", "outlook.live.com", "outlook.office.com", "proton.me",
      "icloud.com",
      // Banks: United States, United Kingdom, app-only.
      "chase.com", "bankofamerica.com", "barclays.co.uk", "hsbc.co.uk", "monzo.com",
      "revolut.com",
      // Health care.
      "nhs.uk", "mychart.com"};
  return kDomains;
}

double Preferences::idleThreshold() const {
  if (const auto seconds = idleSecondsOverride()) return *seconds;
  return static_cast<double>(std::max<int64_t>(idleHours, 1)) * 3600.0;
}

int64_t Preferences::activeTabLimit() const {
  if (!tabLimit) return 25;
  return std::clamp<int64_t>(*tabLimit, 5, 200);
}

int64_t Preferences::protectedTabsPerWindow() const {
  if (!protectedTabs) return 3;
  return std::max<int64_t>(*protectedTabs, 0);
}

std::optional<double> Preferences::idleSecondsOverride() {
  const double value = idleOverride.load(std::memory_order_relaxed);
  if (std::isnan(value)) return std::nullopt;
  return value;
}

void Preferences::setIdleSecondsOverride(std::optional<double> seconds) {
  idleOverride.store(seconds && !std::isnan(*seconds) ? *seconds : std::nan(""),
                     std::memory_order_relaxed);
}

}  // namespace velto
