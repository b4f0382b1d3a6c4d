#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

// A 128-bit identifier, compared by value.
struct Uuid {
  std::array<uint8_t, 16> bytes{};

  // Reads the canonical 36-character hyphenated form (8-4-4-4-12 hexadecimal digits,
  // either letter case). Anything else is absent.
  static std::optional<Uuid> parse(std::string_view text);

  // A new random (version 4) UUID from the secure random source; absent when that fails.
  static std::optional<Uuid> random();

  // The canonical form in upper case.
  std::string text() const;

  bool operator==(const Uuid&) const = default;
  auto operator<=>(const Uuid&) const = default;
};

}  // namespace velto
