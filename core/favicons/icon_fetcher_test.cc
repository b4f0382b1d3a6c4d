#include "core/favicons/icon_fetcher.h"

#include <gtest/gtest.h>
#include <netdb.h>

#include <thread>

#include "core/favicons/testing/https_test_server.h"

namespace velto {
namespace {

using namespace std::chrono_literals;
using Outcome = IconDownload::Outcome;
const std::string kSite = "https://site.velto-test.net";
const std::string kCdn = "https://cdn.velto-test.net";

class IconFetcherTest : public ::testing::Test {
 protected:
  CurlIconFetcher::TestRouting routing(bool allowLoopback = true) {
    return {server.port(),
            {"site.velto-test.net", "cdn.velto-test.net"},
            server.caFile(),
            allowLoopback};
  }
  IconDownload get(const std::string& url, const std::vector<std::string>& exclusions = {},
                   CurlIconFetcher* through = nullptr) {
    FaviconRedirectGuard guard(exclusions);
    return (through ? *through : fetcher).download(FaviconPolicy::request(url), guard);
  }
  void redirect(const std::string& from, const std::string& to) {
    server.script(from, {.status = 302, .headers = {"Location: " + to}});
  }

  HttpsTestServer server{{"site.velto-test.net", "cdn.velto-test.net"}};
  CurlIconFetcher fetcher{routing()};
};

TEST_F(IconFetcherTest, AsksForImagesAndKeepsNoCookies) {
  server.script(kSite + "/favicon.ico",
                {.body = "icon bytes", .headers = {"Set-Cookie: session=1; Path=/"}});
  for (int round = 0; round < 2; ++round) {
    const IconDownload download = get(kSite + "/favicon.ico");
    EXPECT_EQ(std::tuple(download.outcome, download.status, download.body),
              std::tuple(Outcome::response, 200, "icon bytes"));
  }
  const std::string headers = server.lastHeaders(kSite + "/favicon.ico");
  EXPECT_NE(headers.find("\r\nAccept: image/*\r\n"), std::string::npos) << headers;
  EXPECT_EQ(headers.find("Cookie"), std::string::npos) << headers;
}

TEST_F(IconFetcherTest, FollowsThreeRedirectsButNotFour) {
  // A chain of hops across both hosts, relative and absolute, ending in an image.
  const std::vector<std::string> chain = {kSite + "/h0", kCdn + "/h1", kCdn + "/h2", kSite + "/h3",
                                          kSite + "/h4"};
  redirect(chain[0], chain[1]);
  redirect(chain[1], "/h2");
  redirect(chain[2], chain[3]);
  redirect(chain[3], chain[4]);
  server.script(chain[4], {.body = "end"});
  EXPECT_EQ(get(chain[1]).body, "end");
  const IconDownload four = get(chain[0]);
  EXPECT_EQ(std::pair(four.outcome, four.status), std::pair(Outcome::response, 302L));
  EXPECT_EQ(server.requests(chain[4]), 1);
  EXPECT_EQ(server.requests(chain[3]), 2);
}

TEST_F(IconFetcherTest, RefusesRedirectsOffTheRules) {
  server.script(kCdn + "/i.png", {.body = "image"});
  for (const std::string& location :
       {"http://cdn.velto-test.net/i.png", "https://user@cdn.velto-test.net/i.png",
        "https://cdn.velto-test.net:8443/i.png", "https://127.0.0.1/i.png", ""}) {
    redirect(kSite + "/r", location);
    EXPECT_EQ(get(kSite + "/r").status, 302) << location;
  }
  redirect(kSite + "/r", kCdn + "/i.png");
  EXPECT_EQ(get(kSite + "/r", {"cdn.velto-test.net"}).status, 302);
  EXPECT_EQ(server.requests(kCdn + "/i.png"), 0);
}

// libcurl is never handed a name to map through IDNA itself: a redirect to another
// spelling of a host is followed under the ASCII name that was checked, and an address
// whose host is not in that form is never fetched.
TEST_F(IconFetcherTest, HostsGoOutOnlyInTheirCheckedASCIIForm) {
  server.script(kCdn + "/i.png", {.body = "image"});
  redirect(kSite + "/r", "https://\uff43\uff44\uff4e.velto-test.net/i.png");
  EXPECT_EQ(get(kSite + "/r").body, "image");
  EXPECT_EQ(get("https://\uff43\uff44\uff4e.velto-test.net/i.png").outcome, Outcome::failed);
  EXPECT_EQ(server.requests(kCdn + "/i.png"), 1);
}

TEST_F(IconFetcherTest, RefusesBodiesOfHalfAMebibyteWithoutReadingThem) {
  const std::string big(600000, 'x'), fits(IconFetcher::kMaxBodyBytes - 1, 'y');
  server.script(kSite + "/announced", {.body = big});
  server.script(kSite + "/streamed", {.body = big, .announce = false});
  server.script(kSite + "/lying", {.body = "tiny", .announcedSize = IconFetcher::kMaxBodyBytes});
  server.script(kSite + "/fits", {.body = fits, .announce = false});

  const IconDownload announced = get(kSite + "/announced");
  EXPECT_EQ(std::pair(announced.outcome, announced.received),
            std::pair(Outcome::tooLarge, size_t{0}));
  EXPECT_EQ(get(kSite + "/lying").outcome, Outcome::tooLarge);
  const IconDownload streamed = get(kSite + "/streamed");
  EXPECT_EQ(std::pair(streamed.outcome, streamed.body),
            std::pair(Outcome::tooLarge, std::string()));
  EXPECT_LT(streamed.received, IconFetcher::kMaxBodyBytes + 65536);
  EXPECT_EQ(get(kSite + "/fits").body.size(), fits.size());
}

TEST_F(IconFetcherTest, NeverConnectsToLoopbackOrUntrustedServers) {
  server.script(kSite + "/favicon.ico", {.body = "icon"});
  // A public name that leads to loopback, as a rebinding name would.
  CurlIconFetcher strict(routing(/*allowLoopback=*/false));
  EXPECT_EQ(get(kSite + "/favicon.ico", {}, &strict).outcome, Outcome::failed);
  // Names the test did not route are refused before any lookup.
  EXPECT_EQ(get("https://elsewhere.velto-test.net/favicon.ico").outcome, Outcome::failed);
  EXPECT_EQ(server.connections(), 0);

  HttpsTestServer stranger{{"site.velto-test.net"}};
  CurlIconFetcher misled({server.port(), {"site.velto-test.net"}, stranger.caFile(), true});
  EXPECT_EQ(get(kSite + "/favicon.ico", {}, &misled).outcome, Outcome::failed);
  EXPECT_EQ(server.requests(kSite + "/favicon.ico"), 0);
}

TEST_F(IconFetcherTest, TwoTransfersPerHostAndTimeLimitsIncludeQueueing) {
  const auto failsWithin = [&](const std::string& url, std::chrono::seconds answer,
                               std::chrono::seconds resource) {
    FaviconRedirectGuard guard({});
    auto request = FaviconPolicy::request(url);
    request.answerTimeout = answer;
    request.resourceTimeout = resource;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(fetcher.download(request, guard).outcome, Outcome::failed) << url;
    return std::chrono::steady_clock::now() - start;
  };
  server.script(kSite + "/slow", {.body = "x", .delay = 2500ms});
  server.script(kSite + "/quick", {.body = "q"});
  server.script(kCdn + "/quick", {.body = "q"});
  server.script(kCdn + "/stalled", {.body = "x", .delay = 3000ms});
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i)
    threads.emplace_back([&] { EXPECT_EQ(get(kSite + "/slow").body, "x"); });
  // A server that does not answer in time.
  threads.emplace_back([&] { EXPECT_LT(failsWithin(kCdn + "/stalled", 1s, 12s), 2700ms); });
  std::this_thread::sleep_for(300ms);
  EXPECT_EQ(server.requests(kSite + "/slow"), 2);
  EXPECT_EQ(get(kCdn + "/quick").body, "q");  // another host is not held up
  // Waiting for a busy host's slot uses up the resource's time.
  EXPECT_LT(failsWithin(kSite + "/quick", 8s, 1s), 1800ms);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(server.requests(kSite + "/quick"), 0);
}

TEST(PublicAddressTest, OnlyGlobalUnicastIsPublic) {
  const auto check = [](const char* text) {
    addrinfo hints{.ai_flags = AI_NUMERICHOST};
    addrinfo* found = nullptr;
    EXPECT_EQ(getaddrinfo(text, nullptr, &hints, &found), 0) << text;
    const bool isPublic = found && isPublicAddress(*found->ai_addr);
    freeaddrinfo(found);
    return isPublic;
  };
  for (
      const char* inner :
      {"127.0.0.1",        "127.255.0.9",     "10.1.2.3",          "172.16.0.1",  "172.31.255.255",
       "192.168.0.1",      "169.254.169.254", "100.64.0.1",        "0.0.0.0",     "224.0.0.1",
       "255.255.255.255",  "192.0.2.1",       "198.18.0.1",        "::1",         "::",
       "fe80::1",          "fc00::1",         "fd12::1",           "ff02::1",     "::ffff:10.0.0.1",
       "::ffff:127.0.0.1", "64:ff9b::a00:1",  "2002:c0a8:0101::1", "2001:db8::1", "2001::1"}) {
    EXPECT_FALSE(check(inner)) << inner;
  }
  for (const char* outer : {"8.8.8.8", "1.1.1.1", "172.32.0.1", "100.128.0.1", "2606:4700::1111",
                            "::ffff:8.8.8.8", "2002:0808:0808::1", "2a00:1450::1"}) {
    EXPECT_TRUE(check(outer)) << outer;
  }
}

}  // namespace
}  // namespace velto
