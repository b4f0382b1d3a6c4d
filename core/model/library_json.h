#pragma once

#include <simdjson.h>

#include <cstddef>
#include <string_view>

// Reading JSON with simdjson On-Demand exactly as strictly as its DOM parser: On-Demand
// parses only the values it is asked for and skips the rest unchecked, so the library
// decoder reads its records through these and walks every other value with checkValue.
// A document passes only if the DOM parser accepts it, and fails with the same error
// class (empty, UTF-8, depth, or any other as malformed JSON).
namespace velto::LibraryJSON {

namespace od = simdjson::ondemand;
using simdjson::error_code;

// Containers nest at most as deep as the DOM parser allows. On-Demand counts the
// document itself as a level and must stay below its parser's limit (optimised builds
// assume so rather than check), so parsers are allocated with kParserDepth.
inline constexpr size_t kMaxDepth = simdjson::DEFAULT_MAX_DEPTH;
inline constexpr size_t kParserDepth = kMaxDepth + 2;

// The text of a string value, which it consumes; INCORRECT_TYPE for any other value.
// Text without escapes points into the document itself (no copy, and the parser's
// string buffer stays untouched); only escaped text is unescaped, into that buffer.
error_code textOf(od::value& value, std::string_view& out);

// An object member's key, unescaped only if it has escapes (a file may spell "version"
// as "ver\u0073ion").
error_code keyOf(od::field& field, std::string_view& out);

// Consumes `value`, checking it and everything in it as the DOM parser would. `depth`
// counts the containers around it.
error_code checkValue(od::value& value, size_t depth);

// The whole document, whatever its shape, from its start; its bytes end at `end`.
error_code checkDocument(od::document& document, const char* end);

// Whether only whitespace follows what has been read of the document.
bool atEnd(od::document& document);

}  // namespace velto::LibraryJSON
