#include "core/model/inactivity_scale.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace velto {
namespace {

using Int = std::numeric_limits<int64_t>;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(InactivityScaleTest, OnlyOneAndOneHundredSixtyEightHaveTheirOwnLabels) {
  const std::pair<int64_t, const char*> cases[] = {
      {1, "1 hour"}, {168, "7 days"}, {24, "24 hours"}, {48, "48 hours"}, {0, "0 hours"}};
  for (const auto& [hours, label] : cases) EXPECT_EQ(InactivityScale::label(hours), label);
}

TEST(InactivityScaleTest, PositionsClampAndInterpolate) {
  const std::pair<int64_t, double> cases[] = {
      {1, 0.0},    {6, 1.0},          {12, 2.0},         {24, 3.0}, {168, 4.0},
      {3, 0.4},    {9, 1.5},          {48, 3 + 1 / 6.0}, {0, 0.0},  {-5, 0.0},
      {1000, 4.0}, {Int::min(), 0.0}, {Int::max(), 4.0}};
  for (const auto& [hours, position] : cases) {
    EXPECT_DOUBLE_EQ(InactivityScale::position(hours), position) << hours;
  }
}

TEST(InactivityScaleTest, HoursClampAndRoundHalvesAwayFromZero) {
  // 0.3 and 1.25 land on a half: 1 + R(1.5) and 6 + R(1.5).
  const std::pair<double, int64_t> cases[] = {
      {0.0, 1},    {0.5, 4},   {0.3, 3},   {0.29, 2}, {1.0, 6},  {1.25, 8},        {3.5, 96},
      {3.99, 167}, {4.0, 168}, {9.0, 168}, {-1.0, 1}, {-0.0, 1}, {kInfinity, 168}, {-kInfinity, 1}};
  for (const auto& [position, hours] : cases) {
    EXPECT_EQ(InactivityScale::hours(position), hours) << position;
  }
}

TEST(InactivityScaleTest, RoundTripsEveryStopAndStaysWithinARoundingStepBetween) {
  for (int64_t h = 1; h <= 168; ++h) {
    const int64_t back = InactivityScale::hours(InactivityScale::position(h));
    const bool stop = std::find(InactivityScale::kHours.begin(), InactivityScale::kHours.end(),
                                h) != InactivityScale::kHours.end();
    EXPECT_LE(std::llabs(back - h), stop ? 0 : 1) << h;
  }
}

TEST(InactivityScaleDeathTest, NotANumberStopsTheProcess) {
  EXPECT_DEATH(InactivityScale::hours(std::nan("")), "not a number");
}

}  // namespace
}  // namespace velto
