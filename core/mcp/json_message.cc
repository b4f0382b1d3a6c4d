#include "core/mcp/json_message.h"

namespace velto {

namespace {

using nlohmann::json;

// A minimal walk over text that the JSON parser has already accepted, to recover the raw
// token of the top-level "id": the parsed value has lost how a number was written. Every
// step stays in bounds even on text it was not meant for.
class RawMemberFinder {
 public:
  explicit RawMemberFinder(std::string_view text) : text_(text) {}

  // The text of the last top-level member named `key`, if any.
  std::optional<std::string_view> find(std::string_view key) {
    std::optional<std::string_view> found;
    if (text_.starts_with("\xEF\xBB\xBF")) pos_ = 3;
    skipWhitespace();
    if (!consume('{')) return std::nullopt;
    while (true) {
      skipWhitespace();
      if (pos_ >= text_.size() || text_[pos_] != '"') return found;
      const size_t keyStart = pos_;
      skipString();
      const std::string_view keyToken = text_.substr(keyStart, pos_ - keyStart);
      skipWhitespace();
      if (!consume(':')) return found;
      skipWhitespace();
      const size_t valueStart = pos_;
      skipValue();
      if (keyMatches(keyToken, key)) found = text_.substr(valueStart, pos_ - valueStart);
      skipWhitespace();
      if (!consume(',')) return found;
    }
  }

 private:
  static bool keyMatches(std::string_view token, std::string_view key) {
    if (token.find('\\') == std::string_view::npos) {
      return token.size() == key.size() + 2 && token.substr(1, key.size()) == key;
    }
    const json decoded = json::parse(token, nullptr, false);
    return decoded.is_string() && decoded.get_ref<const std::string&>() == key;
  }

  bool consume(char c) {
    if (pos_ >= text_.size() || text_[pos_] != c) return false;
    ++pos_;
    return true;
  }

  void skipWhitespace() {
    while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t' ||
                                   text_[pos_] == '\n' || text_[pos_] == '\r')) {
      ++pos_;
    }
  }

  // From an opening quote to just past the closing one.
  void skipString() {
    ++pos_;
    while (pos_ < text_.size() && text_[pos_] != '"') pos_ += text_[pos_] == '\\' ? 2 : 1;
    pos_ = std::min(pos_ + 1, text_.size());
  }

  void skipValue() {
    if (pos_ >= text_.size()) return;
    if (text_[pos_] == '"') return skipString();
    if (text_[pos_] == '{' || text_[pos_] == '[') {
      size_t depth = 0;
      while (pos_ < text_.size()) {
        const char c = text_[pos_];
        if (c == '"') {
          skipString();
          continue;
        }
        ++pos_;
        if (c == '{' || c == '[') ++depth;
        if ((c == '}' || c == ']') && --depth == 0) return;
      }
      return;
    }
    while (pos_ < text_.size() &&
           std::string_view(",}] \t\r\n").find(text_[pos_]) == std::string_view::npos) {
      ++pos_;
    }
  }

  std::string_view text_;
  size_t pos_ = 0;
};

}  // namespace

std::optional<JSONMessage> parseJSONMessage(std::string_view bytes) {
  bool tooDeep = false;
  const json::parser_callback_t watchDepth = [&tooDeep](int depth, json::parse_event_t event,
                                                        json&) {
    if ((event == json::parse_event_t::object_start || event == json::parse_event_t::array_start) &&
        depth >= kMaxJSONDepth) {
      tooDeep = true;
    }
    return !tooDeep;
  };
  json object = json::parse(bytes, watchDepth, /*allow_exceptions=*/false);
  if (tooDeep || object.is_discarded() || !object.is_object()) return std::nullopt;

  JSONMessage message;
  const auto id = object.find("id");
  if (id != object.end()) {
    std::optional<std::string_view> raw;
    if (id->is_number()) raw = RawMemberFinder(bytes).find("id");
    message.idJSON =
        raw ? std::string(*raw) : id->dump(-1, ' ', false, json::error_handler_t::replace);
  }
  message.object = std::move(object);
  return message;
}

}  // namespace velto
