#include "core/mcp/client_authorization.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

namespace Auth = ClientAuthorization;

constexpr std::string_view kToken =
    "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
constexpr std::string_view kClient = "6F9619FF-8B86-D011-B42D-00C04FC964FF";

TEST(ClientAuthorizationTest, TokensAndHashesAreLowercaseHex) {
  EXPECT_EQ(Auth::hash(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Auth::hash("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  const Result<std::string> a = Auth::newToken(), b = Auth::newToken();
  ASSERT_TRUE(a.ok() && b.ok());
  EXPECT_EQ(a->size(), 64u);
  EXPECT_EQ(a->find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_NE(*a, *b);
}

TEST(ClientAuthorizationTest, FindsTheFirstGrantWithTheIdAndTheTokensHash) {
  const std::string other(64, 'f'), shortToken(kToken.substr(0, 63));
  const std::string longToken = std::string(kToken) + "0";
  // 64 characters in 65 bytes: characters are counted, not bytes.
  const std::string wide = "\xC3\xA9" + std::string(kToken.substr(0, 63));
  std::string upper(kToken);
  for (char& c : upper) c = static_cast<char>(std::toupper(c));
  LibraryState state;
  for (const auto& [token, name] : {std::pair{std::string_view(other), "other"},
                                    {shortToken, "short"},
                                    {longToken, "long"},
                                    {wide, "wide"},
                                    {kToken, "first"},
                                    {kToken, "second"}}) {
    state.clients.push_back({*Uuid::parse(kClient), name, Auth::hash(token), false, Date{}});
  }
  struct Case {
    std::string_view id, token, found;
  };
  for (const Case& c : {Case{kClient, kToken, "first"},
                        {"6f9619ff-8b86-d011-b42d-00c04fc964ff", kToken, "first"},
                        {kClient, wide, "wide"},
                        {kClient, other, "other"},
                        {kClient, shortToken, "-"},
                        {kClient, longToken, "-"},
                        {kClient, upper, "-"},
                        {kClient, "", "-"},
                        {"", kToken, "-"},
                        {"6F9619FF8B86D011B42D00C04FC964FF", kToken, "-"},
                        {"00000000-0000-0000-0000-000000000000", kToken, "-"}}) {
    const std::optional<ClientGrant> grant = Auth::authorize(c.id, c.token, state);
    EXPECT_EQ(grant ? grant->name : "-", c.found) << c.id << " " << c.token;
  }
}

TEST(ClientAuthorizationTest, CheckTellsWhyItRefusesWithoutTheToken) {
  LibraryState state;
  state.clients.push_back({*Uuid::parse(kClient), "c", Auth::hash(kToken), false, Date{}});
  const std::string other(64, 'f');
  struct Case {
    std::string_view id, token;
    Auth::Refusal refusal;
  };
  for (const Case& c :
       {Case{"", "", Auth::Refusal::noVariables},
        {"", kToken, Auth::Refusal::noClientID},
        {kClient, "", Auth::Refusal::noToken},
        // The token's length is checked before the id's form.
        {"not an id", "abc", Auth::Refusal::malformedToken},
        {"not an id", kToken, Auth::Refusal::malformedClientID},
        {"00000000-0000-0000-0000-000000000001", kToken, Auth::Refusal::unknownClient},
        {kClient, other, Auth::Refusal::wrongToken}}) {
    const auto decided = Auth::check(c.id, c.token, state);
    ASSERT_TRUE(std::holds_alternative<Auth::Refusal>(decided)) << c.id;
    EXPECT_EQ(std::get<Auth::Refusal>(decided), c.refusal) << c.id;
    const std::string told = Auth::describe(c.refusal, c.id);
    if (c.token.empty()) continue;
    EXPECT_EQ(told.find(c.token.substr(0, 8)), std::string::npos) << told;
    EXPECT_EQ(told.find(Auth::hash(c.token).substr(0, 8)), std::string::npos) << told;
  }
  EXPECT_EQ(Auth::describe(Auth::Refusal::unknownClient, "6f9619ff-8b86-d011-b42d-00c04fc964ff"),
            "no client has the id " + std::string(kClient) + " (VELTO_CLIENT_ID)");
  EXPECT_TRUE(std::holds_alternative<ClientGrant>(Auth::check(kClient, kToken, state)));
}

}  // namespace
}  // namespace velto
