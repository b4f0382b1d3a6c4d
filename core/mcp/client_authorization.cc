#include "core/mcp/client_authorization.h"

#include <array>
#include <cstdint>
#include <utility>

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
  auto decided = check(clientID, token, state);
  if (auto* grant = std::get_if<ClientGrant>(&decided)) return std::move(*grant);
  return std::nullopt;
}

std::variant<ClientGrant, Refusal> check(std::string_view clientID, std::string_view token,
                                         const LibraryState& state) {
  if (clientID.empty() && token.empty()) return Refusal::noVariables;
  if (clientID.empty()) return Refusal::noClientID;
  if (token.empty()) return Refusal::noToken;
  if (characterCount(token) != 64) return Refusal::malformedToken;
  const std::optional<Uuid> id = Uuid::parse(clientID);
  if (!id) return Refusal::malformedClientID;
  const std::string presented = hash(token);
  bool known = false;
  for (const ClientGrant& grant : state.clients) {
    if (grant.id != *id) continue;
    known = true;
    if (constantTimeEquals(grant.tokenHash, presented)) return grant;
  }
  return known ? Refusal::wrongToken : Refusal::unknownClient;
}

std::string describe(Refusal refusal, std::string_view clientID) {
  const std::string id = Uuid::parse(clientID).value_or(Uuid{}).text();
  switch (refusal) {
    case Refusal::noVariables:
      return "VELTO_CLIENT_ID and VELTO_CLIENT_TOKEN are empty or not set";
    case Refusal::noClientID:
      return "VELTO_CLIENT_ID is empty or not set";
    case Refusal::noToken:
      return "VELTO_CLIENT_TOKEN is empty or not set";
    case Refusal::malformedToken:
      return "VELTO_CLIENT_TOKEN is not 64 characters long";
    case Refusal::malformedClientID:
      return "VELTO_CLIENT_ID is not a UUID";
    case Refusal::unknownClient:
      return "no client has the id " + id + " (VELTO_CLIENT_ID)";
    case Refusal::wrongToken:
      return "VELTO_CLIENT_TOKEN is not the token of the client " + id;
  }
  return "the client was refused";
}

}  // namespace velto::ClientAuthorization
