#include <sys/sysctl.h>

#include "core/memory/memory_pressure.h"

namespace velto {

std::optional<int32_t> readMemoryPressureLevel() {
  int32_t level = 0;
  size_t length = sizeof(level);
  if (sysctlbyname("kern.memorystatus_vm_pressure_level", &level, &length, nullptr, 0) != 0) {
    return std::nullopt;
  }
  return level;
}

}  // namespace velto
