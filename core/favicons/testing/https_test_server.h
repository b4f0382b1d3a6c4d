#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

// An HTTPS server on 127.0.0.1 for tests, with a certificate authority made at start-up
// that only the tests trust (its certificate is written to caFile()) and a server
// certificate for the given names. Answers each "host/path" from a script (404 when
// unscripted), one thread per connection, one request per connection, and records what
// it was asked.
class HttpsTestServer {
 public:
  struct Response {
    int status = 200;
    std::string body;
    std::vector<std::string> headers;     // extra header lines, e.g. "Location: /next"
    std::optional<size_t> announcedSize;  // Content-Length; default body.size()
    bool announce = true;                 // false: no Content-Length, the body ends at close
    std::chrono::milliseconds delay{0};   // before answering
  };

  explicit HttpsTestServer(std::vector<std::string> hostNames);
  ~HttpsTestServer();
  HttpsTestServer(const HttpsTestServer&) = delete;
  HttpsTestServer& operator=(const HttpsTestServer&) = delete;

  uint16_t port() const { return port_; }
  const std::filesystem::path& caFile() const { return caFile_; }

  // `url` is "https://host/path".
  void script(const std::string& url, Response response);
  int requests(const std::string& url) const;
  // The header block of the latest request for `url` (empty when none).
  std::string lastHeaders(const std::string& url) const;
  int connections() const { return connections_; }
  int mostAtOnce() const { return mostAtOnce_; }

 private:
  void acceptLoop();
  void serve(int socket);

  struct Tls;
  std::unique_ptr<Tls> tls_;
  std::filesystem::path caFile_;
  int listener_ = -1;
  uint16_t port_ = 0;
  std::thread acceptor_;
  std::atomic<int> connections_{0};
  std::atomic<int> active_{0};
  std::atomic<int> mostAtOnce_{0};

  mutable std::mutex mutex_;
  std::map<std::string, Response> script_;
  std::map<std::string, int> requests_;
  std::map<std::string, std::string> lastHeaders_;
  std::vector<std::thread> workers_;
};
