#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace velto {

// The mood the app's mascot shows.
enum class MascotMood {
  welcome,
  idle,
  searching,
  saving,
  celebrating,
  reopening,
  resting,
  attention
};

inline constexpr std::array<MascotMood, 8> kAllMoods{
    MascotMood::welcome,     MascotMood::idle,      MascotMood::searching, MascotMood::saving,
    MascotMood::celebrating, MascotMood::reopening, MascotMood::resting,   MascotMood::attention};

// The case name: "welcome", "idle", ... "attention".
std::string_view rawValue(MascotMood mood);
// Absent for any text but the eight raw values (case-sensitive).
std::optional<MascotMood> mascotMoodFromRawValue(std::string_view text);

// What the app is doing right now, as far as the mascot cares.
struct MascotSignals {
  bool needsAttention = false;
  bool saving = false;
  bool reopening = false;
  std::optional<MascotMood> reaction;  // a mood the app asks for explicitly
  bool searching = false;
  bool connected = false;  // at least one browser is connected
  bool hasOpenTabs = false;
  bool hasScanned = false;
};

// The first that applies: attention, saving, reopening, the reaction, searching; then,
// when connected, resting (scanned and no open tabs) or idle; else welcome.
MascotMood resolve(const MascotSignals& signals);

}  // namespace velto
