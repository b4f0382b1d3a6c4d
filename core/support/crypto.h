#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace velto {

// Lowercase hexadecimal of the bytes, two digits per byte, no separator.
std::string hexLower(const uint8_t* bytes, size_t count);

// Lowercase hexadecimal SHA-256 digest of the bytes of `data` (64 characters).
std::string sha256Hex(std::string_view data);

// Fills `out` from the operating system's secure random source; false when it fails.
bool secureRandomBytes(uint8_t* out, size_t count);

// Compares two strings in a time that depends only on their lengths, never on where
// they first differ.
bool constantTimeEquals(std::string_view a, std::string_view b);

}  // namespace velto
