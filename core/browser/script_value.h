#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

// A value returned by a browser script: the kinds our scripts produce (lists, text,
// integers, booleans and AppleScript's `missing value`). The accessors coerce the way
// an Apple Event descriptor does, so callers read a reply without checking kinds first;
// a coercion that does not apply gives its stated fallback instead of failing.
class ScriptValue {
 public:
  enum class Kind { missing, list, text, integer, boolean };

  ScriptValue() = default;  // missing
  static ScriptValue text(std::string text);
  static ScriptValue integer(int64_t number);
  static ScriptValue boolean(bool flag);
  static ScriptValue list(std::vector<ScriptValue> items);

  Kind kind() const { return kind_; }

  // The number of items of a list; 0 for any other kind.
  size_t numberOfItems() const { return items_.size(); }
  // The item at a 1-based position of a list; absent outside 1...numberOfItems().
  const ScriptValue* item(size_t position) const;

  // Text as it is, an integer in decimal; absent for every other kind.
  std::optional<std::string> stringValue() const;
  // An integer or a text holding one ("-12"), when it fits 32 bits; a boolean as 1 or 0;
  // 0 otherwise.
  int32_t int32Value() const;
  // A boolean; for an integer, whether it is not 0; false otherwise.
  bool booleanValue() const;

  bool operator==(const ScriptValue&) const = default;

 private:
  Kind kind_ = Kind::missing;
  std::string text_;
  int64_t number_ = 0;  // integer value, or 1/0 for a boolean
  std::vector<ScriptValue> items_;
};

// Reads one value printed by the system script runner in source form (`osascript -s s`):
// `{"a", 1, true, missing value, {}}`, strings with the escapes \" \\ \n \r \t (line
// breaks may also appear raw), integers in decimal. Surrounding white space is ignored and
// an empty output is `missing value`. Absent for anything else, including kinds our
// scripts never return (reals, records, object references) and lists nested deeper than
// kMaxScriptValueDepth.
std::optional<ScriptValue> parseScriptOutput(std::string_view output);

inline constexpr int kMaxScriptValueDepth = 32;

}  // namespace velto
