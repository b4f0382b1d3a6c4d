#include "core/support/folders.h"

#include <gtest/gtest.h>

#include <map>

namespace velto {
namespace {

using Variables = std::map<std::string, std::string, std::less<>>;
using Folder = std::optional<std::filesystem::path>;

EnvironmentLookup environment(Variables variables) {
  return [variables](std::string_view name) -> std::optional<std::string> {
    const auto found = variables.find(name);
    if (found == variables.end()) return std::nullopt;
    return found->second;
  };
}

TEST(FoldersTest, NoHomeMeansNoFolders) {
  for (const Variables& variables : {Variables{}, Variables{{"HOME", ""}}}) {
    const auto env = environment(variables);
    EXPECT_FALSE(Folders::home(env) || Folders::applicationSupport(env) || Folders::caches(env) ||
                 Folders::browserProfiles(env));
  }
}

#ifndef __APPLE__
TEST(FoldersTest, LinuxFollowsXDGWithHomeDefaults) {
  using Folders3 = std::vector<Folder>;
  const auto all = [](const Variables& variables) {
    const auto env = environment(variables);
    return Folders3{Folders::applicationSupport(env), Folders::caches(env),
                    Folders::browserProfiles(env)};
  };
  EXPECT_EQ(all({{"HOME", "/h"}}), (Folders3{"/h/.local/share", "/h/.cache", "/h/.config"}));
  // No HOME needed when every variable is set.
  EXPECT_EQ(all({{"XDG_DATA_HOME", "/d"}, {"XDG_CACHE_HOME", "/c"}, {"XDG_CONFIG_HOME", "/f"}}),
            (Folders3{"/d", "/c", "/f"}));
  // Relative or empty values are ignored, as the XDG rules say.
  EXPECT_EQ(all({{"HOME", "/h"}, {"XDG_DATA_HOME", "d"}, {"XDG_CACHE_HOME", ""}}),
            (Folders3{"/h/.local/share", "/h/.cache", "/h/.config"}));
}
#endif

}  // namespace
}  // namespace velto
