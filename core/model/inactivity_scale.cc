#include "core/model/inactivity_scale.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace velto::InactivityScale {

namespace {

constexpr size_t kLastSegment = kHours.size() - 2;

}  // namespace

std::string label(int64_t hours) {
  if (hours == 1) return "1 hour";
  if (hours == 168) return "7 days";
  return std::to_string(hours) + " hours";
}

double position(int64_t hours) {
  const int64_t value = std::clamp(hours, kHours.front(), kHours.back());
  size_t segment = 0;
  while (segment < kLastSegment && value > kHours[segment + 1]) ++segment;
  return static_cast<double>(segment) +
         static_cast<double>(value - kHours[segment]) /
             static_cast<double>(kHours[segment + 1] - kHours[segment]);
}

int64_t hours(double position) {
  if (std::isnan(position)) {
    std::fputs("InactivityScale::hours: the position is not a number\n", stderr);
    std::abort();
  }
  const double clamped = std::clamp(position, 0.0, static_cast<double>(kHours.size() - 1));
  const size_t segment = std::min(static_cast<size_t>(clamped), kLastSegment);
  const double offset = (clamped - static_cast<double>(segment)) *
                        static_cast<double>(kHours[segment + 1] - kHours[segment]);
  // std::llround rounds halves away from zero, and the offset is at most one segment wide.
  return kHours[segment] + std::llround(offset);
}

}  // namespace velto::InactivityScale
