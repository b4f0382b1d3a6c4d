#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

// Text helpers over UTF-8. None of them fails: invalid input is treated as U+FFFD.

// `text` with every ill-formed sequence replaced by U+FFFD, one per maximal ill-formed
// subpart (the Unicode recommendation, as platform string decoders do).
std::string sanitizedUTF8(std::string_view text);

// True when `text` is valid UTF-8.
bool isValidUTF8(std::string_view text);

// True when every byte is below 0x80.
bool isASCII(std::string_view text);

// The number of user-perceived characters (extended grapheme clusters).
size_t characterCount(std::string_view text);

// The pieces of `text` between runs of Unicode white space (the White_Space property:
// spaces, tabs, line breaks, NBSP and the other space separators), empty pieces dropped.
std::vector<std::string_view> splitAtWhitespace(std::string_view text);

// `text` folded for case- and diacritic-insensitive comparison: case folded, marks
// removed, recomposed (NFC). ASCII text folds to its lowercase.
std::string foldedForSearch(std::string_view text);

// Appends foldedForSearch(text) to `out`, for a caller that folds many texts into one
// buffer: ASCII is lowered in place and each other character's folding is looked up once
// per thread rather than worked out again for every text.
void appendFoldedForSearch(std::string& out, std::string_view text);

// True when the folded `needle` occurs in `haystack` compared case- and
// diacritic-insensitively. `needle` must already be foldedForSearch; an ASCII haystack
// is searched in place without allocating.
bool containsFolded(std::string_view haystack, std::string_view foldedNeedle);

// One text prepared for several containment tests, each answering as containsFolded.
// ASCII text is searched in place. Other text is folded at most once per reset: for
// ASCII needles into a projection that keeps the ASCII its characters fold to (é gives e,
// ß gives ss) and marks everything else with a byte no needle holds; for other needles
// in full. Buffers are kept across resets, so a loop over many texts allocates only
// while they grow. The viewed text must outlive the tests.
class FoldedHaystack {
 public:
  void reset(std::string_view text);
  bool contains(std::string_view foldedNeedle);

 private:
  std::string_view text_;
  bool ascii_ = true;
  bool projected_ = false;
  bool folded_ = false;
  std::string projection_;
  std::string fold_;
};

}  // namespace velto
