#include "core/favicons/favicon_policy.h"

#include <gtest/gtest.h>

#include "core/favicons/favicon_redirect_guard.h"

namespace velto {
namespace {

using Strings = std::vector<std::string>;

TEST(FaviconPolicyTest, PublicHostnamesExcludeLiteralsAndReservedNames) {
  for (const char* refused :
       {"LOCALHOST.", "printer.local", "a.b.home.arpa", "10.0.0.1", "[::1]", "::1", "intranet", "",
        "..lan..", "1.2.3.4.5", "Svc.Internal", "shop.example", "hidden.onion", "x.test",
        "a.invalid", "１２７.０.０.１", "٣.١٤"}) {
    EXPECT_FALSE(FaviconPolicy::isPublicHostname(refused)) << refused;
  }
  for (const char* accepted :
       {"local.example.org", "home.net", "test.de", "WWW.Site.ORG.", "123.com", "lan.party.io"}) {
    EXPECT_TRUE(FaviconPolicy::isPublicHostname(accepted)) << accepted;
  }
}

TEST(FaviconPolicyTest, IconURLOnlyForPublicPagesOnWebPorts) {
  struct Case {
    const char* page;
    std::optional<std::string> icon;
  };
  for (const Case& c : {
           Case{"http://news.site.org:8080/a", {}},
           Case{"http://news.site.org:80/a", "https://news.site.org/favicon.ico"},
           Case{"https://News.Site.ORG.:443/a?b#c", "https://news.site.org/favicon.ico"},
           Case{"https://user@news.site.org/", {}},
           Case{"ftp://news.site.org/", {}},
           Case{"https://192.168.1.1/", {}},
           Case{"about:blank", {}},
           // The icon comes from the host that was checked, never one cut out of it.
           Case{"https://a.org%2Fb.net/", "https://a.org%2Fb.net/favicon.ico"},
           Case{"https://youtu.be/abc", "https://www.youtube.com/favicon.ico"},
           Case{"https://music.youtube.com/", "https://www.youtube.com/favicon.ico"},
           Case{"https://notyoutube.com/", "https://notyoutube.com/favicon.ico"},
       }) {
    EXPECT_EQ(FaviconPolicy::iconURL(c.page, {}), c.icon) << c.page;
  }
  EXPECT_FALSE(FaviconPolicy::iconURL("https://mail.site.org/", {"site.org"}));
  // The page is not excluded, but the host its icon comes from is.
  EXPECT_FALSE(FaviconPolicy::iconURL("https://youtu.be/abc", {"www.youtube.com"}));
}

TEST(FaviconPolicyTest, CandidatesInOrderAndFiltered) {
  struct Case {
    const char* icon;
    Strings candidates;
  };
  for (const Case& c : {
           Case{"https://site.org/favicon.ico",
                {"https://site.org/favicon.ico", "https://site.org/apple-touch-icon.png"}},
           Case{"https://site.org/a/b/",
                {"https://site.org/a/b/", "https://site.org/a/apple-touch-icon.png"}},
           Case{
               "https://a.org%2Fb.net/favicon.ico",
               {"https://a.org%2Fb.net/favicon.ico", "https://a.org%2Fb.net/apple-touch-icon.png"}},
           Case{"https://www.youtube.com/favicon.ico",
                {std::string(FaviconPolicy::kVideoFixedIconURL),
                 "https://www.youtube.com/favicon.ico",
                 "https://www.youtube.com/apple-touch-icon.png"}},
           Case{"http://site.org/favicon.ico", {}},
       }) {
    EXPECT_EQ(FaviconPolicy::candidates(c.icon, {}), c.candidates) << c.icon;
  }
  EXPECT_EQ(FaviconPolicy::candidates("https://www.youtube.com/favicon.ico", {"ytimg.com"}).size(),
            2u);
  EXPECT_EQ(FaviconPolicy::candidates("https://site.org/favicon.ico", {"site.org"}), Strings{});
}

TEST(FaviconPolicyTest, RedirectTargetsMeetTheCandidateRules) {
  for (const char* allowed : {"https://cdn.site.org/i.png", "HTTPS://CDN.site.org:443/i.png"}) {
    EXPECT_TRUE(FaviconPolicy::allowsRedirect(allowed, {})) << allowed;
  }
  for (const char* refused :
       {"http://cdn.site.org/i.png", "https://user@cdn.site.org/i.png", "https://:pw@cdn.site.org/",
        "https://cdn.site.org:8443/i.png", "https:///i.png", "https://localhost/i.png",
        "https://[2001:db8::1]/i.png", "https://10.1.1.1/i.png", "data:image/png;base64,AA",
        "not a url"}) {
    EXPECT_FALSE(FaviconPolicy::allowsRedirect(refused, {})) << refused;
  }
  EXPECT_FALSE(FaviconPolicy::allowsRedirect("https://cdn.site.org/i.png", {"*.site.org"}));
}

TEST(FaviconRedirectGuardTest, FollowsAtMostThreeRedirects) {
  FaviconRedirectGuard guard({"blocked.org"});
  EXPECT_FALSE(guard.follow("https://blocked.org/i.png"));  // refused ones count too
  EXPECT_FALSE(guard.follow(std::nullopt));
  EXPECT_TRUE(guard.follow("https://cdn.site.org/i.png"));
  EXPECT_FALSE(guard.follow("https://cdn.site.org/i.png"));  // the fourth, though allowed
  EXPECT_EQ(guard.redirects(), 4);
}

}  // namespace
}  // namespace velto
