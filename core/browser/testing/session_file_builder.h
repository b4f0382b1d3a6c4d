#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

// Writes session files command by command, in the layout Chromium-family browsers use,
// for tests and fuzz seeds that need a file with exactly these commands.
namespace velto::testing {

class SessionFileBuilder {
 public:
  explicit SessionFileBuilder(int32_t version = 3) {
    bytes_ = "SNSS";
    int32(bytes_, version);
  }

  // A command with the raw `payload`; `size` overrides the recorded length (id included).
  SessionFileBuilder& command(uint8_t id, std::string_view payload, int size = -1) {
    const auto length =
        static_cast<uint16_t>(size >= 0 ? size : static_cast<int>(payload.size()) + 1);
    bytes_ += static_cast<char>(length & 0xFF);
    bytes_ += static_cast<char>(length >> 8);
    bytes_ += static_cast<char>(id);
    bytes_ += payload;
    return *this;
  }
  // A fixed-layout command of 4-byte values.
  SessionFileBuilder& ints(uint8_t id, std::initializer_list<int32_t> values) {
    std::string payload;
    for (int32_t value : values) int32(payload, value);
    return command(id, payload);
  }

  SessionFileBuilder& tabWindow(int32_t window, int32_t tab) { return ints(0, {window, tab}); }
  SessionFileBuilder& tabIndex(int32_t tab, int32_t index) { return ints(2, {tab, index}); }
  SessionFileBuilder& selectedNavigation(int32_t tab, int32_t index) {
    return ints(7, {tab, index});
  }
  SessionFileBuilder& selectedTab(int32_t window, int32_t index) {
    return ints(8, {window, index});
  }
  SessionFileBuilder& windowType(int32_t window, int32_t type) { return ints(9, {window, type}); }
  SessionFileBuilder& pinned(int32_t tab, bool pinned) {
    std::string payload;
    int32(payload, tab);
    payload += std::string(1, pinned ? '\1' : '\0') + std::string(3, '\0');
    return command(12, payload);
  }
  SessionFileBuilder& tabClosed(int32_t tab) { return timed(16, tab, 0); }
  SessionFileBuilder& windowClosed(int32_t window) { return timed(17, window, 0); }
  // `time` in microseconds since 1601-01-01 UTC.
  SessionFileBuilder& lastActive(int32_t tab, int64_t time) { return timed(21, tab, time); }
  SessionFileBuilder& marker() { return command(255, ""); }

  // UpdateTabNavigation: a pickle of the tab, the navigation index, the URL, the title
  // (UTF-8 here, UTF-16 in the file) and the fields that follow them in a real file.
  SessionFileBuilder& navigation(int32_t tab, int32_t index, std::string_view url,
                                 std::string_view title) {
    std::string pickle;
    int32(pickle, tab);
    int32(pickle, index);
    string(pickle, url);
    const std::u16string units = utf16(title);
    int32(pickle, static_cast<int32_t>(units.size()));
    for (char16_t unit : units) {
      pickle += static_cast<char>(unit & 0xFF);
      pickle += static_cast<char>(unit >> 8);
    }
    pad(pickle);
    string(pickle, "");  // page state
    int32(pickle, 0);    // transition
    std::string payload;
    int32(payload, static_cast<int32_t>(pickle.size()));
    return command(6, payload + pickle);
  }

  const std::string& bytes() const { return bytes_; }

  static void int32(std::string& out, int32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
      out += static_cast<char>(static_cast<uint32_t>(value) >> shift & 0xFF);
    }
  }
  static void int64(std::string& out, int64_t value) {
    for (int shift = 0; shift < 64; shift += 8) {
      out += static_cast<char>(static_cast<uint64_t>(value) >> shift & 0xFF);
    }
  }

 private:
  SessionFileBuilder& timed(uint8_t id, int32_t subject, int64_t time) {
    std::string payload;
    int32(payload, subject);
    int32(payload, 0);  // padding before the 64-bit field
    int64(payload, time);
    return command(id, payload);
  }
  static void pad(std::string& out) { out.append((4 - out.size() % 4) % 4, '\0'); }
  static void string(std::string& out, std::string_view text) {
    int32(out, static_cast<int32_t>(text.size()));
    out += text;
    pad(out);
  }
  // UTF-8 (valid, as tests write it) to UTF-16 code units.
  static std::u16string utf16(std::string_view text) {
    std::u16string units;
    for (size_t i = 0; i < text.size();) {
      const auto byte = static_cast<unsigned char>(text[i]);
      const int extra = byte < 0x80 ? 0 : byte < 0xE0 ? 1 : byte < 0xF0 ? 2 : 3;
      uint32_t code = extra == 0 ? byte : byte & (0x3F >> extra);
      for (int k = 1; k <= extra; ++k)
        code = code << 6 | (static_cast<unsigned char>(text[i + k]) & 0x3F);
      i += static_cast<size_t>(extra) + 1;
      if (code >= 0x10000) {
        units += static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10));
        units += static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
      } else {
        units += static_cast<char16_t>(code);
      }
    }
    return units;
  }

  std::string bytes_;
};

}  // namespace velto::testing
