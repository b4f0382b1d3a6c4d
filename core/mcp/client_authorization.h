#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

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

// Why check() refused: for the server's operator only. The client's answer is the same
// for all of them.
enum class Refusal {
  noVariables,        // both the id and the token are empty (their variables unset)
  noClientID,         // the id is empty
  noToken,            // the token is empty
  malformedToken,     // the token is not 64 characters long
  malformedClientID,  // the id does not parse as a UUID
  unknownClient,      // no grant has this id
  wrongToken,         // grants have this id, none this token's hash
};

// authorize(), telling why when it refuses. Absent variables are told apart first, then
// the token's length, the id's form, and whether any grant has the id at all.
std::variant<ClientGrant, Refusal> check(std::string_view clientID, std::string_view token,
                                         const LibraryState& state);

// One sentence naming the check that failed; for unknownClient and wrongToken it names the
// client id (parsed, so it can hold nothing else). Never holds the token or a hash.
std::string describe(Refusal refusal, std::string_view clientID);

}  // namespace velto::ClientAuthorization
