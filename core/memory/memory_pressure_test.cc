#include "core/memory/memory_pressure.h"

#include <gtest/gtest.h>

#include <limits>

namespace velto {
namespace {

TEST(MemoryPressureTest, ReadingsMapToLevels) {
  struct Case {
    std::optional<int32_t> reading;
    std::optional<MemoryPressure> level;
  };
  for (const Case& c : {Case{1, MemoryPressure::normal}, Case{2, MemoryPressure::warning},
                        Case{4, MemoryPressure::critical}, Case{0, {}}, Case{3, {}}, Case{5, {}},
                        Case{-1, {}}, Case{std::numeric_limits<int32_t>::min(), {}},
                        Case{std::nullopt, {}} /* the call failed */}) {
    EXPECT_EQ(memoryPressureFromReading(c.reading), c.level) << c.reading.value_or(-999);
    if (c.level) EXPECT_EQ(rawValue(*c.level), *c.reading);
  }
  EXPECT_FALSE(isElevated(MemoryPressure::normal));
  EXPECT_TRUE(isElevated(MemoryPressure::warning));
  EXPECT_TRUE(isElevated(MemoryPressure::critical));
  // A 64-bit number whose low 32 bits read 1 is still not a level.
  EXPECT_EQ(memoryPressureFromRawValue((int64_t{1} << 32) + 1), std::nullopt);
}

TEST(MemoryPressureTest, CurrentFollowsThePlatformReading) {
  EXPECT_EQ(currentMemoryPressure(), memoryPressureFromReading(readMemoryPressureLevel()));
#if !defined(__APPLE__)
  EXPECT_EQ(currentMemoryPressure(), std::nullopt);
#endif
}

}  // namespace
}  // namespace velto
