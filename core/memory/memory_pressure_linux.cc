#include "core/memory/memory_pressure.h"

namespace velto {

// Linux has no single pressure level comparable to the macOS one (PSI reports stall
// percentages, not levels), so the app simply shows none.
std::optional<int32_t> readMemoryPressureLevel() { return std::nullopt; }

}  // namespace velto
