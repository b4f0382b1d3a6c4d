#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace velto {

// The system-wide memory pressure level, so the app can say when closing browser tabs
// would relieve the machine. The raw values are the numbers the system reports.
enum class MemoryPressure : int64_t { normal = 1, warning = 2, critical = 4 };

int64_t rawValue(MemoryPressure pressure);
// 1, 2 and 4 give a level; every other number is absent.
std::optional<MemoryPressure> memoryPressureFromRawValue(int64_t value);
// True for warning and critical.
bool isElevated(MemoryPressure pressure);
// "normal", "warning", "critical": for people reading a status line.
std::string_view displayName(MemoryPressure pressure);

// The level of a reading of the system control; absent when the reading failed or is a
// number the table does not know.
std::optional<MemoryPressure> memoryPressureFromReading(std::optional<int32_t> reading);

// The current level, or absent when the platform cannot tell (always absent on Linux).
// Nothing is logged.
std::optional<MemoryPressure> currentMemoryPressure();

// Platform part (memory_pressure_macos.cc, memory_pressure_linux.cc): the raw value of
// the system's memory pressure control, absent when the call fails or there is none.
std::optional<int32_t> readMemoryPressureLevel();

}  // namespace velto
