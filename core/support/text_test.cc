#include "core/support/text.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

TEST(TextTest, ReplacesEachMaximalIllFormedSubpart) {
  EXPECT_EQ(sanitizedUTF8("abc"), "abc");
  EXPECT_EQ(sanitizedUTF8("a\xFF" "b"), "a\xEF\xBF\xBD" "b");
  // A truncated three-byte sequence is one replacement, not two.
  EXPECT_EQ(sanitizedUTF8("\xE2\x82" "x"), "\xEF\xBF\xBD" "x");
  // Surrogates and overlongs are ill-formed from their first byte on.
  EXPECT_EQ(sanitizedUTF8("\xED\xA0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(sanitizedUTF8("\xC0\xAF"), "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_TRUE(isValidUTF8("h\xC3\xA9llo \xF0\x9F\x98\x80"));
  EXPECT_FALSE(isValidUTF8("\xF4\x90\x80\x80"));
}

TEST(TextTest, CountsUserPerceivedCharacters) {
  EXPECT_EQ(characterCount(""), 0u);
  EXPECT_EQ(characterCount("abc"), 3u);
  EXPECT_EQ(characterCount("e\xCC\x81"), 1u);                        // e + combining acute
  EXPECT_EQ(characterCount("\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7"), 1u);  // a flag
  EXPECT_EQ(characterCount("\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x92\xBB"), 1u);  // ZWJ sequence
  EXPECT_EQ(characterCount("\r\n"), 1u);
}

TEST(TextTest, SplitsAtUnicodeWhitespace) {
  using Pieces = std::vector<std::string_view>;
  EXPECT_EQ(splitAtWhitespace("  a\tb\nc  "), (Pieces{"a", "b", "c"}));
  EXPECT_EQ(splitAtWhitespace("a\xC2\xA0" "b\xE3\x80\x80" "c\xE2\x80\xA8" "d"),
            (Pieces{"a", "b", "c", "d"}));
  EXPECT_TRUE(splitAtWhitespace(" \n\t ").empty());
  EXPECT_EQ(splitAtWhitespace("caf\xC3\xA9"), (Pieces{"caf\xC3\xA9"}));
}

TEST(TextTest, ContainmentIgnoresCaseAndDiacritics) {
  EXPECT_TRUE(containsFolded("GitHub - Pull Requests", foldedForSearch("GITHUB")));
  EXPECT_TRUE(containsFolded("Caf\xC3\xA9 menu", foldedForSearch("cafe")));
  EXPECT_TRUE(containsFolded("Cafe menu", foldedForSearch("CAF\xC3\x89")));
  EXPECT_TRUE(containsFolded("Stra\xC3\x9F" "e", foldedForSearch("STRASSE")));
  EXPECT_TRUE(containsFolded("\xC3\x85ngstr\xC3\xB6m", foldedForSearch("angstrom")));
  EXPECT_FALSE(containsFolded("example", foldedForSearch("exemple")));
  EXPECT_FALSE(containsFolded("abc", foldedForSearch("abcd")));
  EXPECT_TRUE(containsFolded("anything", foldedForSearch("")));
  // Needle candidates found by a first-letter scan in either case.
  EXPECT_TRUE(containsFolded("aaAaB", foldedForSearch("AAB")));
}

TEST(TextTest, PreparedHaystackAnswersLikeAFullFold) {
  FoldedHaystack haystack;
  const char* texts[] = {("Caf\xC3\xA9 Stra\xC3\x9F" "e \xEF\xAC\x81le \xE6\x9D\xB1\xE4\xBA\xAC"),
                         "e\xCC\x81t\xC3\xA9 \xF0\x9F\x98\x80 \xC7\x84OS", "plain ASCII", "bad \xFF byte"};
  const char* needles[] = {"cafe", "strasse", "file", "\xE6\x9D\xB1\xE4\xBA\xAC", "ete", "dzos", "te ",
                           "e s", "\xF0\x9F\x98\x80", "ascii", "bad", "d b", "xyz", ""};
  for (const char* text : texts) {
    haystack.reset(text);
    for (const char* needle : needles) {
      const std::string folded = foldedForSearch(needle);
      EXPECT_EQ(haystack.contains(folded), containsFolded(text, folded)) << text << " / " << needle;
    }
  }
  haystack.reset("Caf\xC3\xA9");
  EXPECT_TRUE(haystack.contains("cafe"));
  EXPECT_FALSE(haystack.contains("cafe "));
}

}  // namespace
}  // namespace velto
