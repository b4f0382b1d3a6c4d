#include "core/support/crypto.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <climits>

namespace velto {

std::string hexLower(const uint8_t* bytes, size_t count) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out(count * 2, '0');
  for (size_t i = 0; i < count; ++i) {
    out[2 * i] = kDigits[bytes[i] >> 4];
    out[2 * i + 1] = kDigits[bytes[i] & 0x0f];
  }
  return out;
}

std::string sha256Hex(std::string_view data) {
  uint8_t digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(data.data(), data.size(), digest, &length, EVP_sha256(), nullptr);
  return hexLower(digest, length);
}

bool secureRandomBytes(uint8_t* out, size_t count) {
  return count <= INT_MAX && RAND_bytes(out, static_cast<int>(count)) == 1;
}

bool constantTimeEquals(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  unsigned char accumulator = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    accumulator |= static_cast<unsigned char>(a[i] ^ b[i]);
  }
  // Keep the compiler from turning the loop into an early exit.
  volatile unsigned char result = accumulator;
  return result == 0;
}

}  // namespace velto
