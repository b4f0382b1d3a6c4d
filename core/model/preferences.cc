#include "core/model/preferences.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>

namespace velto {

namespace {

// One lock-free word carries both presence and value: "not set" is a NaN whose payload no
// arithmetic produces, so every other double, NaN included, can be set and read back.
constexpr uint64_t kNotSet = 0x7FF8'0000'DEAD'BEEF;
std::atomic<uint64_t> idleOverride{kNotSet};

}  // namespace

const std::vector<std::string>& defaultExclusions() {
  static const std::vector<std::string> kDomains{
      // Mail and personal cloud.
      "mail.google.com",
      "gmail.com",
      "outlook.live.com",
      "outlook.office.com",
      "proton.me",
      "icloud.com",
      // Banks: United States, United Kingdom, app-only.
      "chase.com",
      "bankofamerica.com",
      "barclays.co.uk",
      "hsbc.co.uk",
      "monzo.com",
      "revolut.com",
      // Health care.
      "nhs.uk",
      "mychart.com",
  };
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
  const uint64_t bits = idleOverride.load(std::memory_order_relaxed);
  if (bits == kNotSet) return std::nullopt;
  return std::bit_cast<double>(bits);
}

void Preferences::setIdleSecondsOverride(std::optional<double> seconds) {
  idleOverride.store(seconds ? std::bit_cast<uint64_t>(*seconds) : kNotSet,
                     std::memory_order_relaxed);
}

}  // namespace velto
