#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/model/records.h"
#include "core/support/result.h"

// Decides which external clients may talk to the server. The app gives each client it
// allows a secret token once and stores only the token's hash in the client's grant;
// the client presents its id and token on every connection.
namespace velto::ClientAuthorization {

// A new token: the lowercase hex form of 32 bytes from the secure random source (64
// characters). VeltoError::secureKeyUnavailable() when the source fails.
Result<std::string> newToken();

// The hash stored for `token`: lowercase hex SHA-256 of its UTF-8 bytes (64 characters).
std::string hash(std::string_view token);

// The first grant, in library order, whose id equals `clientID` (parsed as a UUID, so any
// letter case) and whose tokenHash equals hash(token), the hashes compared in constant
// time. Absent when the token is not exactly 64 characters, the id does not parse, or no
// grant matches; the caller cannot tell these apart, by design.
std::optional<ClientGrant> authorize(std::string_view clientID, std::string_view token,
                                     const LibraryState& state);

}  // namespace velto::ClientAuthorization
