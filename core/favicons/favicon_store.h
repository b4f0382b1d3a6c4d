#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/favicons/icon_fetcher.h"
#include "core/support/date.h"
#include "core/support/folders.h"

namespace velto {

// Fetches, shrinks and caches site icons, and always hands out a small PNG (at most 64
// pixels on its longer side). Answers from memory, then from the disk cache, then (when
// allowed) from the network, trying FaviconPolicy::candidates in order.
//
// Thread rules: every member may be called from any thread; one mutex guards the state,
// and it is never held across file or network work. Concurrent requests for one icon
// share one download.
class FaviconStore {
 public:
  static constexpr double kLifetimeSeconds = 604800;    // icons, in memory and on disk
  static constexpr double kMissLifetimeSeconds = 1800;  // remembered failures
  static constexpr size_t kMaxMemoryEntries = 256;
  static constexpr size_t kMaxDiskFiles = 256;

  using Clock = std::function<Date()>;

  // `directory` holds the disk cache (absent: no disk cache); it is created when first
  // written. The folder and its files are the user's alone (0700, 0600): an existing
  // folder is tightened here, files written by earlier builds when the disk is pruned. `fetcher` is
  // used for every download.
  FaviconStore(std::optional<std::filesystem::path> directory, std::shared_ptr<IconFetcher> fetcher,
               Clock clock = now);

  // The one store of the app: the platform's caches folder + "app.velto.mac/Favicons",
  // downloading with CurlIconFetcher.
  static FaviconStore& shared();
  static std::optional<std::filesystem::path> defaultDirectory(const EnvironmentLookup& env);

  // PNG bytes of the icon of `pageURL`, or absent when the page gets no icon, none was
  // found (remembered for half an hour) or, without `allowNetwork`, none is cached.
  std::optional<std::string> icon(std::string_view pageURL,
                                  const std::vector<std::string>& exclusions, bool allowNetwork);

  // Keeps `data` (absent: "no icon") for `iconURL` in memory until `expires`. A full
  // memory first drops its expired entries, then those that expire soonest.
  void remember(const std::string& iconURL, std::optional<std::string> data, Date expires);

  // The disk cache file for `iconURL` (absent without a disk cache).
  std::optional<std::filesystem::path> cacheFile(std::string_view iconURL) const;

  // Removes the disk files beyond the newest kMaxDiskFiles and those older than
  // kLifetimeSeconds (a file of exactly that age is no longer served, but still kept).
  void pruneDisk();

  // Forgets everything: memory, running downloads (their callers still get their
  // answer, which is then not kept) and the disk files.
  void clear();

 private:
  using Answer = std::optional<std::string>;
  struct Entry {
    Answer data;
    Date expires;
  };

  std::optional<Answer> fromMemoryLocked(const std::string& iconURL);
  std::optional<Answer> fromDisk(const std::string& iconURL);
  Answer fromNetwork(const std::string& iconURL, const std::vector<std::string>& exclusions);
  void writeToDisk(const std::string& iconURL, const std::string& png);
  void rememberLocked(const std::string& iconURL, Answer data, Date expires);

  const std::optional<std::filesystem::path> directory_;
  const std::shared_ptr<IconFetcher> fetcher_;
  const Clock clock_;

  std::mutex mutex_;
  std::map<std::string, Entry> memory_;
  std::map<std::string, std::shared_future<Answer>> pending_;
  uint64_t generation_ = 0;  // bumped by clear(); older downloads keep nothing
};

}  // namespace velto
