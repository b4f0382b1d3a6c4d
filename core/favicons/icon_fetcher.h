#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/favicons/favicon_policy.h"
#include "core/favicons/favicon_redirect_guard.h"

struct sockaddr;

namespace velto {

// How one icon download ended.
struct IconDownload {
  enum class Outcome {
    response,  // a whole HTTP response arrived: `status` and `body` hold it
    tooLarge,  // its body was announced or grew to kMaxBodyBytes or more; not read further
    failed,    // no response: refused address, TLS or network failure, time limit
  };
  Outcome outcome = Outcome::failed;
  long status = 0;
  std::string body;
  size_t received = 0;  // body bytes taken in, also when the body was refused
};

// Downloads icons over HTTPS. Lives behind an interface so that the store can be tried
// with a fake and so that another platform can bring its own networking.
class IconFetcher {
 public:
  static constexpr size_t kMaxBodyBytes = 524288;

  virtual ~IconFetcher() = default;

  // Fetches request.url, letting `guard` decide every redirect; a redirect it refuses
  // ends the download with the redirect response itself. Safe to call from several
  // threads at once.
  virtual IconDownload download(const FaviconPolicy::IconRequest& request,
                                FaviconRedirectGuard& guard) = 0;
};

// True for an IPv4 or IPv6 address on the public internet; false for loopback, private,
// shared, link-local, multicast, documentation and other special-purpose ranges (IPv4
// addresses carried in IPv6 are judged as IPv4). Unknown families are not public.
bool isPublicAddress(const sockaddr& address);

// The libcurl fetcher: HTTPS only, no proxy, no cookies, no cache; redirects are never
// followed by libcurl but offered to the guard hop by hop; at most 2 transfers per host
// at a time over a shared connection pool. The resource time limit covers the whole
// download: every hop, and any wait for a busy host. A name is only connected to when it resolves
// to a public address, so a name that points into the user's network is refused.
class CurlIconFetcher final : public IconFetcher {
 public:
  // Points the fetcher at a local test server and is never used otherwise: the listed
  // names (port 443) are connected to 127.0.0.1:`port`, every other name is refused
  // before any lookup, and the server's certificate must come from `caFile`.
  struct TestRouting {
    uint16_t port = 0;
    std::vector<std::string> hosts;
    std::filesystem::path caFile;
    bool allowLoopback = true;  // false: the routed names meet the public-address rule
  };

  CurlIconFetcher();
  explicit CurlIconFetcher(TestRouting routing);
  ~CurlIconFetcher() override;

  IconDownload download(const FaviconPolicy::IconRequest& request,
                        FaviconRedirectGuard& guard) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace velto
