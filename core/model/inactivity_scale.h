#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace velto {

// The idle-hours control: five stops (1, 6, 12, 24 and 168 hours) at positions 0 to 4,
// linear between neighbouring stops.
namespace InactivityScale {

inline constexpr std::array<int64_t, 5> kHours{1, 6, 12, 24, 168};

// "1 hour", "7 days" for 168, and "<n> hours" for every other number (0 and 24 included).
std::string label(int64_t hours);

// Where `hours` sits on the scale, after clamping it to 1...168: 0.0 to 4.0.
double position(int64_t hours);

// The hours at `position`, after clamping it to 0.0...4.0 (infinities included), rounded
// to the nearest hour with halves away from zero. A NaN position is a programming error:
// the process stops.
int64_t hours(double position);

}  // namespace InactivityScale

}  // namespace velto
