#include "core/support/uuid.h"

#include "core/support/crypto.h"

namespace velto {

namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool isHyphenPosition(size_t i) { return i == 8 || i == 13 || i == 18 || i == 23; }

}  // namespace

std::optional<Uuid> Uuid::parse(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  Uuid uuid;
  size_t byte = 0;
  for (size_t i = 0; i < 36;) {
    if (isHyphenPosition(i)) {
      if (text[i] != '-') return std::nullopt;
      ++i;
      continue;
    }
    const int high = hexValue(text[i]), low = hexValue(text[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    uuid.bytes[byte++] = static_cast<uint8_t>(high << 4 | low);
    i += 2;
  }
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
