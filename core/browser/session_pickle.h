#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

// Reads the fields of one pickled payload of a Chromium session file: a 4-byte
// little-endian payload length, then fields each padded to a multiple of 4 bytes.
// Integers and booleans are 4 bytes, 64-bit integers 8; a string is its byte length and
// its bytes, a 16-bit string its length in UTF-16 code units and the units.
//
// Every read is total: a field that does not fit in what is left of the payload reads
// as absent and leaves the reader exhausted, so later reads are absent too. A payload
// length beyond the bytes given is cut to them.
class PickleReader {
 public:
  explicit PickleReader(std::string_view bytes);

  std::optional<int32_t> readInt32();
  std::optional<int64_t> readInt64();
  std::optional<bool> readBool();
  std::optional<std::string> readString();
  // The UTF-16 text as UTF-8; a lone surrogate becomes U+FFFD.
  std::optional<std::string> readString16();

 private:
  // The next `size` bytes, advancing past their padding; absent when they do not fit.
  std::optional<std::string_view> take(size_t size);
  std::nullopt_t exhausted();

  std::string_view rest_;
};

// Little-endian integers at `offset` of a plain fixed-layout payload; absent when the
// payload is too short.
std::optional<int32_t> int32At(std::string_view bytes, size_t offset);
std::optional<int64_t> int64At(std::string_view bytes, size_t offset);

// UTF-16 code units (little-endian byte pairs) as UTF-8, lone surrogates as U+FFFD.
std::string utf8FromUTF16LE(std::string_view units);

}  // namespace velto
