#include "core/support/text.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

TEST(TextTest, ReplacesEachMaximalIllFormedSubpart) {
  EXPECT_EQ(sanitizedUTF8("abc"), "abc");
  EXPECT_EQ(sanitizedUTF8("a\xFF"
                          "b"),
            "a\xEF\xBF\xBD"
            "b");
  // A truncated three-byte sequence is one replacement, not two.
  EXPECT_EQ(sanitizedUTF8("\xE2\x82"
                          "x"),
            "\xEF\xBF\xBD"
            "x");
  // Surrogates and overlongs are ill-formed from their first byte on.
  EXPECT_EQ(sanitizedUTF8("\xED\xA0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(sanitizedUTF8("\xC0\xAF"), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_TRUE(isValidUTF8("h\xC3\xA9llo \xF0\x9F\x98\x80"));
  EXPECT_FALSE(isValidUTF8("\xF4\x90\x80\x80"));
}

TEST(TextTest, CountsUserPerceivedCharacters) {
  EXPECT_EQ(characterCount(""), 0u);
  EXPECT_EQ(characterCount("abc"), 3u);
  EXPECT_EQ(characterCount("e\xCC\x81"), 1u);                         // e + combining acute
  EXPECT_EQ(characterCount("\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7"), 1u);  // a flag
  EXPECT_EQ(characterCount("\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x92\xBB"), 1u);  // ZWJ sequence
  EXPECT_EQ(characterCount("\r\n"), 1u);
}

TEST(TextTest, SplitsAtUnicodeWhitespace) {
  using Pieces = std::vector<std::string_view>;
  EXPECT_EQ(splitAtWhitespace("  a\tb\nc  "), (Pieces{"a", "b", "c"}));
  EXPECT_EQ(splitAtWhitespace("a\xC2\xA0"
                              "b\xE3\x80\x80"
                              "c\xE2\x80\xA8"
                              "d"),
            (Pieces{"a", "b", "c", "d"}));
  EXPECT_TRUE(splitAtWhitespace(" \n\t ").empty());
  EXPECT_EQ(splitAtWhitespace("caf\xC3\xA9"), (Pieces{"caf\xC3\xA9"}));
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

}  // namespace
}  // namespace velto
