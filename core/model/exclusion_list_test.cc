#include "core/model/exclusion_list.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

// The same site written as the user typed it, as the page shows it, and as browsers
// report it must be one site, whichever form the entry and the URL use.
TEST(ExclusionListTest, InternationalHostsMatchInEverySpelling) {
  const std::vector<std::string> spellings = {"\u00e4rzte.example", "\u00c4RZTE.example",
                                              "xn--rzte-koa.example", "*.XN--RZTE-KOA.example."};
  for (const std::string& entry : spellings) {
    const ExclusionList list({entry});
    for (const std::string& host : spellings) {
      if (host.starts_with("*.")) continue;
      EXPECT_TRUE(list.excludes("https://" + host + "/")) << entry << " / " << host;
      EXPECT_TRUE(list.excludes("https://termin." + host + "/x")) << entry << " / " << host;
    }
    EXPECT_TRUE(list.excludes("https://%C3%A4rzte.example/")) << entry;
    EXPECT_FALSE(list.excludes("https://arzte.example/")) << entry;
    EXPECT_EQ(ExclusionList::normalizedDomain(entry), "xn--rzte-koa.example");
  }
}

TEST(ExclusionListTest, HostsWithoutACanonicalFormFailClosed) {
  const ExclusionList list({"example.org"});
  EXPECT_TRUE(list.excludes("https://xn--zz.net/"));
  EXPECT_TRUE(list.excludes("https://%FF.net/"));
  EXPECT_FALSE(list.excludes("https://site.net/"));
  EXPECT_FALSE(ExclusionList::normalizedDomain("xn--zz.net"));
  // Fullwidth letters and dots are the same name as their ASCII forms.
  EXPECT_TRUE(ExclusionList({"\uff45\uff58\uff41\uff4d\uff50\uff4c\uff45\uff0eorg"})
                  .excludes("https://mail.example.org/"));
}

}  // namespace
}  // namespace velto
