#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

// One JSON-RPC message read from the bytes of a line.
struct JSONMessage {
  nlohmann::json object;  // the top level, always a JSON object
  // The exact JSON text to write back as the response's "id", absent when the message
  // has no "id" member (a notification, or an envelope error answered with null).
  // Every number in it, at any depth, is kept as its own token, so 1.0, -0, 1E5 and
  // integers beyond 64 bits come back exactly as sent; the rest is the same value
  // written compactly, object keys sorted, strings as the response writer writes them.
  std::optional<std::string> idJSON;
};

// Nesting deeper than this is refused like malformed JSON, so that echoing a hostile id
// can never exhaust the stack.
inline constexpr int kMaxJSONDepth = 512;

// Parses one message strictly (RFC 8259: UTF-8, no comments, no trailing text; a UTF-8
// byte order mark is skipped). Absent when the bytes are not JSON, nest deeper than
// kMaxJSONDepth, hold a number too large for a double (1e400), or the top level is not
// an object. When a key repeats, the last occurrence counts.
std::optional<JSONMessage> parseJSONMessage(std::string_view bytes);

}  // namespace velto
