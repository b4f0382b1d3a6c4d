#include "core/policy/mascot_mood.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

TEST(MascotMoodTest, RawValuesRoundTripAndNothingElseParses) {
  const char* names[] = {"welcome",     "idle",      "searching", "saving",
                         "celebrating", "reopening", "resting",   "attention"};
  ASSERT_EQ(std::size(names), kAllMoods.size());
  for (size_t i = 0; i < kAllMoods.size(); ++i) {
    EXPECT_EQ(rawValue(kAllMoods[i]), names[i]);
    EXPECT_EQ(mascotMoodFromRawValue(names[i]), kAllMoods[i]);
  }
  for (const char* bad : {"", "Idle", "IDLE", " idle", "idle ", "sleeping"}) {
    EXPECT_EQ(mascotMoodFromRawValue(bad), std::nullopt) << bad;
  }
}

TEST(MascotMoodTest, PriorityOfTheSignals) {
  struct Case {
    const char* name;
    MascotSignals signals;
    MascotMood mood;
  };
  using enum MascotMood;
  const Case cases[] = {
      {"nothing going on", {}, welcome},
      {"attention outranks all",
       {true, true, true, celebrating, true, true, true, true},
       attention},
      {"saving outranks reopening", {.saving = true, .reopening = true, .reaction = idle}, saving},
      {"reopening outranks a reaction", {.reopening = true, .reaction = celebrating}, reopening},
      {"a reaction outranks searching", {.reaction = celebrating, .searching = true}, celebrating},
      {"any reaction is taken as is", {.reaction = welcome, .connected = true}, welcome},
      {"searching outranks the connection", {.searching = true, .connected = true}, searching},
      {"connected, not yet scanned", {.connected = true}, idle},
      {"connected, scanned, no tabs", {.connected = true, .hasScanned = true}, resting},
      {"connected, scanned, tabs",
       {.connected = true, .hasOpenTabs = true, .hasScanned = true},
       idle},
      {"not connected, scanned, tabs", {.hasOpenTabs = true, .hasScanned = true}, welcome},
  };
  for (const Case& c : cases) EXPECT_EQ(resolve(c.signals), c.mood) << c.name;
}

}  // namespace
}  // namespace velto
