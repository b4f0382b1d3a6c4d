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
        "a.invalid", "１２７.０.０.１", "٣.١٤",
        // Other spellings of reserved names, as a resolver maps them.
        "a.ｌｏｃａｌ", "nas.ＬＡＮ.home.ｉｎｔｅｒｎａｌ", "x.printer．local", "x.printer。local",
        "ｌｏｃａｌｈｏｓｔ", "xn--zz.org", "\xff.org"}) {
    EXPECT_FALSE(FaviconPolicy::isPublicHostname(refused)) << refused;
  }
  for (const char* accepted :
       {"local.example.org", "home.net", "test.de", "WWW.Site.ORG.", "123.com", "lan.party.io"}) {
    EXPECT_TRUE(FaviconPolicy::isPublicHostname(accepted)) << accepted;
  }
}

TEST(FaviconPolicyTest, IconURLOnlyForPublicPagesOnWebPorts) {
  const std::string news = "https://news.site.org/favicon.ico",
                    video = "https://www.youtube.com/favicon.ico";
  for (const auto& [page, icon] : std::vector<std::pair<std::string, std::string>>{
           {"http://news.site.org:8080/a", ""},
           {"ftp://news.site.org/", ""},
           {"https://192.168.1.1/", ""},
           {"http://news.site.org:80/a", news},
           {"https://News.Site.ORG.:443/a?b#c", news},
           // The icon comes from the host that was checked, never one cut out of it.
           {"https://a.org%2Fb.net/", "https://a.org%2Fb.net/favicon.ico"},
           {"https://youtu.be/abc", video},
           {"https://music.youtube.com/", video},
           {"https://notyoutube.com/", "https://notyoutube.com/favicon.ico"},
           // Icons are asked for by the host's ASCII form, the one that was checked.
           {"https://Ärzte.Site.org/", "https://xn--rzte-koa.site.org/favicon.ico"},
           {"https://ｍｕｓｉｃ.ｙｏｕｔｕｂｅ.ｃｏｍ/", video},
           {"https://a.ｌｏｃａｌ/", ""}}) {
    EXPECT_EQ(FaviconPolicy::iconURL(page, {}).value_or(""), icon) << page;
  }
  EXPECT_FALSE(FaviconPolicy::iconURL("https://mail.site.org/", {"site.org"}));
  EXPECT_FALSE(FaviconPolicy::iconURL("https://ärzte.site.org/", {"xn--rzte-koa.site.org"}));
  // The page is not excluded, but the host its icon comes from is.
  EXPECT_FALSE(FaviconPolicy::iconURL("https://youtu.be/abc", {"www.youtube.com"}));
}

TEST(FaviconPolicyTest, CandidatesInOrderAndFiltered) {
  const auto touch = [](std::string at) { return "https://" + at + "/apple-touch-icon.png"; };
  for (const auto& [icon, candidates] : std::vector<std::pair<std::string, Strings>>{
           {"https://site.org/favicon.ico", {"https://site.org/favicon.ico", touch("site.org")}},
           {"https://site.org/a/b/", {"https://site.org/a/b/", touch("site.org/a")}},
           {"https://a.org%2Fb.net/favicon.ico",
            {"https://a.org%2Fb.net/favicon.ico", touch("a.org%2Fb.net")}},
           {"https://www.youtube.com/favicon.ico",
            {std::string(FaviconPolicy::kVideoFixedIconURL), "https://www.youtube.com/favicon.ico",
             touch("www.youtube.com")}},
           {"https://ärzte.site.org/favicon.ico",
            {"https://xn--rzte-koa.site.org/favicon.ico", touch("xn--rzte-koa.site.org")}}}) {
    EXPECT_EQ(FaviconPolicy::candidates(icon, {}), candidates) << icon;
  }
  // Every entry meets the redirect rules, the fixed one too.
  EXPECT_EQ(FaviconPolicy::candidates("https://www.youtube.com/favicon.ico", {"ytimg.com"}).size(),
            2u);
}

TEST(FaviconPolicyTest, RedirectTargetsMeetTheCandidateRules) {
  for (const char* allowed : {"https://cdn.site.org/i.png", "HTTPS://CDN.site.org:443/i.png"}) {
    EXPECT_TRUE(FaviconPolicy::allowsRedirect(allowed, {})) << allowed;
  }
  for (const char* refused :
       {"http://cdn.site.org/i.png", "https://user@cdn.site.org/i.png", "https://:pw@cdn.site.org/",
        "https://cdn.site.org:8443/i.png", "https:///i.png", "https://localhost/i.png",
        "https://[2001:db8::1]/i.png", "https://10.1.1.1/i.png", "data:image/png;base64,AA",
        "not a url", "https://a.ｌｏｃａｌ/i.png", "https://ｌｏｃａｌｈｏｓｔ/"}) {
    EXPECT_FALSE(FaviconPolicy::allowsRedirect(refused, {})) << refused;
  }
  EXPECT_FALSE(FaviconPolicy::allowsRedirect("https://cdn.site.org/i.png", {"*.site.org"}));
}

TEST(FaviconPolicyTest, AddressesGoOutWithTheirHostInCanonicalForm) {
  EXPECT_EQ(FaviconPolicy::withCanonicalHost("https://Ärzte.site.org:443/a/ä?q#f"),
            "https://xn--rzte-koa.site.org:443/a/%C3%A4?q#f");
  EXPECT_EQ(FaviconPolicy::withCanonicalHost("https://CDN.site.org./i.png"),
            "https://cdn.site.org/i.png");
  for (const char* refused : {"https://xn--zz.org/", "about:blank", "https:///i.png", "nope"}) {
    EXPECT_FALSE(FaviconPolicy::withCanonicalHost(refused)) << refused;
  }
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
