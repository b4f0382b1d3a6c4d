#include "core/favicons/icon_fetcher.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>

#include "core/support/host_name.h"
#include "core/support/url.h"

namespace velto {

namespace {

bool isPublicIPv4(uint32_t a) {
  struct Range {
    uint32_t network;
    int prefix;
  };
  static constexpr Range kSpecial[] = {
      {0x00000000, 8},  {0x0a000000, 8},  {0x64400000, 10}, {0x7f000000, 8},  {0xa9fe0000, 16},
      {0xac100000, 12}, {0xc0000000, 24}, {0xc0000200, 24}, {0xc0a80000, 16}, {0xc6120000, 15},
      {0xc6336400, 24}, {0xcb007100, 24}, {0xe0000000, 4},  {0xf0000000, 4}};
  return std::none_of(std::begin(kSpecial), std::end(kSpecial), [&](const Range& range) {
    return (a >> (32 - range.prefix)) == (range.network >> (32 - range.prefix));
  });
}

uint32_t ipv4At(const uint8_t* bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

bool isPublicIPv6(const uint8_t* a) {
  static constexpr uint8_t kMapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
  static constexpr uint8_t kNAT64[12] = {0, 0x64, 0xff, 0x9b, 0, 0, 0, 0, 0, 0, 0, 0};
  if (std::memcmp(a, kMapped, 12) == 0 || std::memcmp(a, kNAT64, 12) == 0) {
    return isPublicIPv4(ipv4At(a + 12));
  }
  if (a[0] == 0x20 && a[1] == 0x02) return isPublicIPv4(ipv4At(a + 2));  // 6to4
  if ((a[0] & 0xe0) != 0x20) return false;  // only 2000::/3 is global unicast
  const bool protocolAssignments = a[0] == 0x20 && a[1] == 0x01 && a[2] < 0x02;  // 2001::/23
  const bool documentation = a[0] == 0x20 && a[1] == 0x01 && a[2] == 0x0d && a[3] == 0xb8;
  return !protocolAssignments && !documentation;
}

bool isLoopback(const sockaddr& address) {
  if (address.sa_family == AF_INET) {
    const auto& v4 = reinterpret_cast<const sockaddr_in&>(address);
    return (ntohl(v4.sin_addr.s_addr) >> 24) == 127;
  }
  if (address.sa_family == AF_INET6) {
    const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address);
    return IN6_IS_ADDR_LOOPBACK(&v6.sin6_addr);
  }
  return false;
}

std::string normalizedHost(std::string_view host) {
  while (!host.empty() && host.front() == '.') host.remove_prefix(1);
  while (!host.empty() && host.back() == '.') host.remove_suffix(1);
  std::string out(host);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return out;
}

// The host libcurl will contact for `url`, provided it is the host the policy checked;
// two URL parsers that disagree about a host must not let an unchecked one through. The
// host must be in canonical ASCII form: libcurl would map any other through IDNA itself
// and look up a name nobody checked.
std::optional<std::string> agreedHost(const std::string& url) {
  const auto ours = Url::parse(url);
  if (!ours || !ours->hasHost || canonicalHost(ours->host) != normalizedHost(ours->host)) {
    return std::nullopt;
  }
  std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), curl_url_cleanup);
  char* host = nullptr;
  if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK ||
      curl_url_get(parsed.get(), CURLUPART_HOST, &host, 0) != CURLUE_OK) {
    return std::nullopt;
  }
  std::string theirs = normalizedHost(host);
  curl_free(host);
  if (theirs != normalizedHost(ours->host)) return std::nullopt;
  return theirs;
}

bool isRedirect(long status) {
  return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

// State of one request/response exchange, handed to libcurl's callbacks.
struct Exchange {
  IconDownload result;
  bool tooLarge = false;
  bool allowLoopback = false;
};

size_t collectBody(char* data, size_t, size_t count, void* context) {
  auto* exchange = static_cast<Exchange*>(context);
  exchange->result.received += count;
  if (exchange->result.body.size() + count >= IconFetcher::kMaxBodyBytes) {
    exchange->tooLarge = true;
    return CURL_WRITEFUNC_ERROR;
  }
  exchange->result.body.append(data, count);
  return count;
}

// Runs after the name is resolved and before connecting: the last moment to see which
// address a name really leads to.
curl_socket_t openPublicSocket(void* context, curlsocktype purpose, curl_sockaddr* address) {
  const auto* exchange = static_cast<const Exchange*>(context);
  const bool allowed =
      isPublicAddress(address->addr) || (exchange->allowLoopback && isLoopback(address->addr));
  if (purpose != CURLSOCKTYPE_IPCXN || !allowed) return CURL_SOCKET_BAD;
  return socket(address->family, address->socktype, address->protocol);
}

}  // namespace

bool isPublicAddress(const sockaddr& address) {
  if (address.sa_family == AF_INET) {
    return isPublicIPv4(ntohl(reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr));
  }
  if (address.sa_family == AF_INET6) {
    return isPublicIPv6(reinterpret_cast<const sockaddr_in6&>(address).sin6_addr.s6_addr);
  }
  return false;
}

struct CurlIconFetcher::Impl {
  static constexpr int kTransfersPerHost = 2;

  std::optional<TestRouting> routing;
  std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> connectTo{nullptr,
                                                                        curl_slist_free_all};
  CURLSH* share = nullptr;
  std::mutex shareLocks[CURL_LOCK_DATA_LAST];
  std::mutex slotsMutex;
  std::condition_variable slotFreed;
  std::map<std::string, int> transfersByHost;

  explicit Impl(std::optional<TestRouting> testRouting) : routing(std::move(testRouting)) {
    static std::once_flag initialized;
    std::call_once(initialized, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    share = curl_share_init();
    if (share) {
      curl_share_setopt(share, CURLSHOPT_LOCKFUNC, lockShare);
      curl_share_setopt(share, CURLSHOPT_UNLOCKFUNC, unlockShare);
      curl_share_setopt(share, CURLSHOPT_USERDATA, this);
      for (const curl_lock_data data :
           {CURL_LOCK_DATA_CONNECT, CURL_LOCK_DATA_DNS, CURL_LOCK_DATA_SSL_SESSION}) {
        curl_share_setopt(share, CURLSHOPT_SHARE, data);
      }
    }
    if (routing) {
      for (const std::string& host : routing->hosts) {
        const std::string entry = host + ":443:127.0.0.1:" + std::to_string(routing->port);
        connectTo.reset(curl_slist_append(connectTo.release(), entry.c_str()));
      }
    }
  }

  ~Impl() {
    if (share) curl_share_cleanup(share);
  }

  static void lockShare(CURL*, curl_lock_data data, curl_lock_access, void* self) {
    static_cast<Impl*>(self)->shareLocks[data].lock();
  }
  static void unlockShare(CURL*, curl_lock_data data, void* self) {
    static_cast<Impl*>(self)->shareLocks[data].unlock();
  }

  // Holds one of the host's transfer slots for its lifetime, if one came free before
  // `deadline`: time spent queueing for a busy host counts against the resource's limit.
  class Slot {
   public:
    Slot(Impl& impl, std::string host, std::chrono::steady_clock::time_point deadline)
        : impl_(impl), host_(std::move(host)) {
      std::unique_lock lock(impl_.slotsMutex);
      held_ = impl_.slotFreed.wait_until(
          lock, deadline, [&] { return impl_.transfersByHost[host_] < kTransfersPerHost; });
      if (held_) ++impl_.transfersByHost[host_];
    }
    ~Slot() {
      if (!held_) return;
      {
        std::lock_guard lock(impl_.slotsMutex);
        if (--impl_.transfersByHost[host_] == 0) impl_.transfersByHost.erase(host_);
      }
      impl_.slotFreed.notify_all();
    }
    bool held() const { return held_; }

   private:
    Impl& impl_;
    std::string host_;
    bool held_ = false;
  };

  bool routes(const std::string& host) const {
    return std::find(routing->hosts.begin(), routing->hosts.end(), host) != routing->hosts.end();
  }

  // One request and its response, without following anything; `location` receives the
  // absolute address a redirect response names.
  IconDownload exchange(const std::string& url, const FaviconPolicy::IconRequest& request,
                        std::chrono::steady_clock::time_point deadline,
                        std::optional<std::string>& location) {
    using namespace std::chrono;
    const auto host = agreedHost(url);
    if (!host || (routing && !routes(*host))) return {};
    Exchange exchange;
    exchange.allowLoopback = routing && routing->allowLoopback;

    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> easy(curl_easy_init(), curl_easy_cleanup);
    const std::string accept = "Accept: " + request.accept;
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers(
        curl_slist_append(nullptr, accept.c_str()), curl_slist_free_all);
    if (!easy || !headers) return {};
    CURL* e = easy.get();
    const long answerSeconds = static_cast<long>(request.answerTimeout.count());
    curl_easy_setopt(e, CURLOPT_URL, url.c_str());
    curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(e, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(e, CURLOPT_HTTPGET, 1L);
    curl_easy_setopt(e, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(e, CURLOPT_USERAGENT, "Velto");
    curl_easy_setopt(e, CURLOPT_PROXY, "");  // an empty proxy disables the environment's
    curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(e, CURLOPT_CONNECTTIMEOUT, answerSeconds);
    curl_easy_setopt(e, CURLOPT_LOW_SPEED_LIMIT, 1L);  // an answer stalled this long ends it
    curl_easy_setopt(e, CURLOPT_LOW_SPEED_TIME, answerSeconds);
    curl_easy_setopt(e, CURLOPT_MAXFILESIZE_LARGE, curl_off_t{kMaxBodyBytes - 1});
    curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, collectBody);
    curl_easy_setopt(e, CURLOPT_WRITEDATA, &exchange);
    curl_easy_setopt(e, CURLOPT_OPENSOCKETFUNCTION, openPublicSocket);
    curl_easy_setopt(e, CURLOPT_OPENSOCKETDATA, &exchange);
    if (share) curl_easy_setopt(e, CURLOPT_SHARE, share);
    if (routing) {
      curl_easy_setopt(e, CURLOPT_CONNECT_TO, connectTo.get());
      curl_easy_setopt(e, CURLOPT_CAINFO, routing->caFile.c_str());
    }

    CURLcode code;
    {
      Slot slot(*this, *host, deadline);
      const auto timeLeft = duration_cast<milliseconds>(deadline - steady_clock::now());
      if (!slot.held() || timeLeft.count() <= 0) return {};
      curl_easy_setopt(e, CURLOPT_TIMEOUT_MS, static_cast<long>(timeLeft.count()));
      code = curl_easy_perform(e);
    }
    IconDownload& result = exchange.result;
    if (exchange.tooLarge || code == CURLE_FILESIZE_EXCEEDED) {
      result.outcome = IconDownload::Outcome::tooLarge;
      result.body.clear();
      return result;
    }
    if (code != CURLE_OK) return {};
    result.outcome = IconDownload::Outcome::response;
    curl_easy_getinfo(e, CURLINFO_RESPONSE_CODE, &result.status);
    char* redirect = nullptr;
    if (curl_easy_getinfo(e, CURLINFO_REDIRECT_URL, &redirect) == CURLE_OK && redirect) {
      location = redirect;
    }
    return result;
  }
};

CurlIconFetcher::CurlIconFetcher() : impl_(std::make_unique<Impl>(std::nullopt)) {}
CurlIconFetcher::CurlIconFetcher(TestRouting routing)
    : impl_(std::make_unique<Impl>(std::move(routing))) {}
CurlIconFetcher::~CurlIconFetcher() = default;

IconDownload CurlIconFetcher::download(const FaviconPolicy::IconRequest& request,
                                       FaviconRedirectGuard& guard) {
  using namespace std::chrono;
  const auto deadline = steady_clock::now() + request.resourceTimeout;
  std::string url = request.url;
  while (true) {
    std::optional<std::string> location;
    IconDownload result = impl_->exchange(url, request, deadline, location);
    if (result.outcome != IconDownload::Outcome::response || !isRedirect(result.status) ||
        !guard.follow(location)) {
      return result;
    }
    auto next = FaviconPolicy::withCanonicalHost(*location);
    if (!next) return result;
    url = std::move(*next);
  }
}

}  // namespace velto
