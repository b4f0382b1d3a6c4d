#include "core/memory/memory_pressure.h"

namespace velto {

int64_t rawValue(MemoryPressure pressure) { return static_cast<int64_t>(pressure); }

std::optional<MemoryPressure> memoryPressureFromRawValue(int64_t value) {
  switch (value) {
    case 1:
      return MemoryPressure::normal;
    case 2:
      return MemoryPressure::warning;
    case 4:
      return MemoryPressure::critical;
    default:
      return std::nullopt;
  }
}

bool isElevated(MemoryPressure pressure) { return pressure != MemoryPressure::normal; }

std::string_view displayName(MemoryPressure pressure) {
  switch (pressure) {
    case MemoryPressure::normal:
      return "normal";
    case MemoryPressure::warning:
      return "warning";
    case MemoryPressure::critical:
      return "critical";
  }
  return "";
}

std::optional<MemoryPressure> memoryPressureFromReading(std::optional<int32_t> reading) {
  if (!reading) return std::nullopt;
  return memoryPressureFromRawValue(*reading);
}

std::optional<MemoryPressure> currentMemoryPressure() {
  return memoryPressureFromReading(readMemoryPressureLevel());
}

}  // namespace velto
