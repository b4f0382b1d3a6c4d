#include "core/model/library_store.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <iterator>
#include <thread>

#include "core/model/velto_error.h"

namespace velto {
namespace {

namespace fs = std::filesystem;

class LibraryStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/velto-store-XXXXXX";
    ASSERT_NE(::mkdtemp(name), nullptr);
    root_ = name;
  }
  void TearDown() override { fs::remove_all(root_); }

  static std::string contents(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static void write(const fs::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
  }
  static mode_t mode(const fs::path& path) {
    struct stat status {};
    ::stat(path.c_str(), &status);
    return status.st_mode & 07777;
  }
  static LibraryState libraryWithTabs(size_t count, const std::string& title) {
    LibraryState state;
    for (size_t i = 0; i < count; ++i) {
      SavedTab tab;
      tab.id.bytes[15] = static_cast<uint8_t>(i);
      tab.title = title;
      tab.url = "https://example.com/" + std::to_string(i);
      tab.savedAt = dateFromUTC(2026, 1, 31, 8, 15, 0);
      state.tabs.push_back(tab);
    }
    return state;
  }
  // How many entries the folder holds: 1 means library.json and no leftover temporary.
  static long entries(const fs::path& folder) {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
  }

  fs::path root_;
};

TEST_F(LibraryStoreTest, MissingFileLoadsTheFreshLibraryAndCreatesNothing) {
  const LibraryStore store(root_ / "Velto");
  EXPECT_EQ(store.fileURL(), root_ / "Velto" / "library.json");
  EXPECT_EQ(*store.load(), LibraryState{});
  EXPECT_FALSE(fs::exists(store.directory()));
  EXPECT_TRUE(fs::is_empty(root_));
}

TEST_F(LibraryStoreTest, DefaultLocationFollowsTheApplicationSupportFolder) {
  const auto env = [](std::string_view name) -> std::optional<std::string> {
    if (name == "HOME") return "/home/ada";
    return std::nullopt;
  };
  const Result<LibraryStore> store = LibraryStore::atDefaultLocation(env);
  ASSERT_TRUE(store.ok());
  EXPECT_EQ(store->directory(), *Folders::applicationSupport(env) / "Velto");
  EXPECT_FALSE(LibraryStore::atDefaultLocation([](std::string_view) {
                 return std::optional<std::string>();
               }).ok());
}

TEST_F(LibraryStoreTest, OnlyVersionOneLoads) {
  const LibraryStore store(root_);
  for (const char* version : {"2", "0", "-1", "1.0"}) {
    std::string text = encodeLibrary(LibraryState{});
    text.replace(text.find("\"version\": 1"), 12, std::string("\"version\": ") + version);
    write(store.fileURL(), text);
    const Result<LibraryState> loaded = store.load();
    if (std::string_view(version) == "1.0") {
      EXPECT_TRUE(loaded.ok());
    } else {
      ASSERT_FALSE(loaded.ok()) << version;
      EXPECT_EQ(loaded.error(), VeltoError::newerLibrary());
      EXPECT_EQ(contents(store.fileURL()), text);  // left untouched
    }
  }
}

TEST_F(LibraryStoreTest, UnreadableOrDamagedFilesFailWithTheirKind) {
  const LibraryStore store(root_);
  fs::create_directory(store.fileURL());
  const Result<LibraryState> directory = store.load();
  ASSERT_FALSE(directory.ok());
  EXPECT_EQ(directory.error().domain, Error::Domain::file);
  EXPECT_NE(directory.error().message.find(store.fileURL().string()), std::string::npos);

  fs::remove(store.fileURL());
  write(store.fileURL(), "{\"version\": 1, \"tabs\": []}");
  EXPECT_EQ(store.load().error().domain, Error::Domain::decoding);
}

TEST_F(LibraryStoreTest, SaveTightensModesAndRoundTrips) {
  const LibraryStore store(root_ / "a" / "b" / "Velto");
  LibraryState state = libraryWithTabs(3, "Ünïcødé");
  state.liveUpdatedAt = dateFromUTC(2026, 1, 31) + std::chrono::microseconds(999'999);
  ASSERT_TRUE(store.save(state).ok());
  EXPECT_EQ(mode(store.directory()), 0700u);
  EXPECT_EQ(mode(root_ / "a"), 0700u);
  EXPECT_EQ(mode(store.fileURL()), 0600u);
  LibraryDecoder decoder;
  const Result<LibraryState> loaded = store.load(decoder);
  state.liveUpdatedAt = dateFromUTC(2026, 1, 31);
  EXPECT_EQ(*loaded, state);

  ::chmod(store.directory().c_str(), 0755);
  ::chmod(store.fileURL().c_str(), 0644);
  ASSERT_TRUE(store.save(state).ok());
  EXPECT_EQ(mode(store.directory()), 0700u);
  EXPECT_EQ(mode(store.fileURL()), 0600u);
  EXPECT_EQ(entries(store.directory()), 1);
}

TEST_F(LibraryStoreTest, FailedSaveLeavesTheOldFileAndNoTemporary) {
  const LibraryStore store(root_);
  ASSERT_TRUE(store.save(libraryWithTabs(1, "old")).ok());
  const std::string old = contents(store.fileURL());

  // Tests run as root, so permissions cannot make a write fail; a file size limit can,
  // halfway through the new document.
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit saved{};
  ::getrlimit(RLIMIT_FSIZE, &saved);
  rlimit limited = saved;
  limited.rlim_cur = old.size() + 100;
  ::setrlimit(RLIMIT_FSIZE, &limited);
  const Result<void> tooBig = store.save(libraryWithTabs(50, std::string(200, 'x')));
  ::setrlimit(RLIMIT_FSIZE, &saved);
  ASSERT_FALSE(tooBig.ok());
  EXPECT_EQ(tooBig.error().domain, Error::Domain::file);
  EXPECT_NE(tooBig.error().message.find("File too large"), std::string::npos);
  EXPECT_EQ(contents(store.fileURL()), old);
  EXPECT_EQ(entries(store.directory()), 1);

  // A regular file where a parent folder should be.
  write(root_ / "plain", "x");
  const LibraryStore blocked(root_ / "plain" / "Velto");
  const Result<void> refused = blocked.save(LibraryState{});
  ASSERT_FALSE(refused.ok());
  EXPECT_NE(refused.error().message.find("Not a directory"), std::string::npos);
  EXPECT_EQ(contents(root_ / "plain"), "x");
}

TEST_F(LibraryStoreTest, ConcurrentReaderSeesOnlyWholeDocuments) {
  const LibraryStore store(root_);
  const LibraryState small = libraryWithTabs(2, "small");
  const LibraryState large = libraryWithTabs(400, std::string(100, 'L'));
  ASSERT_TRUE(store.save(small).ok());
  std::atomic<bool> done{false};
  std::atomic<int> loads{0};
  std::thread reader([&] {
    LibraryDecoder decoder;
    while (!done) {
      const Result<LibraryState> loaded = store.load(decoder);
      ASSERT_TRUE(loaded.ok()) << loaded.error().message;
      ASSERT_TRUE(*loaded == small || *loaded == large);
      ++loads;
    }
  });
  // Each save waits for two fsyncs, so a few of them already give the reader plenty of turns.
  for (int i = 0; i < 12; ++i) {
    ASSERT_TRUE(store.save(i % 2 ? small : large).ok());
  }
  done = true;
  reader.join();
  EXPECT_GT(loads, 0);
}

}  // namespace
}  // namespace velto
