#include "core/favicons/icon_fetcher.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

#include <thread>

#include "core/favicons/testing/https_test_server.h"

namespace velto {
namespace {

using Outcome = IconDownload::Outcome;
const std::string kSite = "site.velto-test.net";
const std::string kCdn = "cdn.velto-test.net";

class IconFetcherTest : public ::testing::Test {
 protected:
  CurlIconFetcher::TestRouting routing(bool allowLoopback = true) {
    return {server.port(), {kSite, kCdn}, server.caFile(), allowLoopback};
  }
  IconDownload get(CurlIconFetcher& through, const std::string& url,
                   const std::vector<std::string>& exclusions = {}) {
    FaviconRedirectGuard guard(exclusions);
    return through.download(FaviconPolicy::request(url), guard);
  }
  IconDownload get(const std::string& url, const std::vector<std::string>& exclusions = {}) {
    return get(fetcher, url, exclusions);
  }
  void redirect(const std::string& from, const std::string& to) {
    server.script(from, {.status = 302, .headers = {"Location: " + to}});
  }

  HttpsTestServer server{{kSite, kCdn}};
  CurlIconFetcher fetcher{routing()};
};

TEST_F(IconFetcherTest, AsksForImagesAndKeepsNoCookies) {
  server.script("https://" + kSite + "/favicon.ico",
                {.body = "icon bytes", .headers = {"Set-Cookie: session=1; Path=/"}});
  for (int round = 0; round < 2; ++round) {
    const IconDownload download = get("https://" + kSite + "/favicon.ico");
    EXPECT_EQ(download.outcome, Outcome::response);
    EXPECT_EQ(download.status, 200);
    EXPECT_EQ(download.body, "icon bytes");
  }
  const std::string headers = server.lastHeaders("https://" + kSite + "/favicon.ico");
  EXPECT_NE(headers.find("\r\nAccept: image/*\r\n"), std::string::npos) << headers;
  EXPECT_EQ(headers.find("Cookie"), std::string::npos) << headers;
}

TEST_F(IconFetcherTest, FollowsThreeRedirectsButNotFour) {
  // A chain of hops across both hosts, relative and absolute, ending in an image.
  const std::vector<std::string> chain = {"https://" + kSite + "/h0", "https://" + kCdn + "/h1",
                                          "https://" + kCdn + "/h2", "https://" + kSite + "/h3",
                                          "https://" + kSite + "/h4"};
  redirect(chain[0], chain[1]);
  redirect(chain[1], "/h2");
  redirect(chain[2], chain[3]);
  redirect(chain[3], chain[4]);
  server.script(chain[4], {.body = "end"});

  const IconDownload three = get(chain[1]);
  EXPECT_EQ(three.status, 200);
  EXPECT_EQ(three.body, "end");

  const IconDownload four = get(chain[0]);
  EXPECT_EQ(four.outcome, Outcome::response);
  EXPECT_EQ(four.status, 302);  // the refused redirect itself ends the download
  EXPECT_EQ(server.requests(chain[4]), 1);
  EXPECT_EQ(server.requests(chain[3]), 2);
}

TEST_F(IconFetcherTest, RefusesRedirectsOffTheRules) {
  const std::string target = "https://" + kCdn + "/i.png";
  server.script(target, {.body = "image"});
  struct Case {
    std::string location;
    std::vector<std::string> exclusions;
  };
  for (const Case& c : {Case{"http://" + kCdn + "/i.png", {}}, Case{"https://user@" + kCdn + "/i.png", {}},
                        Case{"https://" + kCdn + ":8443/i.png", {}}, Case{target, {"velto-test.net"}},
                        Case{"https://127.0.0.1/i.png", {}}, Case{"", {}}}) {
    redirect("https://" + kSite + "/r", c.location);
    const IconDownload download = get("https://" + kSite + "/r", c.exclusions);
    EXPECT_EQ(download.status, 302) << c.location;
  }
  EXPECT_EQ(server.requests(target), 0);
}

TEST_F(IconFetcherTest, RefusesBodiesOfHalfAMebibyteWithoutReadingThem) {
  const std::string big(600000, 'x'), fits(IconFetcher::kMaxBodyBytes - 1, 'y');
  server.script("https://" + kSite + "/announced", {.body = big});
  server.script("https://" + kSite + "/streamed", {.body = big, .announce = false});
  server.script("https://" + kSite + "/lying", {.body = "tiny", .announcedSize = IconFetcher::kMaxBodyBytes});
  server.script("https://" + kSite + "/fits", {.body = fits, .announce = false});

  const IconDownload announced = get("https://" + kSite + "/announced");
  EXPECT_EQ(announced.outcome, Outcome::tooLarge);
  EXPECT_EQ(announced.received, 0u);
  EXPECT_EQ(get("https://" + kSite + "/lying").outcome, Outcome::tooLarge);
  const IconDownload streamed = get("https://" + kSite + "/streamed");
  EXPECT_EQ(streamed.outcome, Outcome::tooLarge);
  EXPECT_TRUE(streamed.body.empty());
  EXPECT_LT(streamed.received, IconFetcher::kMaxBodyBytes + 65536);
  EXPECT_EQ(get("https://" + kSite + "/fits").body.size(), fits.size());
}

TEST_F(IconFetcherTest, NeverConnectsWhereAPublicNameLeadsToLoopback) {
  CurlIconFetcher strict(routing(/*allowLoopback=*/false));
  server.script("https://" + kSite + "/favicon.ico", {.body = "icon"});
  EXPECT_EQ(get(strict, "https://" + kSite + "/favicon.ico").outcome, Outcome::failed);
  // Names the test did not route are refused before any lookup.
  EXPECT_EQ(get("https://elsewhere.velto-test.net/favicon.ico").outcome, Outcome::failed);
  EXPECT_EQ(server.connections(), 0);
}

TEST_F(IconFetcherTest, TrustsOnlyTheGivenAuthority) {
  HttpsTestServer stranger{{kSite}};
  CurlIconFetcher misled({server.port(), {kSite}, stranger.caFile(), true});
  server.script("https://" + kSite + "/favicon.ico", {.body = "icon"});
  EXPECT_EQ(get(misled, "https://" + kSite + "/favicon.ico").outcome, Outcome::failed);
  EXPECT_EQ(server.requests("https://" + kSite + "/favicon.ico"), 0);
}

TEST_F(IconFetcherTest, AtMostTwoTransfersPerHostAtOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i) {
    const std::string url = "https://" + kSite + "/slow/" + std::to_string(i);
    server.script(url, {.body = "x", .delay = std::chrono::milliseconds(150)});
    threads.emplace_back([this, url] { EXPECT_EQ(get(url).body, "x"); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_LE(server.mostAtOnce(), 2);
}

TEST(PublicAddressTest, OnlyGlobalUnicastIsPublic) {
  const auto check = [](const char* text) {
    sockaddr_storage storage{};
    if (inet_pton(AF_INET, text, &reinterpret_cast<sockaddr_in&>(storage).sin_addr) == 1) {
      storage.ss_family = AF_INET;
    } else {
      EXPECT_EQ(inet_pton(AF_INET6, text, &reinterpret_cast<sockaddr_in6&>(storage).sin6_addr), 1) << text;
      storage.ss_family = AF_INET6;
    }
    return isPublicAddress(reinterpret_cast<const sockaddr&>(storage));
  };
  for (const char* inner : {"127.0.0.1", "127.255.0.9", "10.1.2.3", "172.16.0.1", "172.31.255.255",
                            "192.168.0.1", "169.254.169.254", "100.64.0.1", "0.0.0.0", "224.0.0.1",
                            "255.255.255.255", "192.0.2.1", "198.18.0.1", "::1", "::", "fe80::1",
                            "fc00::1", "fd12::1", "ff02::1", "::ffff:10.0.0.1", "::ffff:127.0.0.1",
                            "64:ff9b::a00:1", "2002:c0a8:0101::1", "2001:db8::1", "2001::1"}) {
    EXPECT_FALSE(check(inner)) << inner;
  }
  for (const char* outer : {"8.8.8.8", "1.1.1.1", "172.32.0.1", "100.128.0.1", "2606:4700::1111",
                            "::ffff:8.8.8.8", "2002:0808:0808::1", "2a00:1450::1"}) {
    EXPECT_TRUE(check(outer)) << outer;
  }
}

}  // namespace
}  // namespace velto
