#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// Test fixtures that drive a real browser: a loopback web server with pages of known
// titles, and Debian's Chromium, not headless (a headless one writes no session), on a
// private Xvfb display with a temporary profile and its DevTools HTTP endpoint.
namespace velto::testing {

// Serves one small HTML page per path on 127.0.0.1 (any free port), titled as given, until
// destroyed; any other path is 404.
class PageServer {
 public:
  explicit PageServer(std::map<std::string, std::string> titles);  // path -> title
  ~PageServer();
  PageServer(const PageServer&) = delete;
  PageServer& operator=(const PageServer&) = delete;

  uint16_t port() const { return port_; }  // 0 when the server could not start
  // "http://127.0.0.1:<port><path>".
  std::string url(const std::string& path) const;

 private:
  void serve() const;

  std::map<std::string, std::string> titles_;
  int listener_ = -1;
  uint16_t port_ = 0;
  std::thread thread_;
};

// One page target of the browser's DevTools endpoint.
struct DevToolsPage {
  std::string id;
  std::string url;
  std::string title;
};

// A running Chromium and its display. Destroying it ends the browser (politely first, so
// that it writes its files) and the display server.
class ChromiumSession {
 public:
  // Why a session cannot start here (no chromium or no Xvfb); empty when it can.
  static std::string unavailableReason();

  // Starts the browser on `urls` with its data in `userDataDir` (the profile "Default"
  // below it), and waits until its DevTools endpoint answers. Absent on failure, with the
  // reason in `why`.
  static std::unique_ptr<ChromiumSession> start(const std::filesystem::path& userDataDir,
                                                const std::vector<std::string>& urls,
                                                std::string& why);
  ~ChromiumSession();
  ChromiumSession(const ChromiumSession&) = delete;
  ChromiumSession& operator=(const ChromiumSession&) = delete;

  uint16_t devToolsPort() const { return devToolsPort_; }
  // The browser's page targets (tabs), as DevTools lists them.
  std::vector<DevToolsPage> pages() const;
  // Closes a tab through DevTools; true when the endpoint accepted.
  bool closePage(const std::string& id) const;

 private:
  ChromiumSession() = default;
  std::string request(const std::string& method, const std::string& path) const;

  pid_t display_ = -1;
  pid_t browser_ = -1;
  uint16_t devToolsPort_ = 0;
};

}  // namespace velto::testing
