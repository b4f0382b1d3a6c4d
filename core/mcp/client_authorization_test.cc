#include "core/mcp/client_authorization.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

namespace Auth = ClientAuthorization;

constexpr std::string_view kToken =
    "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
constexpr std::string_view kClient = "6F9619FF-8B86-D011-B42D-00C04FC964FF";

ClientGrant grant(std::string_view id, std::string_view token, std::string name) {
  return {*Uuid::parse(id), std::move(name), Auth::hash(token), false, Date{}};
}

TEST(ClientAuthorizationTest, HashIsLowercaseSha256OfTheBytes) {
  EXPECT_EQ(Auth::hash(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Auth::hash("abc"),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(ClientAuthorizationTest, NewTokensAre64LowercaseHexAndDistinct) {
  const Result<std::string> a = Auth::newToken(), b = Auth::newToken();
  ASSERT_TRUE(a.ok() && b.ok());
  EXPECT_EQ(a->size(), 64u);
  EXPECT_EQ(a->find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_NE(*a, *b);
}

TEST(ClientAuthorizationTest, OnlyTheExactTokenForTheSameIdIsAccepted) {
  const std::string shortToken(kToken.substr(0, 63)), longToken = std::string(kToken) + "0";
  std::string upper(kToken);
  for (char& c : upper) c = static_cast<char>(std::toupper(c));
  // 64 characters but more bytes: characters are counted, not bytes.
  const std::string wide = "é" + std::string(kToken.substr(0, 63));
  LibraryState state;
  state.clients = {grant(kClient, shortToken, "short"), grant(kClient, longToken, "long"),
                   grant(kClient, wide, "wide"), grant(kClient, kToken, "right")};

  EXPECT_EQ(Auth::authorize(kClient, kToken, state)->name, "right");
  EXPECT_EQ(Auth::authorize("6f9619ff-8b86-d011-b42d-00c04fc964ff", kToken, state)->name,
            "right");
  EXPECT_EQ(Auth::authorize(kClient, wide, state)->name, "wide");
  struct Case {
    std::string_view id, token;
  };
  for (const Case& c : {Case{kClient, shortToken}, Case{kClient, longToken},
                        Case{kClient, upper}, Case{kClient, ""},
                        Case{"", kToken}, Case{"6F9619FF8B86D011B42D00C04FC964FF", kToken},
                        Case{"00000000-0000-0000-0000-000000000000", kToken}}) {
    EXPECT_FALSE(Auth::authorize(c.id, c.token, state)) << c.id << " " << c.token;
  }
}

TEST(ClientAuthorizationTest, FirstGrantWhoseHashMatchesWins) {
  const std::string other(64, 'f');
  LibraryState state;
  state.clients = {grant(kClient, other, "first"), grant(kClient, kToken, "second"),
                   grant(kClient, kToken, "third")};
  EXPECT_EQ(Auth::authorize(kClient, kToken, state)->name, "second");
  EXPECT_EQ(Auth::authorize(kClient, other, state)->name, "first");
  EXPECT_FALSE(Auth::authorize(kClient, kToken, LibraryState{}));
}

}  // namespace
}  // namespace velto
