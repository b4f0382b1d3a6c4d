#include "core/browser/testing/chromium_session.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

extern char** environ;

namespace velto::testing {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr const char* kChromium = "/usr/bin/chromium";
constexpr const char* kXvfb = "/usr/bin/Xvfb";

// A socket connected to 127.0.0.1:port that gives up reading or writing after 10 s; -1
// when it cannot connect.
int connectLoopback(uint16_t port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket < 0) return -1;
  timeval limit{10, 0};
  ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    ::close(socket);
    return -1;
  }
  return socket;
}

// Whether `reply` holds a whole HTTP response: its head and as many bytes of body as its
// Content-Length gives (none without one).
bool complete(const std::string& reply) {
  const size_t head = reply.find("\r\n\r\n");
  if (head == std::string::npos) return false;
  std::string lower = reply.substr(0, head);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const size_t field = lower.find("\r\ncontent-length:");
  const size_t length =
      field == std::string::npos ? 0 : std::strtoul(lower.c_str() + field + 17, nullptr, 10);
  return reply.size() - head - 4 >= length;
}

// Waits up to `limit` for `pid` to end; true when it did (and was collected).
bool waitFor(pid_t pid, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  do {
    const pid_t done = ::waitpid(pid, nullptr, WNOHANG);
    if (done == pid || (done < 0 && errno == ECHILD)) return true;
    std::this_thread::sleep_for(20ms);
  } while (std::chrono::steady_clock::now() < deadline);
  return false;
}

// Ends a process group politely, then for good.
void stopGroup(pid_t leader) {
  if (leader <= 0) return;
  ::kill(-leader, SIGTERM);
  if (!waitFor(leader, 10s)) {
    ::kill(-leader, SIGKILL);
    waitFor(leader, 5s);
  }
  ::kill(-leader, SIGKILL);  // helpers the browser left behind
}

// Spawns `argv` in its own process group with `env`, its output in `log` (or nowhere),
// and `keep` as its descriptor 3 when not -1.
pid_t spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env,
            const std::string& log, int keep = -1) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log.c_str(),
                                   O_WRONLY | O_CREAT | O_APPEND, 0600);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  if (keep >= 0) posix_spawn_file_actions_adddup2(&actions, keep, 3);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setpgroup(&attributes, 0);

  std::vector<char*> args, vars;
  for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  for (const auto& var : env) vars.push_back(const_cast<char*>(var.c_str()));
  vars.push_back(nullptr);
  pid_t pid = -1;
  if (::posix_spawn(&pid, argv[0].c_str(), &actions, &attributes, args.data(), vars.data()) != 0) {
    pid = -1;
  }
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  return pid;
}

// This process's environment with DISPLAY set to `display`.
std::vector<std::string> environmentWithDisplay(const std::string& display) {
  std::vector<std::string> env;
  for (char** var = environ; *var != nullptr; ++var) {
    if (!std::string_view(*var).starts_with("DISPLAY=")) env.emplace_back(*var);
  }
  env.push_back("DISPLAY=" + display);
  return env;
}

}  // namespace

PageServer::PageServer(std::map<std::string, std::string> titles)
    : titles_(std::move(titles)), listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* raw = reinterpret_cast<sockaddr*>(&address);
  socklen_t length = sizeof address;
  if (::bind(listener_, raw, length) == 0 && ::listen(listener_, 16) == 0 &&
      ::getsockname(listener_, raw, &length) == 0) {
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
}

PageServer::~PageServer() {
  ::shutdown(listener_, SHUT_RDWR);  // ends the accept loop
  if (thread_.joinable()) thread_.join();
  ::close(listener_);
}

std::string PageServer::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

void PageServer::serve() const {
  for (int client; (client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;
       ::close(client)) {
    char request[4096];
    const ssize_t got = ::recv(client, request, sizeof request - 1, 0);  // one read holds a GET
    if (got <= 0) continue;
    const std::string line(request, static_cast<size_t>(got));
    const size_t start = line.find(' ') + 1, end = line.find(' ', start);
    const auto page = titles_.find(line.substr(start, end - start));
    const bool found = page != titles_.end();
    const std::string body = found ? "<!doctype html><html><head><title>" + page->second +
                                         "</title></head><body>" + page->second + "</body></html>"
                                   : "not found";
    const std::string response = std::string(found ? "HTTP/1.1 200 OK" : "HTTP/1.1 404 Not Found") +
                                 "\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: " +
                                 std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" +
                                 body;
    (void)!::send(client, response.data(), response.size(), MSG_NOSIGNAL);
  }
}

std::string ChromiumSession::unavailableReason() {
  if (::access(kChromium, X_OK) != 0) return "chromium is not installed";
  if (::access(kXvfb, X_OK) != 0) return "Xvfb is not installed";
  return {};
}

std::unique_ptr<ChromiumSession> ChromiumSession::start(const fs::path& userDataDir,
                                                        const std::vector<std::string>& urls,
                                                        std::string& why) {
  why = unavailableReason();
  if (!why.empty()) return nullptr;
  std::unique_ptr<ChromiumSession> session(new ChromiumSession);
  fs::create_directories(userDataDir);
  const std::string log = (userDataDir.parent_path() / "chromium-session.log").string();

  // Xvfb picks a free display itself and writes its number to descriptor 3.
  int ready[2];
  if (::pipe2(ready, O_CLOEXEC) != 0) {
    why = "pipe failed";
    return nullptr;
  }
  session->display_ =
      spawn({kXvfb, "-displayfd", "3", "-screen", "0", "1280x800x24", "-nolisten", "tcp"},
            environmentWithDisplay(""), log, ready[1]);
  ::close(ready[1]);
  std::string number;
  char c;
  pollfd wait{ready[0], POLLIN, 0};
  while (::poll(&wait, 1, 15000) == 1 && ::read(ready[0], &c, 1) == 1 && c != '\n') number += c;
  ::close(ready[0]);
  if (session->display_ < 0 || number.empty()) {
    why = "Xvfb did not start (see " + log + ")";
    return nullptr;
  }

  std::vector<std::string> argv = {kChromium,
                                   "--user-data-dir=" + userDataDir.string(),
                                   "--no-first-run",
                                   "--no-default-browser-check",
                                   "--remote-debugging-port=0",
                                   "--disable-gpu",
                                   "--disable-background-networking",
                                   "--disable-component-update",
                                   "--disable-sync",
                                   "--password-store=basic",
                                   "--window-size=1200,700"};
  // The sandbox refuses to run as root, and needs namespaces a test container may not
  // grant; the pages are the test's own.
  argv.push_back("--no-sandbox");
  argv.insert(argv.end(), urls.begin(), urls.end());
  session->browser_ = spawn(argv, environmentWithDisplay(":" + number), log);
  if (session->browser_ < 0) {
    why = "chromium did not start";
    return nullptr;
  }

  // The browser writes the port it picked into DevToolsActivePort once it listens.
  const auto deadline = std::chrono::steady_clock::now() + 30s;
  while (std::chrono::steady_clock::now() < deadline) {
    std::ifstream active(userDataDir / "DevToolsActivePort");
    int port = 0;
    if (active >> port && port > 0 && port < 65536) {
      session->devToolsPort_ = static_cast<uint16_t>(port);
      if (!session->request("GET", "/json/version").empty()) return session;
    }
    if (::waitpid(session->browser_, nullptr, WNOHANG) == session->browser_) {
      session->browser_ = -1;
      break;
    }
    std::this_thread::sleep_for(100ms);
  }
  why = "chromium's DevTools endpoint did not answer (see " + log + ")";
  return nullptr;
}

ChromiumSession::~ChromiumSession() {
  stopGroup(browser_);
  stopGroup(display_);
}

std::string ChromiumSession::request(const std::string& method, const std::string& path) const {
  const int socket = connectLoopback(devToolsPort_);
  if (socket < 0) return {};
  const std::string text =
      method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
  // The endpoint keeps the connection open whatever the request says: the reply ends
  // where its Content-Length says.
  std::string reply;
  if (::send(socket, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size())) {
    char buffer[8192];
    for (ssize_t got; !complete(reply) && (got = ::recv(socket, buffer, sizeof buffer, 0)) > 0;) {
      reply.append(buffer, static_cast<size_t>(got));
    }
  }
  ::close(socket);
  if (!reply.starts_with("HTTP/1.1 200") || !complete(reply)) return {};
  return reply.substr(reply.find("\r\n\r\n") + 4);
}

std::vector<DevToolsPage> ChromiumSession::pages() const {
  const auto list = nlohmann::json::parse(request("GET", "/json/list"), nullptr, false);
  std::vector<DevToolsPage> pages;
  if (!list.is_array()) return pages;
  for (const auto& target : list) {
    if (target.value("type", "") != "page") continue;
    pages.push_back({target.value("id", ""), target.value("url", ""), target.value("title", "")});
  }
  return pages;
}

bool ChromiumSession::closePage(const std::string& id) const {
  return !request("GET", "/json/close/" + id).empty();
}

}  // namespace velto::testing
