#include "core/support/uuid.h"

#include "core/support/crypto.h"

namespace velto {

namespace {

// The value of each hexadecimal digit, 0xff for every other byte. A table instead of
// comparisons: ids are random, so branching on digit-or-letter mispredicts about half the
// time, and a large library holds a hundred thousand ids that are parsed on every load.
constexpr std::array<uint8_t, 256> kHexValues = [] {
  std::array<uint8_t, 256> values{};
  values.fill(0xff);
  for (int i = 0; i < 10; ++i) values['0' + i] = static_cast<uint8_t>(i);
  for (int i = 0; i < 6; ++i) {
    values['a' + i] = values['A' + i] = static_cast<uint8_t>(10 + i);
  }
  return values;
}();

// Where each byte's two digits start in the 8-4-4-4-12 form.
constexpr std::array<uint8_t, 16> kByteOffsets{0,  2,  4,  6,  9,  11, 14, 16,
                                               19, 21, 24, 26, 28, 30, 32, 34};

}  // namespace

std::optional<Uuid> Uuid::parse(std::string_view text) {
  if (text.size() != 36 || text[8] != '-' || text[13] != '-' || text[18] != '-' ||
      text[23] != '-') {
    return std::nullopt;
  }
  Uuid uuid;
  uint8_t invalid = 0;
  for (size_t i = 0; i < 16; ++i) {
    const uint8_t high = kHexValues[static_cast<uint8_t>(text[kByteOffsets[i]])];
    const uint8_t low = kHexValues[static_cast<uint8_t>(text[kByteOffsets[i] + 1])];
    invalid |= high | low;
    uuid.bytes[i] = static_cast<uint8_t>(high << 4 | low);
  }
  if (invalid > 0x0f) return std::nullopt;
  return uuid;
}

std::optional<Uuid> Uuid::random() {
  Uuid uuid;
  if (!secureRandomBytes(uuid.bytes.data(), uuid.bytes.size())) return std::nullopt;
  uuid.bytes[6] = static_cast<uint8_t>((uuid.bytes[6] & 0x0f) | 0x40);
  uuid.bytes[8] = static_cast<uint8_t>((uuid.bytes[8] & 0x3f) | 0x80);
  return uuid;
}

std::string Uuid::text() const {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(36);
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
    out.push_back(kDigits[bytes[i] >> 4]);
    out.push_back(kDigits[bytes[i] & 0x0f]);
  }
  return out;
}

}  // namespace velto
