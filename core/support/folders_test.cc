#include "core/support/folders.h"

#include <gtest/gtest.h>

#include <map>

namespace velto {
namespace {

EnvironmentLookup environment(std::map<std::string, std::string, std::less<>> variables) {
  return [variables](std::string_view name) -> std::optional<std::string> {
    const auto found = variables.find(name);
    if (found == variables.end()) return std::nullopt;
    return found->second;
  };
}

TEST(FoldersTest, NoHomeMeansNoFolders) {
  const auto env = environment({});
  EXPECT_FALSE(Folders::home(env));
  EXPECT_FALSE(Folders::applicationSupport(env));
  EXPECT_FALSE(Folders::caches(env));
  EXPECT_FALSE(Folders::home(environment({{"HOME", ""}})));
}

#ifndef __APPLE__
TEST(FoldersTest, LinuxFollowsXDGWithHomeDefaults) {
  const auto plain = environment({{"HOME", "/home/ada"}});
  EXPECT_EQ(Folders::applicationSupport(plain), "/home/ada/.local/share");
  EXPECT_EQ(Folders::caches(plain), "/home/ada/.cache");
  EXPECT_EQ(Folders::browserProfiles(plain), "/home/ada/.config");

  const auto xdg = environment({{"XDG_DATA_HOME", "/data"}, {"XDG_CACHE_HOME", "/c"},
                                {"XDG_CONFIG_HOME", "/cfg"}});
  EXPECT_EQ(Folders::applicationSupport(xdg), "/data");  // no HOME needed
  EXPECT_EQ(Folders::caches(xdg), "/c");
  EXPECT_EQ(Folders::browserProfiles(xdg), "/cfg");

  // Relative or empty XDG values are ignored, as the XDG rules say.
  const auto relative = environment({{"HOME", "/h"}, {"XDG_DATA_HOME", "data"}, {"XDG_CACHE_HOME", ""}});
  EXPECT_EQ(Folders::applicationSupport(relative), "/h/.local/share");
  EXPECT_EQ(Folders::caches(relative), "/h/.cache");
}
#endif

}  // namespace
}  // namespace velto
