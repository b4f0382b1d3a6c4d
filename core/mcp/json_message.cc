#include "core/mcp/json_message.h"

#include <algorithm>
#include <map>

namespace velto {

namespace {

using nlohmann::json;

// Reads the "id" of text that the JSON parser has already accepted, straight from the
// text: the parsed value has lost how each number was written, and an id must come back
// as sent. Every step stays in bounds and moves forward even on text it was not meant for.
class RawIdReader {
 public:
  explicit RawIdReader(std::string_view text) : text_(text) {}

  // The last top-level member named `key`, rewritten; absent when there is none.
  std::optional<std::string> member(std::string_view key) {
    if (text_.starts_with("\xEF\xBB\xBF")) pos_ = 3;
    skipWhitespace();
    if (!at('{')) return std::nullopt;
    std::optional<std::string> found;
    members([&](const std::string& name) -> std::string* {
      if (name != key) return nullptr;  // skipped, not rewritten
      return &found.emplace();
    });
    return found;
  }

 private:
  bool at(char c) const { return pos_ < text_.size() && text_[pos_] == c; }

  bool consume(char c) {
    if (!at(c)) return false;
    ++pos_;
    return true;
  }

  void skipWhitespace() {
    while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t' ||
                                   text_[pos_] == '\n' || text_[pos_] == '\r')) {
      ++pos_;
    }
  }

  // From an opening quote to just past the closing one, as written.
  std::string_view stringToken() {
    const size_t start = pos_++;
    while (pos_ < text_.size() && text_[pos_] != '"') pos_ += text_[pos_] == '\\' ? 2 : 1;
    pos_ = std::min(pos_ + 1, text_.size());
    return text_.substr(start, pos_ - start);
  }

  static std::string decoded(std::string_view token) {
    if (token.find('\\') == std::string_view::npos && token.size() >= 2) {
      return std::string(token.substr(1, token.size() - 2));
    }
    const json value = json::parse(token, nullptr, false);
    return value.is_string() ? value.get<std::string>() : std::string();
  }

  // Written as the response writer writes strings: without escapes where none are needed.
  static std::string quoted(std::string_view text) {
    return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
  }

  // Moves past one value, appending it compactly to `out` unless `out` is null. Objects
  // get their keys sorted, the last of repeated keys counting, as in the parsed value.
  void value(std::string* out) {
    skipWhitespace();
    if (at('{')) return object(out);
    if (at('[')) return array(out);
    if (at('"')) {
      const std::string_view token = stringToken();
      if (out) *out += token.find('\\') == std::string_view::npos ? token : quoted(decoded(token));
      return;
    }
    const size_t start = pos_;
    while (pos_ < text_.size() &&
           std::string_view(",:{}[]\" \t\r\n").find(text_[pos_]) == std::string_view::npos) {
      ++pos_;
    }
    if (out) out->append(text_.substr(start, pos_ - start));
  }

  void array(std::string* out) {
    ++pos_;
    if (out) *out += '[';
    skipWhitespace();
    if (!consume(']')) {
      bool first = true;
      do {
        if (out && !first) *out += ',';
        first = false;
        value(out);
        skipWhitespace();
      } while (consume(','));
      consume(']');
    }
    if (out) *out += ']';
  }

  void object(std::string* out) {
    if (!out) return members([](const std::string&) -> std::string* { return nullptr; });
    std::map<std::string, std::string> sorted;
    members([&](const std::string& key) {
      std::string& slot = sorted[key];
      slot.clear();
      return &slot;
    });
    *out += '{';
    for (const auto& [key, text] : sorted) {
      if (out->back() != '{') *out += ',';
      *out += quoted(key);
      *out += ':';
      *out += text;
    }
    *out += '}';
  }

  // Walks the object at pos_: `sink` gets each key and says where its value is written
  // (null: skip it).
  template <class Sink>
  void members(Sink&& sink) {
    ++pos_;
    skipWhitespace();
    if (consume('}')) return;
    do {
      skipWhitespace();
      if (!at('"')) return;
      const std::string key = decoded(stringToken());
      skipWhitespace();
      if (!consume(':')) return;
      value(sink(key));
      skipWhitespace();
    } while (consume(','));
    consume('}');
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
  return JSONMessage{std::move(object), RawIdReader(bytes).member("id")};
}

}  // namespace velto
