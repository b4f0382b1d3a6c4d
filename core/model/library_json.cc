#include "core/model/library_json.h"

#include <cstring>

namespace velto::LibraryJSON {

namespace {

bool isJSONSpace(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

// The members of an object (or elements of an array) that `depth` containers, itself
// included, enclose. Like the DOM parser, only a container with something in it counts
// against the depth limit; refusing it before its first member also keeps On-Demand
// within the depth its parser was sized for.
error_code checkMembers(od::object& object, size_t depth) {
  for (auto member : object) {
    if (depth >= kMaxDepth) return simdjson::DEPTH_ERROR;
    std::string_view key;
    if (const error_code code = member.error()) return code;
    if (const error_code code = keyOf(member.value_unsafe(), key)) return code;
    if (const error_code code = checkValue(member.value_unsafe().value(), depth)) return code;
  }
  return simdjson::SUCCESS;
}

error_code checkElements(od::array& array, size_t depth) {
  for (auto item : array) {
    if (depth >= kMaxDepth) return simdjson::DEPTH_ERROR;
    if (const error_code code = item.error()) return code;
    if (const error_code code = checkValue(item.value_unsafe(), depth)) return code;
  }
  return simdjson::SUCCESS;
}

// A document that is a lone scalar, whose bytes end at `end`.
error_code checkScalar(od::document& document, od::json_type type, const char* end) {
  std::string_view token;
  if (const error_code code = document.raw_json_token().get(token)) return code;
  const char* after = token.data() + token.size();
  while (after != end && isJSONSpace(*after)) ++after;
  if (after != end) return simdjson::TAPE_ERROR;
  switch (type) {
    case od::json_type::string:
      return document.get_string().error();
    case od::json_type::number:
      return document.get_number().error();
    default: {
      // Atoms are compared by hand: this simdjson's tests for a document that is only
      // an atom accept "falsek" and refuse "null " with its trailing space.
      std::string_view atom = token;
      while (!atom.empty() && isJSONSpace(atom.back())) atom.remove_suffix(1);
      const bool valid =
          type == od::json_type::null ? atom == "null" : atom == "true" || atom == "false";
      return valid ? simdjson::SUCCESS : simdjson::T_ATOM_ERROR;
    }
  }
}

}  // namespace

// UTF-8 and control characters were checked for the whole document before any value is
// read, so text without a backslash needs no further check.
error_code textOf(od::value& value, std::string_view& out) {
  // The token runs from the opening quote to the next token, whitespace included.
  const std::string_view token = value.raw_json_token();
  size_t end = token.size();
  while (end > 0 && isJSONSpace(token[end - 1])) --end;
  if (end >= 2 && token.front() == '"' && token[end - 1] == '"') {
    const std::string_view inner = token.substr(1, end - 2);
    if (std::memchr(inner.data(), '\\', inner.size()) == nullptr) {
      od::raw_json_string consumed;
      if (const error_code code = value.get_raw_json_string().get(consumed)) return code;
      out = inner;
      return simdjson::SUCCESS;
    }
  }
  return value.get_string().get(out);
}

// The document is padded and its strings are closed, so the scan stops at the closing
// quote at the latest.
error_code keyOf(od::field& field, std::string_view& out) {
  const char* start = field.key().raw();
  const char* end = start;
  while (*end != '"' && *end != '\\') ++end;
  if (*end == '"') {
    out = std::string_view(start, static_cast<size_t>(end - start));
    return simdjson::SUCCESS;
  }
  return field.unescaped_key().get(out);
}

error_code checkValue(od::value& value, size_t depth) {
  od::json_type type;
  if (const error_code code = value.type().get(type)) return code;
  switch (type) {
    case od::json_type::object: {
      od::object object;
      if (const error_code code = value.get_object().get(object)) return code;
      return checkMembers(object, depth + 1);
    }
    case od::json_type::array: {
      od::array array;
      if (const error_code code = value.get_array().get(array)) return code;
      return checkElements(array, depth + 1);
    }
    case od::json_type::string: {
      std::string_view text;
      return textOf(value, text);
    }
    case od::json_type::number:
      return value.get_number().error();
    case od::json_type::boolean:
      return value.get_bool().error();
    case od::json_type::null: {
      bool isNull = false;
      if (const error_code code = value.is_null().get(isNull)) return code;
      return isNull ? simdjson::SUCCESS : simdjson::N_ATOM_ERROR;
    }
  }
  return simdjson::TAPE_ERROR;
}

bool atEnd(od::document& document) {
  const char* location = nullptr;
  return document.current_location().get(location) == simdjson::OUT_OF_BOUNDS;
}

// The root container is opened through the document (not as a value), so that the
// checks On-Demand makes only on a root container run.
error_code checkDocument(od::document& document, const char* end) {
  od::json_type type;
  if (const error_code code = document.type().get(type)) return code;
  error_code code = simdjson::SUCCESS;
  if (type == od::json_type::object) {
    od::object object;
    code = document.get_object().get(object);
    if (!code) code = checkMembers(object, 1);
  } else if (type == od::json_type::array) {
    od::array array;
    code = document.get_array().get(array);
    if (!code) code = checkElements(array, 1);
  } else {
    return checkScalar(document, type, end);
  }
  if (code) return code;
  return atEnd(document) ? simdjson::SUCCESS : simdjson::TAPE_ERROR;
}

}  // namespace velto::LibraryJSON
