#include "core/support/uuid.h"

#include <gtest/gtest.h>

#include <set>

namespace velto {
namespace {

TEST(UuidTest, ReadsOnlyTheHyphenatedFormInEitherCaseAndWritesUpperCase) {
  const auto uuid = Uuid::parse("0f8e4a3c-1b2d-4E5F-8A9B-0c1d2e3f4a5b");
  ASSERT_TRUE(uuid);
  EXPECT_EQ(uuid->text(), "0F8E4A3C-1B2D-4E5F-8A9B-0C1D2E3F4A5B");
  EXPECT_EQ(Uuid::parse(uuid->text()), uuid);
  for (const char* bad :
       {"", "0f8e4a3c1b2d4e5f8a9b0c1d2e3f4a5b", "{0f8e4a3c-1b2d-4e5f-8a9b-0c1d2e3f4a5b}",
        "0f8e4a3c-1b2d-4e5f-8a9b-0c1d2e3f4a5", "0f8e4a3c-1b2d-4e5f-8a9b-0c1d2e3f4a5bb",
        "0f8e4a3c-1b2d-4e5f-8a9b_0c1d2e3f4a5b", "0g8e4a3c-1b2d-4e5f-8a9b-0c1d2e3f4a5b",
        "0f8e4a3c-1b2d-4e5f-8a9b-0c1d2e3f4a5:", " 0f8e4a3c-1b2d-4e5f-8a9b-0c1d2e3f4a5b"}) {
    EXPECT_FALSE(Uuid::parse(bad)) << bad;
  }
}

// Every byte value at every digit position: only the 22 hexadecimal digits are read, each
// as its own value in its own place.
TEST(UuidTest, EveryDigitPositionTakesExactlyTheHexadecimalDigits) {
  const std::string base = "00000000-0000-0000-0000-000000000000";
  for (size_t at = 0; at < base.size(); ++at) {
    if (base[at] == '-') continue;
    const size_t digit = at - (at > 8) - (at > 13) - (at > 18) - (at > 23);
    for (int byte = 0; byte < 256; ++byte) {
      std::string text = base;
      text[at] = static_cast<char>(byte);
      const char c = static_cast<char>(byte);
      const int value = c >= '0' && c <= '9'   ? c - '0'
                        : c >= 'a' && c <= 'f' ? c - 'a' + 10
                        : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                               : -1;
      const auto uuid = Uuid::parse(text);
      ASSERT_EQ(uuid.has_value(), value >= 0) << at << " " << byte;
      if (!uuid) continue;
      Uuid expected;
      expected.bytes[digit / 2] = static_cast<uint8_t>(digit % 2 ? value : value << 4);
      EXPECT_EQ(*uuid, expected) << at << " " << byte;
    }
  }
}

TEST(UuidTest, RandomIsVersionFourAndDistinct) {
  std::set<Uuid> seen;
  for (int i = 0; i < 64; ++i) {
    const auto uuid = Uuid::random();
    ASSERT_TRUE(uuid);
    EXPECT_EQ(uuid->text()[14], '4');
    EXPECT_NE(std::string("89AB").find(uuid->text()[19]), std::string::npos);
    seen.insert(*uuid);
  }
  EXPECT_EQ(seen.size(), 64u);
}

}  // namespace
}  // namespace velto
