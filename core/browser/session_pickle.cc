#include "core/browser/session_pickle.h"

namespace velto {

namespace {

uint64_t littleEndian(std::string_view bytes) {
  uint64_t value = 0;
  for (size_t i = bytes.size(); i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes[i]);
  return value;
}

void appendUTF8(std::string& out, uint32_t code) {
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += static_cast<char>(0xC0 | code >> 6);
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    out += static_cast<char>(0xE0 | code >> 12);
    out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | code >> 18);
    out += static_cast<char>(0x80 | (code >> 12 & 0x3F));
    out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (code & 0x3F));
  }
}

}  // namespace

std::optional<int32_t> int32At(std::string_view bytes, size_t offset) {
  if (offset > bytes.size() || bytes.size() - offset < 4) return std::nullopt;
  return static_cast<int32_t>(static_cast<uint32_t>(littleEndian(bytes.substr(offset, 4))));
}

std::optional<int64_t> int64At(std::string_view bytes, size_t offset) {
  if (offset > bytes.size() || bytes.size() - offset < 8) return std::nullopt;
  return static_cast<int64_t>(littleEndian(bytes.substr(offset, 8)));
}

std::string utf8FromUTF16LE(std::string_view units) {
  std::string out;
  out.reserve(units.size());
  const size_t count = units.size() / 2;
  const auto unit = [&](size_t i) {
    return static_cast<uint32_t>(littleEndian(units.substr(i * 2, 2)));
  };
  for (size_t i = 0; i < count; ++i) {
    const uint32_t high = unit(i);
    if (high >= 0xD800 && high <= 0xDBFF && i + 1 < count) {
      const uint32_t low = unit(i + 1);
      if (low >= 0xDC00 && low <= 0xDFFF) {
        appendUTF8(out, 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00));
        ++i;
        continue;
      }
    }
    appendUTF8(out, high >= 0xD800 && high <= 0xDFFF ? 0xFFFD : high);
  }
  return out;
}

PickleReader::PickleReader(std::string_view bytes) {
  const auto length = int32At(bytes, 0);
  if (!length) return;
  rest_ = bytes.substr(4, static_cast<uint32_t>(*length));
}

std::optional<std::string_view> PickleReader::take(size_t size) {
  if (size > rest_.size()) return exhausted();
  const std::string_view field = rest_.substr(0, size);
  const size_t padded = (size + 3) / 4 * 4;
  rest_.remove_prefix(padded < rest_.size() ? padded : rest_.size());
  return field;
}

std::nullopt_t PickleReader::exhausted() {
  rest_ = {};
  return std::nullopt;
}

std::optional<int32_t> PickleReader::readInt32() {
  const auto field = take(4);
  if (!field) return std::nullopt;
  return int32At(*field, 0);
}

std::optional<int64_t> PickleReader::readInt64() {
  const auto field = take(8);
  if (!field) return std::nullopt;
  return int64At(*field, 0);
}

std::optional<bool> PickleReader::readBool() {
  const auto value = readInt32();
  if (!value) return std::nullopt;
  return *value != 0;
}

std::optional<std::string> PickleReader::readString() {
  const auto length = readInt32();
  if (!length || *length < 0) return exhausted();
  const auto field = take(static_cast<size_t>(*length));
  if (!field) return std::nullopt;
  return std::string(*field);
}

std::optional<std::string> PickleReader::readString16() {
  const auto length = readInt32();
  if (!length || *length < 0) return exhausted();
  const auto field = take(static_cast<size_t>(*length) * 2);
  if (!field) return std::nullopt;
  return utf8FromUTF16LE(*field);
}

}  // namespace velto
