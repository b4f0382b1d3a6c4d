#include "core/browser/session_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/browser/browser_history.h"
#include "core/browser/session_file.h"
#include "core/browser/session_tabs.h"

namespace velto::SessionReader {

namespace {

namespace fs = std::filesystem;

// The number of a "Session_<digits>" name, as digits without leading zeros (compared by
// length, then text, so that any number of digits orders correctly); absent otherwise.
std::optional<std::string> sessionNumber(const std::string& name) {
  constexpr std::string_view kPrefix = "Session_";
  if (!name.starts_with(kPrefix) || name.size() == kPrefix.size()) return std::nullopt;
  std::string digits = name.substr(kPrefix.size());
  if (digits.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
  digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
  return digits;
}

bool numberLess(const std::string& a, const std::string& b) {
  return a.size() != b.size() ? a.size() < b.size() : a < b;
}

}  // namespace

std::vector<fs::path> profiles(Browser browser, const EnvironmentLookup& env) {
  const auto where = BrowserHistory::location(browser, env);
  if (!where || !where->isProfileFolder) return {};
  std::vector<fs::path> found;
  std::error_code error;
  for (fs::directory_iterator entry(where->path, error), end; !error && entry != end;
       entry.increment(error)) {
    if (fs::is_directory(entry->path() / "Sessions", error)) found.push_back(entry->path());
    error.clear();
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::optional<fs::path> newestSessionFile(const fs::path& profile) {
  std::optional<fs::path> newest;
  std::string newestNumber;
  std::error_code error;
  for (fs::directory_iterator entry(profile / "Sessions", error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    const auto number = sessionNumber(name);
    if (!number || !entry->is_regular_file(error)) continue;
    if (!newest || numberLess(newestNumber, *number) ||
        (*number == newestNumber && newest->filename().string() < name)) {
      newest = entry->path();
      newestNumber = *number;
    }
  }
  return newest;
}

Result<std::string> readFile(const fs::path& path, size_t limit) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return fileError("Could not read " + path.string() + ": " + std::strerror(errno));
  struct stat status {};
  if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(fd);
    return fileError("Could not read " + path.string() + ": not a regular file");
  }
  // Sized from the file as it is now, but read to its end: the browser may be appending.
  std::string bytes(std::min(limit, static_cast<size_t>(std::max<off_t>(status.st_size, 0))), '\0');
  size_t got = 0;
  for (;;) {
    if (got == bytes.size()) {
      if (got >= limit) break;
      bytes.resize(std::min(limit, std::max<size_t>(got * 2, 4096)));
    }
    const ssize_t chunk = ::read(fd, bytes.data() + got, bytes.size() - got);
    if (chunk < 0 && errno == EINTR) continue;
    if (chunk < 0) {
      const int error = errno;
      ::close(fd);
      return fileError("Could not read " + path.string() + ": " + std::strerror(error));
    }
    if (chunk == 0) break;
    got += static_cast<size_t>(chunk);
  }
  ::close(fd);
  bytes.resize(got);
  return bytes;
}

std::vector<LiveTab> openTabs(Browser browser, const EnvironmentLookup& env, Date now) {
  std::vector<LiveTab> tabs;
  for (const fs::path& profile : profiles(browser, env)) {
    if (tabs.size() >= SessionTabs::kMaxTabs) break;
    const auto file = newestSessionFile(profile);
    if (!file) continue;
    const auto bytes = readFile(*file);
    if (!bytes.ok()) continue;
    const auto session = SessionFile::parse(*bytes);
    if (!session) continue;
    const auto titles =
        BrowserHistory::titles(profile / "History", SessionTabs::untitledURLs(*session));
    SessionTabs::append(*session, profile.filename().string(), browser, titles, now, tabs);
  }
  return tabs;
}

}  // namespace velto::SessionReader
