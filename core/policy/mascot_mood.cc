#include "core/policy/mascot_mood.h"

namespace velto {

std::string_view rawValue(MascotMood mood) {
  switch (mood) {
    case MascotMood::welcome:
      return "welcome";
    case MascotMood::idle:
      return "idle";
    case MascotMood::searching:
      return "searching";
    case MascotMood::saving:
      return "saving";
    case MascotMood::celebrating:
      return "celebrating";
    case MascotMood::reopening:
      return "reopening";
    case MascotMood::resting:
      return "resting";
    case MascotMood::attention:
      return "attention";
  }
  return "";
}

std::optional<MascotMood> mascotMoodFromRawValue(std::string_view text) {
  for (MascotMood mood : kAllMoods) {
    if (rawValue(mood) == text) return mood;
  }
  return std::nullopt;
}

MascotMood resolve(const MascotSignals& signals) {
  if (signals.needsAttention) return MascotMood::attention;
  if (signals.saving) return MascotMood::saving;
  if (signals.reopening) return MascotMood::reopening;
  if (signals.reaction) return *signals.reaction;
  if (signals.searching) return MascotMood::searching;
  if (signals.connected) {
    return signals.hasScanned && !signals.hasOpenTabs ? MascotMood::resting : MascotMood::idle;
  }
  return MascotMood::welcome;
}

}  // namespace velto
