#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "core/browser/application_launcher.h"
#include "core/model/velto_error.h"

extern char** environ;

namespace velto {

namespace {

namespace fs = std::filesystem;

// The kernel keeps only this many bytes of a process name (/proc/<pid>/comm).
constexpr size_t kProcessNameLength = 15;

// The commands that distributions and the vendors' packages install, most specific first.
// Debian's Chromium stands in for Google Chrome where Chrome is not installed, as its
// profile folder does for Chrome's.
std::vector<std::string_view> executables(Browser browser) {
  switch (browser) {
    case Browser::safari:
      return {};
    case Browser::chrome:
      return {"google-chrome-stable", "google-chrome", "chromium"};
    case Browser::brave:
      return {"brave-browser"};
    case Browser::edge:
      return {"microsoft-edge-stable", "microsoft-edge"};
  }
  return {};
}

// The names the browser's processes run under: the binary behind the wrapper scripts,
// and the wrappers themselves as the kernel shortens them.
std::vector<std::string> processNames(Browser browser) {
  std::vector<std::string> names;
  switch (browser) {
    case Browser::safari:
      return names;
    case Browser::chrome:
      names.push_back("chrome");
      break;
    case Browser::brave:
      names.push_back("brave");
      break;
    case Browser::edge:
      names.push_back("msedge");
      break;
  }
  for (std::string_view executable : executables(browser)) {
    names.emplace_back(executable.substr(0, kProcessNameLength));
  }
  return names;
}

bool isExecutableFile(const fs::path& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         ::access(path.c_str(), X_OK) == 0;
}

// Starts `program` in a new session, detached from this process (it is not our child
// and does not hold our standard streams), and reports whether the exec itself worked:
// the intermediate child reports an errno through a pipe that closes on a successful exec.
Result<void> startDetached(const std::string& program, const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  int report[2];
  if (::pipe2(report, O_CLOEXEC) != 0) {
    return platformError("Could not start " + program + ": " + std::strerror(errno));
  }
  const pid_t child = ::fork();
  if (child < 0) {
    const int error = errno;
    ::close(report[0]);
    ::close(report[1]);
    return platformError("Could not start " + program + ": " + std::strerror(error));
  }
  if (child == 0) {
    // Only async-signal-safe calls from here on.
    ::close(report[0]);
    ::setsid();
    const pid_t grandchild = ::fork();
    if (grandchild != 0) {
      if (grandchild < 0) {
        const int error = errno;
        (void)!::write(report[1], &error, sizeof error);
      }
      ::_exit(0);
    }
    ::signal(SIGPIPE, SIG_DFL);  // the server ignores it; the browser should not inherit that
    const int null = ::open("/dev/null", O_RDWR);
    if (null >= 0) {
      ::dup2(null, STDIN_FILENO);
      ::dup2(null, STDOUT_FILENO);
      ::dup2(null, STDERR_FILENO);
      if (null > STDERR_FILENO) ::close(null);
    }
    ::execve(program.c_str(), argv.data(), environ);
    const int error = errno;
    (void)!::write(report[1], &error, sizeof error);
    ::_exit(127);
  }

  ::close(report[1]);
  int error = 0;
  ssize_t got;
  do {
    got = ::read(report[0], &error, sizeof error);
  } while (got < 0 && errno == EINTR);
  ::close(report[0]);
  while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  if (got == static_cast<ssize_t>(sizeof error)) {
    return platformError("Could not start " + program + ": " + std::strerror(error));
  }
  return {};
}

class LinuxApplicationLauncher : public ApplicationLauncher {
 public:
  explicit LinuxApplicationLauncher(std::string searchPath) : searchPath_(std::move(searchPath)) {}

  bool isInstalled(Browser browser) override { return executablePath(browser).has_value(); }

  bool isRunning(Browser browser) override {
    const std::vector<std::string> names = processNames(browser);
    if (names.empty()) return false;
    DIR* processes = ::opendir("/proc");
    if (processes == nullptr) return false;
    const uid_t uid = ::geteuid();
    bool running = false;
    while (const dirent* entry = ::readdir(processes)) {
      const std::string_view pid = entry->d_name;
      if (pid.empty() || pid.find_first_not_of("0123456789") != std::string_view::npos) continue;
      // Another user's browser keeps its tabs in that user's profile, not in ours: reading
      // our session files as if our browser ran would keep closed tabs open.
      struct stat owner {};
      if (::stat(("/proc/" + std::string(pid)).c_str(), &owner) != 0 || owner.st_uid != uid) {
        continue;
      }
      // "pid (name) state ...": the name may hold parentheses itself; the state follows
      // the last one. A zombie has ended and only waits for its parent to collect it.
      std::ifstream stat("/proc/" + std::string(pid) + "/stat");
      const std::string line{std::istreambuf_iterator<char>(stat), {}};
      const size_t open = line.find('('), close = line.rfind(')');
      if (open == std::string::npos || close == std::string::npos || close < open ||
          close + 2 >= line.size()) {
        continue;
      }
      const char state = line[close + 2];
      if (state != 'Z' && state != 'X' &&
          std::find(names.begin(), names.end(), line.substr(open + 1, close - open - 1)) !=
              names.end()) {
        running = true;
        break;
      }
    }
    ::closedir(processes);
    return running;
  }

  Result<void> open(std::string_view url, Browser browser) override {
    const std::optional<fs::path> program = executablePath(browser);
    if (!program) return VeltoError::notInstalled(browser);
    return startDetached(program->string(), {std::string(url)});
  }

 private:
  // The first of the browser's executables found in a PATH directory. Relative and empty
  // PATH entries are skipped: which browser runs must not depend on the working directory.
  std::optional<fs::path> executablePath(Browser browser) const {
    for (std::string_view executable : executables(browser)) {
      std::string_view rest = searchPath_;
      while (!rest.empty()) {
        const size_t colon = rest.find(':');
        const std::string_view directory = rest.substr(0, colon);
        rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
        if (!directory.starts_with('/')) continue;
        fs::path candidate = fs::path(directory) / executable;
        if (isExecutableFile(candidate)) return candidate;
      }
    }
    return std::nullopt;
  }

  std::string searchPath_;
};

}  // namespace

std::unique_ptr<ApplicationLauncher> platformApplicationLauncher(const EnvironmentLookup& env) {
  return std::make_unique<LinuxApplicationLauncher>(
      env("PATH").value_or("/usr/local/bin:/usr/bin:/bin"));
}

}  // namespace velto
