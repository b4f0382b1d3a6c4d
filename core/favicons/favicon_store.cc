#include "core/favicons/favicon_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>

#include "core/favicons/favicon_policy.h"
#include "core/favicons/icon_image.h"
#include "core/support/crypto.h"

namespace velto {

namespace fs = std::filesystem;

namespace {

std::optional<Date> modificationDate(const fs::path& path) {
  std::error_code error;
  const auto time = fs::last_write_time(path, error);
  if (error) return std::nullopt;
  return std::chrono::time_point_cast<std::chrono::microseconds>(
      std::chrono::file_clock::to_sys(time));
}

// At most `limit` bytes: a cache file is a small thumbnail, anything bigger is refused
// by the decoder anyway.
std::optional<std::string> readPrefix(const fs::path& path, size_t limit) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::string data(limit, '\0');
  file.read(data.data(), static_cast<std::streamsize>(limit));
  data.resize(static_cast<size_t>(file.gcount()));
  return data;
}

// The cache folder and any missing folder above it, created 0700; an existing cache
// folder is tightened to 0700. Its file names are hashes of addresses anyone can
// compute, so a listing readable by other users tells them which sites were visited.
bool makePrivateFolder(const fs::path& folder) {
  fs::path partial;
  for (const fs::path& part : folder) {
    partial /= part;
    if (::mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) return false;
  }
  struct stat info {};
  if (::stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) return false;
  return (info.st_mode & 0777) == 0700 || ::chmod(folder.c_str(), 0700) == 0;
}

// Created 0600 and exclusively: the file never exists with wider permissions.
bool writeNewPrivateFile(const fs::path& path, std::string_view bytes) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  bool written = true;
  while (written && !bytes.empty()) {
    const ssize_t count = ::write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    written = count > 0;
    if (written) bytes.remove_prefix(static_cast<size_t>(count));
  }
  return ::close(fd) == 0 && written;
}

}  // namespace

FaviconStore::FaviconStore(std::optional<fs::path> directory, std::shared_ptr<IconFetcher> fetcher,
                           Clock clock)
    : directory_(std::move(directory)), fetcher_(std::move(fetcher)), clock_(std::move(clock)) {
  // A folder left by an earlier build is closed to other users at once, not only once
  // the next icon is written.
  if (directory_) ::chmod(directory_->c_str(), 0700);
}

FaviconStore& FaviconStore::shared() {
  static FaviconStore store(defaultDirectory(processEnvironment()),
                            std::make_shared<CurlIconFetcher>());
  return store;
}

std::optional<fs::path> FaviconStore::defaultDirectory(const EnvironmentLookup& env) {
  const auto caches = Folders::caches(env);
  if (!caches) return std::nullopt;
  return *caches / "app.velto.mac" / "Favicons";
}

std::optional<std::string> FaviconStore::icon(std::string_view pageURL,
                                              const std::vector<std::string>& exclusions,
                                              bool allowNetwork) {
  const auto iconURL = FaviconPolicy::iconURL(pageURL, exclusions);
  if (!iconURL) return std::nullopt;
  std::shared_future<Answer> running;
  {
    std::lock_guard lock(mutex_);
    if (auto known = fromMemoryLocked(*iconURL)) return *known;
    if (const auto found = pending_.find(*iconURL); found != pending_.end())
      running = found->second;
  }
  if (running.valid()) return running.get();
  if (auto cached = fromDisk(*iconURL)) return *cached;
  if (!allowNetwork) return std::nullopt;

  std::promise<Answer> promise;
  uint64_t generation = 0;
  {
    std::lock_guard lock(mutex_);
    // Another caller may have finished or started this icon while the lock was free.
    if (auto known = fromMemoryLocked(*iconURL)) return *known;
    if (const auto found = pending_.find(*iconURL); found != pending_.end()) {
      running = found->second;
    } else {
      pending_.emplace(*iconURL, promise.get_future().share());
      generation = generation_;
    }
  }
  if (running.valid()) return running.get();

  Answer answer;
  try {
    answer = fromNetwork(*iconURL, exclusions);
  } catch (...) {
    // Waiting callers must get an answer whatever happened; a miss is retried later.
  }
  bool current;
  {
    std::lock_guard lock(mutex_);
    current = generation == generation_;
  }
  if (answer && current) writeToDisk(*iconURL, *answer);
  {
    std::lock_guard lock(mutex_);
    if (generation == generation_) {
      const double lifetime = answer ? kLifetimeSeconds : kMissLifetimeSeconds;
      rememberLocked(*iconURL, answer, addingSeconds(clock_(), lifetime));
      pending_.erase(*iconURL);
    }
  }
  promise.set_value(answer);
  return answer;
}

std::optional<FaviconStore::Answer> FaviconStore::fromMemoryLocked(const std::string& iconURL) {
  const auto found = memory_.find(iconURL);
  if (found == memory_.end()) return std::nullopt;
  if (found->second.expires > clock_()) return found->second.data;
  memory_.erase(found);
  return std::nullopt;
}

std::optional<FaviconStore::Answer> FaviconStore::fromDisk(const std::string& iconURL) {
  const auto file = cacheFile(iconURL);
  if (!file) return std::nullopt;
  const auto modified = modificationDate(*file);
  if (!modified || secondsBetween(*modified, clock_()) >= kLifetimeSeconds) return std::nullopt;
  const auto data = readPrefix(*file, IconImage::kMaxInputBytes);
  auto png = data ? IconImage::thumbnail(*data) : std::nullopt;
  if (!png) return std::nullopt;
  remember(iconURL, png, addingSeconds(*modified, kLifetimeSeconds));
  return png;
}

FaviconStore::Answer FaviconStore::fromNetwork(const std::string& iconURL,
                                               const std::vector<std::string>& exclusions) {
  for (const std::string& candidate : FaviconPolicy::candidates(iconURL, exclusions)) {
    FaviconRedirectGuard guard(exclusions);
    const IconDownload download = fetcher_->download(FaviconPolicy::request(candidate), guard);
    if (download.outcome != IconDownload::Outcome::response || download.status != 200) continue;
    if (auto png = IconImage::thumbnail(download.body)) return png;
  }
  return std::nullopt;
}

void FaviconStore::writeToDisk(const std::string& iconURL, const std::string& png) {
  const auto file = cacheFile(iconURL);
  if (!file || !makePrivateFolder(*directory_)) return;
  uint8_t suffix[8];
  if (!secureRandomBytes(suffix, sizeof suffix)) return;
  // Written beside its final name and renamed, so a reader never sees half a file.
  fs::path temporary = *file;
  temporary += ".tmp-" + hexLower(suffix, sizeof suffix);
  std::error_code error;
  if (!writeNewPrivateFile(temporary, png)) {
    fs::remove(temporary, error);
    return;
  }
  fs::rename(temporary, *file, error);
  if (error) fs::remove(temporary, error);
  pruneDisk();
}

void FaviconStore::remember(const std::string& iconURL, std::optional<std::string> data,
                            Date expires) {
  std::lock_guard lock(mutex_);
  rememberLocked(iconURL, std::move(data), expires);
}

void FaviconStore::rememberLocked(const std::string& iconURL, Answer data, Date expires) {
  if (!memory_.contains(iconURL) && memory_.size() >= kMaxMemoryEntries) {
    const Date now = clock_();
    std::erase_if(memory_, [&](const auto& entry) { return entry.second.expires <= now; });
    while (memory_.size() >= kMaxMemoryEntries) {
      memory_.erase(std::min_element(
          memory_.begin(), memory_.end(),
          [](const auto& a, const auto& b) { return a.second.expires < b.second.expires; }));
    }
  }
  memory_.insert_or_assign(iconURL, Entry{std::move(data), expires});
}

std::optional<fs::path> FaviconStore::cacheFile(std::string_view iconURL) const {
  if (!directory_) return std::nullopt;
  return *directory_ / (sha256Hex("favicon-v1:" + std::string(iconURL)) + ".png");
}

void FaviconStore::pruneDisk() {
  if (!directory_) return;
  std::vector<std::pair<Date, fs::path>> files;
  std::error_code error;
  for (fs::directory_iterator it(*directory_, error), end; !error && it != end;
       it.increment(error)) {
    std::error_code vanished;  // a file gone since the listing must not end the walk
    if (!it->is_regular_file(vanished)) continue;
    if (const auto modified = modificationDate(it->path()))
      files.emplace_back(*modified, it->path());
  }
  std::stable_sort(files.begin(), files.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  const Date now = clock_();
  for (size_t index = 0; index < files.size(); ++index) {
    if (index >= kMaxDiskFiles || secondsBetween(files[index].first, now) > kLifetimeSeconds) {
      fs::remove(files[index].second, error);
    } else {
      // Files written by earlier builds were readable by everyone.
      fs::permissions(files[index].second, fs::perms::owner_read | fs::perms::owner_write, error);
    }
  }
}

void FaviconStore::clear() {
  {
    std::lock_guard lock(mutex_);
    memory_.clear();
    pending_.clear();
    ++generation_;
  }
  if (!directory_) return;
  std::error_code error;
  for (fs::directory_iterator it(*directory_, error), end; !error && it != end;
       it.increment(error)) {
    std::error_code ignored;
    if (it->is_regular_file(ignored)) fs::remove(it->path(), ignored);
  }
}

}  // namespace velto
