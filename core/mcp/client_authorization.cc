#include "core/mcp/client_authorization.h"

#include <array>
#include <cstdint>

#include "core/model/velto_error.h"
#include "core/support/crypto.h"
#include "core/support/text.h"

namespace velto::ClientAuthorization {

Result<std::string> newToken() {
  std::array<uint8_t, 32> bytes{};
  if (!secureRandomBytes(bytes.data(), bytes.size())) return VeltoError::secureKeyUnavailable();
  return hexLower(bytes.data(), bytes.size());
}

std::string hash(std::string_view token) { return sha256Hex(token); }

std::optional<ClientGrant> authorize(std::string_view clientID, std::string_view token,
                                     const LibraryState& state) {
  if (characterCount(token) != 64) return std::nullopt;
  const std::optional<Uuid> id = Uuid::parse(clientID);
  if (!id) return std::nullopt;
  const std::string presented = hash(token);
  for (const ClientGrant& grant : state.clients) {
    if (grant.id == *id && constantTimeEquals(grant.tokenHash, presented)) return grant;
  }
  return std::nullopt;
}

}  // namespace velto::ClientAuthorization
