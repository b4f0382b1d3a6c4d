#include "core/browser/script_value.h"

#include <charconv>
#include <limits>

namespace velto {

ScriptValue ScriptValue::text(std::string text) {
  ScriptValue value;
  value.kind_ = Kind::text;
  value.text_ = std::move(text);
  return value;
}

ScriptValue ScriptValue::integer(int64_t number) {
  ScriptValue value;
  value.kind_ = Kind::integer;
  value.number_ = number;
  return value;
}

ScriptValue ScriptValue::boolean(bool flag) {
  ScriptValue value;
  value.kind_ = Kind::boolean;
  value.number_ = flag ? 1 : 0;
  return value;
}

ScriptValue ScriptValue::list(std::vector<ScriptValue> items) {
  ScriptValue value;
  value.kind_ = Kind::list;
  value.items_ = std::move(items);
  return value;
}

const ScriptValue* ScriptValue::item(size_t position) const {
  if (position < 1 || position > items_.size()) return nullptr;
  return &items_[position - 1];
}

std::optional<std::string> ScriptValue::stringValue() const {
  switch (kind_) {
    case Kind::text:
      return text_;
    case Kind::integer:
      return std::to_string(number_);
    default:
      return std::nullopt;
  }
}

int32_t ScriptValue::int32Value() const {
  int64_t number = 0;
  switch (kind_) {
    case Kind::integer:
    case Kind::boolean:
      number = number_;
      break;
    case Kind::text: {
      const char* end = text_.data() + text_.size();
      if (std::from_chars(text_.data(), end, number).ptr != end) return 0;
      break;
    }
    default:
      return 0;
  }
  if (number < std::numeric_limits<int32_t>::min() ||
      number > std::numeric_limits<int32_t>::max()) {
    return 0;
  }
  return static_cast<int32_t>(number);
}

bool ScriptValue::booleanValue() const {
  return (kind_ == Kind::boolean || kind_ == Kind::integer) && number_ != 0;
}

namespace {

// A recursive-descent reader over the source form. Every step either advances or fails,
// and nesting is bounded, so hostile output costs linear time and bounded stack.
class SourceFormReader {
 public:
  explicit SourceFormReader(std::string_view text) : text_(text) {}

  std::optional<ScriptValue> document() {
    skipSpace();
    if (atEnd()) return ScriptValue();
    auto result = value(0);
    skipSpace();
    if (!result || !atEnd()) return std::nullopt;
    return result;
  }

 private:
  bool atEnd() const { return at_ == text_.size(); }
  char peek() const { return atEnd() ? '\0' : text_[at_]; }

  void skipSpace() {
    while (!atEnd() && (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r')) {
      ++at_;
    }
  }

  // Consumes `word` when it stands here as a whole word.
  bool keyword(std::string_view word) {
    if (text_.substr(at_, word.size()) != word) return false;
    const size_t after = at_ + word.size();
    if (after < text_.size()) {
      const char next = text_[after];
      if ((next >= 'a' && next <= 'z') || (next >= 'A' && next <= 'Z') ||
          (next >= '0' && next <= '9') || next == '_') {
        return false;
      }
    }
    at_ = after;
    return true;
  }

  std::optional<ScriptValue> value(int depth) {
    const char c = peek();
    if (c == '{') return list(depth);
    if (c == '"') return string();
    if (c == '-' || (c >= '0' && c <= '9')) return integer();
    if (keyword("true")) return ScriptValue::boolean(true);
    if (keyword("false")) return ScriptValue::boolean(false);
    if (keyword("missing value")) return ScriptValue();
    return std::nullopt;
  }

  std::optional<ScriptValue> list(int depth) {
    if (depth >= kMaxScriptValueDepth) return std::nullopt;
    ++at_;  // '{'
    std::vector<ScriptValue> items;
    skipSpace();
    if (peek() == '}') {
      ++at_;
      return ScriptValue::list(std::move(items));
    }
    while (true) {
      skipSpace();
      auto item = value(depth + 1);
      if (!item) return std::nullopt;
      items.push_back(std::move(*item));
      skipSpace();
      if (peek() == ',') {
        ++at_;
      } else if (peek() == '}') {
        ++at_;
        return ScriptValue::list(std::move(items));
      } else {
        return std::nullopt;
      }
    }
  }

  std::optional<ScriptValue> string() {
    ++at_;  // '"'
    std::string text;
    while (!atEnd()) {
      const char c = text_[at_++];
      if (c == '"') return ScriptValue::text(std::move(text));
      if (c != '\\') {
        text += c;
        continue;
      }
      switch (peek()) {
        case '"':
          text += '"';
          break;
        case '\\':
          text += '\\';
          break;
        case 'n':
          text += '\n';
          break;
        case 'r':
          text += '\r';
          break;
        case 't':
          text += '\t';
          break;
        default:
          return std::nullopt;  // AppleScript has no other escapes
      }
      ++at_;
    }
    return std::nullopt;  // unterminated
  }

  std::optional<ScriptValue> integer() {
    int64_t number = 0;
    const char* begin = text_.data() + at_;
    const auto [end, error] = std::from_chars(begin, text_.data() + text_.size(), number);
    if (error != std::errc()) return std::nullopt;
    at_ += static_cast<size_t>(end - begin);
    return ScriptValue::integer(number);
  }

  std::string_view text_;
  size_t at_ = 0;
};

}  // namespace

std::optional<ScriptValue> parseScriptOutput(std::string_view output) {
  return SourceFormReader(output).document();
}

}  // namespace velto
