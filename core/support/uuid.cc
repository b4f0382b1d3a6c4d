#include "core/support/uuid.h"

#include <bit>
#include <cstring>

#include "core/support/crypto.h"

namespace velto {

namespace {

constexpr uint64_t kEachByte = 0x0101010101010101;

// Eight hexadecimal digits (either case, in text order in a little-endian word) as four
// bytes; any byte that is not such a digit sets a bit of `invalid`. Eight at a time
// instead of a table look-up per digit: a large library holds a hundred thousand ids that
// are parsed whenever it changes.
uint32_t hexWord(uint64_t word, uint64_t& invalid) {
  // Bit 7 of `byte + (0x80 - bound)` tells whether a byte below 0x80 is >= bound. A byte
  // of 0x80 or more is invalid anyway, whatever its carry does to its neighbours.
  constexpr uint64_t kHigh = 0x80 * kEachByte;
  const auto atLeast = [](uint64_t bytes, uint8_t bound) {
    return (bytes + (0x80 - bound) * kEachByte) & kHigh;
  };
  const uint64_t digit = atLeast(word, '0') & ~atLeast(word, '9' + 1);
  const uint64_t lower = word | 0x20 * kEachByte;
  const uint64_t letter = atLeast(lower, 'a') & ~atLeast(lower, 'f' + 1);
  invalid |= (word & kHigh) | ((digit | letter) ^ kHigh);
  // '0'-'9' keep their low nibble; 'a'-'f' and 'A'-'F' (bit 6 set) add 9 to theirs.
  const uint64_t nibbles = (word & 0x0F * kEachByte) + 9 * ((word >> 6) & kEachByte);
  // Byte 2i becomes digit 2i in its high nibble and digit 2i+1 in its low one; the odd
  // bytes are dropped and the even ones packed together.
  uint64_t packed = ((nibbles << 4) | (nibbles >> 8)) & 0x00FF00FF00FF00FF;
  packed = (packed | (packed >> 8)) & 0x0000FFFF0000FFFF;
  return static_cast<uint32_t>(packed | (packed >> 16));
}

uint64_t load8(const char* at) {
  uint64_t word;
  std::memcpy(&word, at, 8);
  return word;
}

// Two runs of four digits as one word of eight.
uint64_t load4And4(const char* first, const char* second) {
  uint32_t low, high;
  std::memcpy(&low, first, 4);
  std::memcpy(&high, second, 4);
  return uint64_t(high) << 32 | low;
}

}  // namespace

std::optional<Uuid> Uuid::parse(std::string_view text) {
  static_assert(std::endian::native == std::endian::little);
  if (text.size() != 36 || text[8] != '-' || text[13] != '-' || text[18] != '-' ||
      text[23] != '-') {
    return std::nullopt;
  }
  // 8-4-4-4-12 as four runs of eight digits: 0-7, 9-12 with 14-17, 19-22 with 24-27, 28-35.
  const char* at = text.data();
  uint64_t invalid = 0;
  const uint32_t words[4] = {
      hexWord(load8(at), invalid), hexWord(load4And4(at + 9, at + 14), invalid),
      hexWord(load4And4(at + 19, at + 24), invalid), hexWord(load8(at + 28), invalid)};
  if (invalid) return std::nullopt;
  Uuid uuid;
  std::memcpy(uuid.bytes.data(), words, 16);
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
