#include "core/support/text.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

TEST(TextTest, ReplacesEachMaximalIllFormedSubpart) {
  const std::pair<const char*, const char*> cases[] = {
      {"abc", "abc"},
      {"a\xFFz", "a\uFFFDz"},
      {"\xE2\x82x", "\uFFFDx"},  // a truncated sequence is one replacement, not two
      // Surrogates and overlongs are ill-formed from their first byte on.
      {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},
      {"\xC0\xAF", "\uFFFD\uFFFD"},
      {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"}};
  for (const auto& [text, sanitized] : cases) {
    EXPECT_EQ(sanitizedUTF8(text), sanitized) << text;
    EXPECT_EQ(isValidUTF8(text), std::string_view(text) == sanitized) << text;
  }
  EXPECT_TRUE(isValidUTF8("h\u00E9llo \U0001F600"));
}

TEST(TextTest, CountsUserPerceivedCharacters) {
  const std::pair<const char*, size_t> cases[] = {
      {"", 0},
      {"abc", 3},
      {"e\u0301", 1},
      {"\r\n", 1},
      {"\U0001F1EB\U0001F1F7", 1},         // a flag
      {"\U0001F469\u200D\U0001F4BB", 1}};  // a ZWJ sequence
  for (const auto& [text, count] : cases) EXPECT_EQ(characterCount(text), count) << text;
}

TEST(TextTest, SplitsAtUnicodeWhitespace) {
  using Pieces = std::vector<std::string_view>;
  EXPECT_EQ(splitAtWhitespace("  a\tb\nc  "), (Pieces{"a", "b", "c"}));
  EXPECT_EQ(splitAtWhitespace("a\u00A0b\u3000c\u2028d\u0085e"), (Pieces{"a", "b", "c", "d", "e"}));
  EXPECT_TRUE(splitAtWhitespace(" \n\t ").empty());
  EXPECT_EQ(splitAtWhitespace("caf\u00E9\u200B"), (Pieces{"caf\u00E9\u200B"}));  // no ZWSP
}

TEST(TextTest, ContainmentIgnoresCaseAndDiacriticsWithOrWithoutPreparation) {
  struct Case {
    const char* text;
    const char* needle;
    bool found;
  };
  FoldedHaystack haystack;  // one for all cases: its buffers must not leak between texts
  for (const Case& c : {
           Case{"GitHub - Pull Requests", "GITHUB", true}, Case{"abc", "abcd", false},
           Case{"aaAaB", "AAB", true},  // first-letter candidates in either case
           Case{"anything", "", true}, Case{"Caf\u00E9 menu", "cafe", true},
           Case{"Cafe menu", "CAF\u00C9", true}, Case{"Stra\u00DFe", "STRASSE", true},
           Case{"\u00C5ngstr\u00F6m", "angstrom", true},
           Case{"e\u0301t\u00E9", "ETE", true},          // a combining acute
           Case{"\uFB01le \u6771\u4EAC", "file", true},  // the ligature fi
           Case{"\uFB01le \u6771\u4EAC", "LE \u6771", true},
           Case{"\u01C4OS", "dzos", false},  // DZ with caron folds to one letter
           Case{"BAD \xFF byte", "bad", true},
           Case{"bad\xFF_byte", "d_byte", false},  // an ill-formed byte stays a character
       }) {
    const std::string needle = foldedForSearch(c.needle);
    haystack.reset(c.text);
    EXPECT_EQ(containsFolded(c.text, needle), c.found) << c.text << " / " << c.needle;
    EXPECT_EQ(haystack.contains(needle), c.found) << c.text << " / " << c.needle;
  }
}

// Folding into a shared buffer character by character gives exactly what folding each
// whole text gives: marks stripped, lengths changed by case folding, ill-formed bytes,
// and conjoining Hangul jamo, which compose across characters.
TEST(TextTest, AppendedFoldingEqualsWholeTextFolding) {
  std::string buffer = "kept ";
  std::string expected = buffer;
  for (const char* text :
       {"", "Plain ASCII @[`{", "Cr\u00E8me BR\u00DBL\u00C9E", "Cre\u0300me e\u0301",
        "Stra\u00DFe \u0130", "\u01C4OS \u01C5", "\u6771\u4EAC \U0001F680 \U0001D400",
        "\u1112\u1161\u11AB \uD55C", "\uD55C\u11AB", "\u0391\u0301\u03A3\u0345",
        "bad\xFF byte \xC3", "\uFF26ull\uFF37idth", "=\u0338 \u212A \u2126"}) {
    appendFoldedForSearch(buffer, text);
    expected += foldedForSearch(text);
    EXPECT_EQ(buffer, expected) << text;
  }
}

}  // namespace
}  // namespace velto
