#include "core/model/inactivity_scale.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace velto {
namespace {

TEST(InactivityScaleTest, Labels) {
  struct Case {
    int64_t hours;
    const char* label;
  };
  for (const Case& c :
       {Case{1, "1 hour"}, Case{168, "7 days"}, Case{6, "6 hours"}, Case{24, "24 hours"},
        Case{48, "48 hours"}, Case{0, "0 hours"}, Case{-2, "-2 hours"}, Case{336, "336 hours"}}) {
    EXPECT_EQ(InactivityScale::label(c.hours), c.label) << c.hours;
  }
}

TEST(InactivityScaleTest, PositionsClampAndInterpolate) {
  struct Case {
    int64_t hours;
    double position;
  };
  for (const Case& c :
       {Case{1, 0.0}, Case{6, 1.0}, Case{12, 2.0}, Case{24, 3.0}, Case{168, 4.0}, Case{3, 0.4},
        Case{9, 1.5}, Case{48, 3.0 + 24.0 / 144.0}, Case{0, 0.0}, Case{-5, 0.0}, Case{1000, 4.0},
        Case{std::numeric_limits<int64_t>::min(), 0.0},
        Case{std::numeric_limits<int64_t>::max(), 4.0}}) {
    EXPECT_DOUBLE_EQ(InactivityScale::position(c.hours), c.position) << c.hours;
  }
}

TEST(InactivityScaleTest, HoursClampAndRoundHalvesAwayFromZero) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  struct Case {
    double position;
    int64_t hours;
  };
  for (const Case& c :
       {Case{0.0, 1}, Case{0.5, 4}, Case{0.3, 3} /* 1 + R(1.5) */, Case{0.29, 2}, Case{1.0, 6},
        Case{1.25, 8} /* 6 + R(1.5) */, Case{3.5, 96}, Case{3.99, 167}, Case{4.0, 168},
        Case{9.0, 168}, Case{-1.0, 1}, Case{-0.0, 1}, Case{kInfinity, 168}, Case{-kInfinity, 1}}) {
    EXPECT_EQ(InactivityScale::hours(c.position), c.hours) << c.position;
  }
}

TEST(InactivityScaleTest, RoundTripsEveryStopAndStaysWithinARoundingStepBetween) {
  for (int64_t stop : InactivityScale::kHours) {
    EXPECT_EQ(InactivityScale::hours(InactivityScale::position(stop)), stop);
  }
  for (int64_t h = 1; h <= 168; ++h) {
    EXPECT_LE(std::llabs(InactivityScale::hours(InactivityScale::position(h)) - h), 1) << h;
  }
}

TEST(InactivityScaleDeathTest, NotANumberStopsTheProcess) {
  EXPECT_DEATH(InactivityScale::hours(std::nan("")), "not a number");
}

}  // namespace
}  // namespace velto
