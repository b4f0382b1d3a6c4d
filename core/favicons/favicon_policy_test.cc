#include "core/favicons/favicon_policy.h"

#include <gtest/gtest.h>

#include "core/favicons/favicon_redirect_guard.h"

namespace velto {
namespace {

using Strings = std::vector<std::string>;

TEST(FaviconPolicyTest, PublicHostnamesExcludeLiteralsAndReservedNames) {
  for (const char* refused : {"LOCALHOST.", "printer.local", "a.b.home.arpa", "10.0.0.1", "[::1]",
                              "::1", "intranet", "", ".", "1.2.3.4.5", "x.test", "Svc.Internal",
                              "shop.example", "hidden.onion", "nas.lan", "..lan.."}) {
    EXPECT_FALSE(FaviconPolicy::isPublicHostname(refused)) << refused;
  }
  for (const char* accepted : {"example.com", "local.example.org", "home.net", "test.de",
                               "WWW.Site.ORG.", "123.com", "lan.party.io"}) {
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
           Case{"http://router.lan/", {}},
           Case{"about:blank", {}},
           Case{"https://youtu.be/abc", "https://www.youtube.com/favicon.ico"},
           Case{"https://youtube.com/watch", "https://www.youtube.com/favicon.ico"},
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
  EXPECT_EQ(FaviconPolicy::candidates("https://site.org/favicon.ico", {}),
            (Strings{"https://site.org/favicon.ico", "https://site.org/apple-touch-icon.png"}));
  EXPECT_EQ(FaviconPolicy::candidates("https://site.org/a/b.ico?v=2", {}),
            (Strings{"https://site.org/a/b.ico?v=2", "https://site.org/a/apple-touch-icon.png"}));
  EXPECT_EQ(FaviconPolicy::candidates("https://www.youtube.com/favicon.ico", {}),
            (Strings{std::string(FaviconPolicy::kVideoFixedIconURL),
                     "https://www.youtube.com/favicon.ico",
                     "https://www.youtube.com/apple-touch-icon.png"}));
  EXPECT_EQ(FaviconPolicy::candidates("https://www.youtube.com/favicon.ico", {"ytimg.com"}).size(), 2u);
  for (const char* refused : {"http://site.org/favicon.ico", "https://site.org:8443/favicon.ico",
                              "https://u:p@site.org/favicon.ico", "https://10.1.1.1/favicon.ico",
                              "not a url"}) {
    EXPECT_EQ(FaviconPolicy::candidates(refused, {}), Strings{}) << refused;
  }
  EXPECT_EQ(FaviconPolicy::candidates("https://site.org/favicon.ico", {"site.org"}), Strings{});
}

TEST(FaviconPolicyTest, RedirectTargetsMeetTheCandidateRules) {
  for (const char* allowed : {"https://cdn.site.org/i.png", "HTTPS://CDN.site.org:443/i.png"}) {
    EXPECT_TRUE(FaviconPolicy::allowsRedirect(allowed, {})) << allowed;
  }
  for (const char* refused :
       {"http://cdn.site.org/i.png", "https://user@cdn.site.org/i.png", "https://:pw@cdn.site.org/",
        "https://cdn.site.org:8443/i.png", "https:///i.png", "https://localhost/i.png",
        "https://[2001:db8::1]/i.png", "https://printer.local/i.png", "data:image/png;base64,AA"}) {
    EXPECT_FALSE(FaviconPolicy::allowsRedirect(refused, {})) << refused;
  }
  EXPECT_FALSE(FaviconPolicy::allowsRedirect("https://cdn.site.org/i.png", {"*.site.org"}));
}

TEST(FaviconRedirectGuardTest, FollowsAtMostThreeAllowedRedirects) {
  FaviconRedirectGuard guard({"blocked.org"});
  EXPECT_FALSE(guard.follow("https://blocked.org/i.png"));  // refused ones count too
  EXPECT_FALSE(guard.follow(std::nullopt));
  EXPECT_TRUE(guard.follow("https://cdn.site.org/i.png"));
  EXPECT_FALSE(guard.follow("https://cdn.site.org/i.png"));
  EXPECT_EQ(guard.redirects(), 4);

  FaviconRedirectGuard fresh({});
  for (int hop = 1; hop <= 3; ++hop) EXPECT_TRUE(fresh.follow("https://cdn.site.org/i.png")) << hop;
  EXPECT_FALSE(fresh.follow("https://cdn.site.org/i.png"));
}

}  // namespace
}  // namespace velto
