#include "core/favicons/favicon_store.h"

#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "core/favicons/icon_image.h"
#include "core/favicons/testing/https_test_server.h"
#include "core/support/testing/files.h"

namespace velto {
namespace {

namespace fs = std::filesystem;

const std::string kPage = "https://site.velto-test.net/articles/1";
const std::string kIcon = "https://site.velto-test.net/favicon.ico";
const std::string kTouchIcon = "https://site.velto-test.net/apple-touch-icon.png";
const std::string kOtherIcon = "https://other.velto-test.net/favicon.ico";

std::string pngOfSide(uint32_t side) {
  return *IconImage::encodePng({side, side, std::vector<uint8_t>(size_t{side} * side * 4, 200)});
}

std::optional<uint32_t> sideOf(const std::optional<std::string>& png) {
  const auto image = png ? IconImage::decodePng(*png) : std::nullopt;
  return image ? std::optional(image->width) : std::nullopt;
}

class FaviconStoreTest : public testing::TempDirTest {
 protected:
  std::unique_ptr<FaviconStore> makeStore(std::optional<fs::path> directory) {
    auto fetcher = std::make_shared<CurlIconFetcher>(CurlIconFetcher::TestRouting{
        server.port(), {"site.velto-test.net", "other.velto-test.net"}, server.caFile()});
    return std::make_unique<FaviconStore>(std::move(directory), fetcher, [this] { return clock; });
  }
  void passSeconds(double seconds) { clock = addingSeconds(clock, seconds); }
  void writeCacheFile(const std::string& iconURL, double ageSeconds) {
    const fs::path file = *store->cacheFile(iconURL);
    std::ofstream(file, std::ios::binary) << pngOfSide(16);
    fs::last_write_time(file, std::chrono::file_clock::from_sys(addingSeconds(clock, -ageSeconds)));
  }

  HttpsTestServer server{{"site.velto-test.net", "other.velto-test.net"}};
  const fs::path folder = root_;
  Date clock = now();
  std::unique_ptr<FaviconStore> store = makeStore(folder);
};

TEST_F(FaviconStoreTest, ServesFromNetworkThenMemoryThenDiskUntilCleared) {
  server.script(kIcon, {.body = pngOfSide(128)});
  EXPECT_EQ(sideOf(store->icon(kPage, {}, true)), 64u);
  EXPECT_EQ(sideOf(store->icon("https://SITE.velto-test.net./other", {}, true)), 64u);
  EXPECT_EQ(server.requests(kIcon), 1);
  // SHA-256 of "favicon-v1:" + the icon address, so the app and older builds share files.
  EXPECT_EQ(store->cacheFile(kIcon),
            folder / "32fb9f629e231459c5f149d901b8a9fc13b3cde773ee0a28695cb22930672470.png");
  const auto restarted = makeStore(folder);
  EXPECT_EQ(sideOf(restarted->icon(kPage, {}, false)), 64u);
  EXPECT_EQ(server.requests(kIcon), 1);

  restarted->clear();
  EXPECT_TRUE(fs::is_empty(folder));
  EXPECT_FALSE(restarted->icon(kPage, {}, false));
}

TEST_F(FaviconStoreTest, TriesTheNextCandidateAfterAFailure) {
  using Response = HttpsTestServer::Response;
  for (const Response& first :
       {Response{.status = 404}, Response{.body = "<html>not an image</html>"},
        Response{.status = 500, .body = pngOfSide(16)}}) {
    store->clear();
    server.script(kIcon, first);
    server.script(kTouchIcon, {.body = pngOfSide(180)});
    EXPECT_EQ(sideOf(store->icon(kPage, {}, true)), 64u);
  }
  EXPECT_EQ(std::pair(server.requests(kIcon), server.requests(kTouchIcon)), std::pair(3, 3));
}

TEST_F(FaviconStoreTest, RemembersAMissForHalfAnHourAndAsksNothingItMayNot) {
  server.script(kOtherIcon, {.body = pngOfSide(16)});
  EXPECT_FALSE(store->icon(kPage, {}, true));
  passSeconds(1799);
  EXPECT_FALSE(store->icon(kPage, {}, true));
  EXPECT_EQ(std::pair(server.requests(kIcon), server.requests(kTouchIcon)), std::pair(1, 1));
  passSeconds(1);
  server.script(kIcon, {.body = pngOfSide(32)});
  EXPECT_EQ(sideOf(store->icon(kPage, {}, true)), 32u);

  EXPECT_FALSE(store->icon("https://other.velto-test.net/", {"velto-test.net"}, true));
  EXPECT_FALSE(store->icon("https://other.velto-test.net/", {}, false));
  EXPECT_EQ(server.requests(kOtherIcon), 0);
}

TEST_F(FaviconStoreTest, DiskEntriesServeUnderSevenDaysAndPruningKeepsThe256Newest) {
  writeCacheFile(kIcon, 6 * 86400);
  writeCacheFile(kOtherIcon, 7 * 86400);
  EXPECT_EQ(sideOf(store->icon(kPage, {}, false)), 16u);
  EXPECT_FALSE(store->icon("https://other.velto-test.net/", {}, false));
  store->pruneDisk();
  EXPECT_TRUE(fs::exists(*store->cacheFile(kOtherIcon)));  // no longer served, not yet older
  passSeconds(1);
  store->pruneDisk();
  EXPECT_FALSE(fs::exists(*store->cacheFile(kOtherIcon)));
  // The memory entry made from the disk file expires with the file.
  passSeconds(86400);
  EXPECT_FALSE(store->icon(kPage, {}, false));

  const auto icon = [](int i) {
    return "https://h" + std::to_string(i) + ".velto-test.net/favicon.ico";
  };
  for (int i = 0; i < 260; ++i) writeCacheFile(icon(i), 260 - i);
  store->pruneDisk();
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 256);
  EXPECT_FALSE(fs::exists(*store->cacheFile(icon(3))));
  EXPECT_TRUE(fs::exists(*store->cacheFile(icon(4))));
}

// Cache file names are hashes of addresses anyone can compute: other users must not be
// able to list the folder or read its files, nor those written by earlier builds.
TEST_F(FaviconStoreTest, CacheFolderAndFilesAreTheUsersAlone) {
  const auto mode = [](const fs::path& path) { return fs::status(path).permissions(); };
  const fs::perms folderMode = fs::perms::owner_all,
                  fileMode = fs::perms::owner_read | fs::perms::owner_write;
  fs::permissions(folder, fs::perms::owner_all | fs::perms::group_read | fs::perms::others_read |
                              fs::perms::group_exec | fs::perms::others_exec);
  writeCacheFile(kOtherIcon, 60);
  fs::permissions(*store->cacheFile(kOtherIcon), fileMode | fs::perms::others_read);
  makeStore(folder);  // opening the cache closes the folder
  EXPECT_EQ(mode(folder), folderMode);
  fs::permissions(folder, fs::perms::others_read | fs::perms::others_exec, fs::perm_options::add);
  server.script(kIcon, {.body = pngOfSide(16)});
  ASSERT_TRUE(store->icon(kPage, {}, true));
  EXPECT_EQ(mode(folder), folderMode);
  EXPECT_EQ(mode(*store->cacheFile(kIcon)), fileMode);
  EXPECT_EQ(mode(*store->cacheFile(kOtherIcon)), fileMode);

  const fs::path nested = folder / "app" / "Favicons";
  const auto fresh = makeStore(nested);
  ASSERT_TRUE(fresh->icon("https://site.velto-test.net/b", {}, true));
  EXPECT_EQ(mode(folder / "app"), folderMode);
  EXPECT_EQ(mode(nested), folderMode);
  EXPECT_EQ(mode(*fresh->cacheFile(kIcon)), fileMode);
}

TEST_F(FaviconStoreTest, ConcurrentRequestsShareOneDownload) {
  server.script(kIcon, {.body = pngOfSide(48), .delay = std::chrono::milliseconds(300)});
  std::vector<std::optional<std::string>> answers(20);
  std::vector<std::thread> threads;
  for (auto& answer : answers) threads.emplace_back([&] { answer = store->icon(kPage, {}, true); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(server.requests(kIcon), 1);
  for (const auto& answer : answers) EXPECT_EQ(sideOf(answer), 48u);
}

TEST_F(FaviconStoreTest, MemoryDropsExpiredEntriesFirstThenTheSoonestToExpire) {
  const auto memoryOnly = makeStore(std::nullopt);
  const auto page = [](int i) { return "https://h" + std::to_string(i) + ".velto-test.net/"; };
  const auto known = [&](int i) { return memoryOnly->icon(page(i), {}, false).has_value(); };
  for (int i = 0; i < 256; ++i) {
    memoryOnly->remember(page(i) + "favicon.ico", "png",
                         addingSeconds(clock, i == 7 ? -1 : 1000 + i));
  }
  memoryOnly->remember(page(256) + "favicon.ico", "new", addingSeconds(clock, 10));
  EXPECT_TRUE(known(0) && known(256));  // the expired entry made room
  memoryOnly->remember(page(257) + "favicon.ico", "newer", addingSeconds(clock, 5000));
  EXPECT_FALSE(known(256));  // the soonest to expire
  EXPECT_TRUE(known(0) && known(255) && known(257));
}

}  // namespace
}  // namespace velto
