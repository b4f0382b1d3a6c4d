#include "core/support/text.h"

#include <utf8proc.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <unordered_map>

namespace velto {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// Length of the well-formed sequence at `at`, or 0 with `subpart` set to the length of
// its maximal ill-formed prefix (at least 1).
size_t sequenceLength(std::string_view text, size_t at, size_t& subpart) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(at);
  if (lead < 0x80) return 1;
  size_t length;
  unsigned char low = 0x80, high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    subpart = 1;
    return 0;
  }
  for (size_t i = 1; i < length; ++i) {
    const bool inRange = at + i < text.size() && byte(at + i) >= (i == 1 ? low : 0x80) &&
                         byte(at + i) <= (i == 1 ? high : 0xBF);
    if (!inRange) {
      subpart = i;
      return 0;
    }
  }
  return length;
}

bool isWhiteSpace(utf8proc_int32_t c) {
  return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
         (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
         c == 0x3000;
}

char asciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

// Case-insensitive search of a lowercase ASCII needle in ASCII text. Candidates for the
// first character are found with memchr, which scans many bytes per cycle.
bool containsASCIINoCase(std::string_view haystack, std::string_view needle) {
  if (needle.empty()) return true;
  if (needle.size() > haystack.size()) return false;
  const char first = needle[0];
  const char firstUpper = (first >= 'a' && first <= 'z') ? static_cast<char>(first - 32) : first;
  const char* data = haystack.data();
  const size_t last = haystack.size() - needle.size();
  const auto matchesAt = [&](size_t at) {
    for (size_t k = 1; k < needle.size(); ++k) {
      if (asciiLower(data[at + k]) != needle[k]) return false;
    }
    return true;
  };
  for (char candidate : {first, firstUpper}) {
    size_t at = 0;
    while (at <= last) {
      const void* hit = std::memchr(data + at, candidate, last - at + 1);
      if (hit == nullptr) break;
      at = static_cast<size_t>(static_cast<const char*>(hit) - data);
      if (matchesAt(at)) return true;
      ++at;
    }
    if (firstUpper == first) break;
  }
  return false;
}

}  // namespace

std::string sanitizedUTF8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t at = 0; at < text.size();) {
    size_t subpart = 0;
    const size_t length = sequenceLength(text, at, subpart);
    if (length > 0) {
      out.append(text.substr(at, length));
      at += length;
    } else {
      out.append(kReplacement);
      at += subpart;
    }
  }
  return out;
}

bool isValidUTF8(std::string_view text) {
  for (size_t at = 0; at < text.size();) {
    size_t subpart = 0;
    const size_t length = sequenceLength(text, at, subpart);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

bool isASCII(std::string_view text) {
  for (char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

size_t characterCount(std::string_view input) {
  const std::string owned = isValidUTF8(input) ? std::string(input) : sanitizedUTF8(input);
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(owned.data());
  utf8proc_ssize_t remaining = static_cast<utf8proc_ssize_t>(owned.size());
  utf8proc_int32_t previous = -1, state = 0;
  size_t count = 0;
  while (remaining > 0) {
    utf8proc_int32_t codepoint;
    const utf8proc_ssize_t length = utf8proc_iterate(bytes, remaining, &codepoint);
    if (length <= 0) break;
    if (previous < 0 || utf8proc_grapheme_break_stateful(previous, codepoint, &state)) ++count;
    previous = codepoint;
    bytes += length;
    remaining -= length;
  }
  return count;
}

std::vector<std::string_view> splitAtWhitespace(std::string_view text) {
  std::vector<std::string_view> pieces;
  size_t start = 0, at = 0;
  const auto flush = [&](size_t end) {
    if (end > start) pieces.push_back(text.substr(start, end - start));
  };
  while (at < text.size()) {
    size_t subpart = 0;
    size_t length = sequenceLength(text, at, subpart);
    utf8proc_int32_t codepoint = -1;
    if (length > 0) {
      utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + at),
                       static_cast<utf8proc_ssize_t>(length), &codepoint);
    } else {
      length = subpart;
    }
    if (isWhiteSpace(codepoint)) {
      flush(at);
      start = at + length;
    }
    at += length;
  }
  flush(text.size());
  return pieces;
}

std::string foldedForSearch(std::string_view text) {
  if (isASCII(text)) {
    std::string out(text);
    for (char& c : out) c = asciiLower(c);
    return out;
  }
  const std::string valid = isValidUTF8(text) ? std::string(text) : sanitizedUTF8(text);
  utf8proc_uint8_t* mapped = nullptr;
  const utf8proc_ssize_t length = utf8proc_map(
      reinterpret_cast<const utf8proc_uint8_t*>(valid.data()),
      static_cast<utf8proc_ssize_t>(valid.size()), &mapped,
      static_cast<utf8proc_option_t>(UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD | UTF8PROC_STRIPMARK));
  if (length < 0) return valid;
  std::string out(reinterpret_cast<const char*>(mapped), static_cast<size_t>(length));
  std::free(mapped);
  return out;
}

namespace {

// What one code point folds to on its own, in UTF-8: marks fold to nothing.
struct CharacterFold {
  uint8_t length = 0;  // bytes + 1; 0: not worked out yet
  char bytes[7] = {};
};

// Folding a text's characters one by one and joining the results gives the folding of
// the whole text, because the marks that composition would join are stripped, with one
// exception: conjoining Hangul jamo (which are not marks) compose with their neighbours.
bool composesWithNeighbours(utf8proc_int32_t c) {
  return (c >= 0x1100 && c <= 0x11FF) || (c >= 0xA960 && c <= 0xA97F) ||
         (c >= 0xD7B0 && c <= 0xD7FF);
}

CharacterFold foldOf(utf8proc_int32_t c) {
  utf8proc_uint8_t encoded[4];
  const utf8proc_ssize_t size = utf8proc_encode_char(c, encoded);
  const std::string folded =
      foldedForSearch(std::string_view(reinterpret_cast<const char*>(encoded), size_t(size)));
  CharacterFold fold;
  if (folded.size() > sizeof fold.bytes) return fold;  // length 0: does not fit
  std::memcpy(fold.bytes, folded.data(), folded.size());
  fold.length = static_cast<uint8_t>(folded.size() + 1);
  return fold;
}

// The folding of a character, when it fits in a table entry: a table for the Basic
// Multilingual Plane, a map for the few others met (emoji, mostly).
std::optional<std::string_view> characterFold(utf8proc_int32_t c) {
  // Zero-filled pages are only touched for the characters met.
  thread_local std::unique_ptr<CharacterFold[]> table(new CharacterFold[0x10000]());
  thread_local std::unordered_map<utf8proc_int32_t, CharacterFold> others;
  CharacterFold* entry = nullptr;
  if (c < 0x10000) {
    entry = &table[static_cast<size_t>(c)];
    if (entry->length == 0) *entry = foldOf(c);
  } else {
    const auto [found, added] = others.try_emplace(c);
    if (added) found->second = foldOf(c);
    entry = &found->second;
  }
  if (entry->length == 0) return std::nullopt;
  return std::string_view(entry->bytes, entry->length - 1u);
}

}  // namespace

void appendFoldedForSearch(std::string& out, std::string_view text) {
  const size_t start = out.size();
  out.append(text);
  // Lowered in one pass that the compiler vectorises, noting on the way whether anything
  // was not ASCII.
  auto* appended = reinterpret_cast<unsigned char*>(out.data() + start);
  unsigned char high = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = appended[i];
    high |= c;
    appended[i] = static_cast<unsigned char>(c + ((static_cast<unsigned>(c - 'A') < 26u) << 5));
  }
  if (high < 0x80) return;
  out.resize(start);
  const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  for (size_t at = 0; at < text.size();) {
    if (bytes[at] < 0x80) {
      out.push_back(asciiLower(text[at++]));
      continue;
    }
    utf8proc_int32_t c = -1;
    const utf8proc_ssize_t length =
        utf8proc_iterate(bytes + at, static_cast<utf8proc_ssize_t>(text.size() - at), &c);
    const std::optional<std::string_view> folded =
        length > 0 && !composesWithNeighbours(c) ? characterFold(c) : std::nullopt;
    if (!folded) {  // ill-formed, or beyond what the table holds: the whole text at once
      out.resize(start);
      out += foldedForSearch(text);
      return;
    }
    out += *folded;
    at += static_cast<size_t>(length);
  }
}

bool containsFolded(std::string_view haystack, std::string_view foldedNeedle) {
  if (isASCII(haystack)) {
    return isASCII(foldedNeedle) && containsASCIINoCase(haystack, foldedNeedle);
  }
  return foldedForSearch(haystack).find(foldedNeedle) != std::string::npos;
}

namespace {

// Stands for any folded character that is not ASCII; never part of an ASCII needle.
constexpr char kNonASCII = '\xFF';

// What one code point folds to, seen from an ASCII needle: up to three bytes, each ASCII
// or kNonASCII. Marks fold to nothing. Folding each code point alone agrees with folding
// the whole text wherever ASCII is concerned: recomposition only joins a base with marks,
// and marks are stripped.
struct Projection {
  uint8_t length = 0xFF;  // 0xFF: not computed yet
  char bytes[3] = {};
};

Projection project(utf8proc_int32_t codepoint) {
  utf8proc_int32_t folded[16];
  int lastWasOther = 0;
  Projection out;
  out.length = 0;
  const utf8proc_ssize_t count = utf8proc_decompose_char(
      codepoint, folded, 16,
      static_cast<utf8proc_option_t>(UTF8PROC_DECOMPOSE | UTF8PROC_CASEFOLD | UTF8PROC_STRIPMARK),
      &lastWasOther);
  if (count < 0 || count > 16) {
    out.length = 1;
    out.bytes[0] = kNonASCII;
    return out;
  }
  for (utf8proc_ssize_t i = 0; i < count && out.length < 3; ++i) {
    const char byte = folded[i] < 0x80 ? static_cast<char>(folded[i]) : kNonASCII;
    // Runs of non-ASCII collapse to one marker: the needle cannot look inside them.
    if (byte == kNonASCII && out.length > 0 && out.bytes[out.length - 1] == kNonASCII) continue;
    out.bytes[out.length++] = byte;
  }
  return out;
}

// Projections of the Basic Multilingual Plane, filled in as characters are met.
Projection projectionOf(utf8proc_int32_t codepoint) {
  if (codepoint >= 0x10000) return project(codepoint);
  thread_local std::vector<Projection> table(0x10000);
  Projection& entry = table[static_cast<size_t>(codepoint)];
  if (entry.length == 0xFF) entry = project(codepoint);
  return entry;
}

}  // namespace

void FoldedHaystack::reset(std::string_view text) {
  text_ = text;
  ascii_ = isASCII(text);
  projected_ = folded_ = false;
}

bool FoldedHaystack::contains(std::string_view foldedNeedle) {
  if (ascii_) return isASCII(foldedNeedle) && containsASCIINoCase(text_, foldedNeedle);
  if (!isASCII(foldedNeedle)) {
    if (!folded_) {
      fold_ = foldedForSearch(text_);
      folded_ = true;
    }
    return fold_.find(foldedNeedle) != std::string::npos;
  }
  if (!projected_) {
    projection_.clear();
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text_.data());
    for (size_t at = 0; at < text_.size();) {
      if (bytes[at] < 0x80) {
        projection_.push_back(asciiLower(static_cast<char>(bytes[at])));
        ++at;
        continue;
      }
      size_t subpart = 0;
      const size_t length = sequenceLength(text_, at, subpart);
      if (length == 0) {
        projection_.push_back(kNonASCII);  // U+FFFD
        at += subpart;
        continue;
      }
      utf8proc_int32_t codepoint;
      utf8proc_iterate(bytes + at, static_cast<utf8proc_ssize_t>(length), &codepoint);
      const Projection projection = projectionOf(codepoint);
      projection_.append(projection.bytes, projection.length);
      at += length;
    }
    projected_ = true;
  }
  return projection_.find(foldedNeedle) != std::string::npos;
}

}  // namespace velto
