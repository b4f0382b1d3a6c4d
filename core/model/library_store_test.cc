#include "core/model/library_store.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <fstream>

#include "core/model/velto_error.h"
#include "core/support/testing/files.h"

namespace velto {
namespace {

namespace fs = std::filesystem;

using testing::readFile;

class LibraryStoreTest : public testing::TempDirTest {
 protected:
  static void write(const fs::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
  }
  static unsigned mode(const fs::path& path) {
    return static_cast<unsigned>(fs::status(path).permissions());
  }
  static LibraryState oneTab(std::string title) {
    LibraryState state;
    state.tabs.emplace_back().title = std::move(title);
    return state;
  }
  // 1 after a save: library.json and no leftover temporary file.
  static long entries(const fs::path& folder) {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
  }
};

TEST_F(LibraryStoreTest, MissingFileLoadsTheFreshLibraryAndCreatesNothing) {
  const LibraryStore store(root_ / "Velto");
  EXPECT_EQ(store.fileURL(), root_ / "Velto" / "library.json");
  EXPECT_EQ(*store.load(), LibraryState{});
  EXPECT_TRUE(fs::is_empty(root_));
}

TEST_F(LibraryStoreTest, DefaultLocationIsVeltoInApplicationSupportAndNeedsAHome) {
  const EnvironmentLookup home = [](std::string_view name) {
    return name == "HOME" ? std::optional<std::string>("/h") : std::nullopt;
  };
  EXPECT_EQ(LibraryStore::atDefaultLocation(home)->directory(),
            *Folders::applicationSupport(home) / "Velto");
  const EnvironmentLookup nothing = [](std::string_view) { return std::nullopt; };
  EXPECT_EQ(LibraryStore::atDefaultLocation(nothing).error().domain, Error::Domain::platform);
}

TEST_F(LibraryStoreTest, FailedLoadsSayWhyAndLeaveTheFileAlone) {
  const LibraryStore store(root_);
  for (int64_t version : {2, 0, -1}) {  // not only newer ones
    LibraryState other;
    other.version = version;
    write(store.fileURL(), encodeLibrary(other));
    EXPECT_EQ(store.load().error(), VeltoError::newerLibrary()) << version;
    EXPECT_EQ(readFile(store.fileURL()), encodeLibrary(other));
  }
  write(store.fileURL(), "{\"version\": 1, \"tabs\": []}");
  EXPECT_EQ(store.load().error().domain, Error::Domain::decoding);

  fs::remove(store.fileURL());
  fs::create_directory(store.fileURL());
  const Error unreadable = store.load().error();
  EXPECT_EQ(unreadable.domain, Error::Domain::file);
  EXPECT_NE(unreadable.message.find(store.fileURL().string()), std::string::npos);
}

TEST_F(LibraryStoreTest, SaveTightensModesAndRoundTripsToTheSecond) {
  const LibraryStore store(root_ / "a" / "Velto");
  LibraryState state = oneTab("\u00DCn\u00EFc\u00F8d\u00E9");
  state.liveUpdatedAt = dateFromUTC(2026, 1, 31) + std::chrono::microseconds(999'999);
  ASSERT_TRUE(store.save(state).ok());
  EXPECT_EQ(mode(root_ / "a"), 0700u);
  state.liveUpdatedAt = dateFromUTC(2026, 1, 31);
  LibraryDecoder decoder;
  EXPECT_EQ(*store.load(decoder), state);

  fs::permissions(store.directory(), fs::perms(0755));
  fs::permissions(store.fileURL(), fs::perms(0644));
  ASSERT_TRUE(store.save(state).ok());
  EXPECT_EQ(mode(store.directory()), 0700u);
  EXPECT_EQ(mode(store.fileURL()), 0600u);
  EXPECT_EQ(entries(store.directory()), 1);
}

TEST_F(LibraryStoreTest, FailedSaveLeavesTheOldFileAndNoTemporary) {
  const LibraryStore store(root_);
  ASSERT_TRUE(store.save(oneTab("old")).ok());
  const std::string old = readFile(store.fileURL());

  // Tests run as root, so permissions cannot make a write fail; a file size limit can,
  // halfway through the new document.
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit saved{};
  ::getrlimit(RLIMIT_FSIZE, &saved);
  rlimit limited = saved;
  limited.rlim_cur = old.size() + 100;
  ::setrlimit(RLIMIT_FSIZE, &limited);
  const Result<void> tooBig = store.save(oneTab(std::string(10000, 'x')));
  ::setrlimit(RLIMIT_FSIZE, &saved);
  ASSERT_FALSE(tooBig.ok());
  EXPECT_EQ(tooBig.error().domain, Error::Domain::file);
  EXPECT_NE(tooBig.error().message.find("File too large"), std::string::npos);
  EXPECT_EQ(readFile(store.fileURL()), old);
  EXPECT_EQ(entries(store.directory()), 1);

  // A regular file where a parent folder should be.
  write(root_ / "plain", "x");
  const Result<void> refused = LibraryStore(root_ / "plain" / "Velto").save(LibraryState{});
  ASSERT_FALSE(refused.ok());
  EXPECT_NE(refused.error().message.find("Not a directory"), std::string::npos);
  EXPECT_EQ(readFile(root_ / "plain"), "x");
}

TEST_F(LibraryStoreTest, SaveRemovesOnlyTemporariesThatACrashLeftBehind) {
  const LibraryStore store(root_);
  const auto aged = [&](const std::string& name, std::chrono::seconds age) {
    write(root_ / name, "x");
    fs::last_write_time(root_ / name, fs::file_time_type::clock::now() - age);
  };
  aged(".library.json.Ab12Cd", std::chrono::seconds(120));  // a crashed save
  aged(".library.json.Ef34Gh", std::chrono::seconds(5));    // maybe a save in progress
  aged(".library.json.lock", std::chrono::seconds(120));    // the writers' lock
  aged("notes.txt", std::chrono::seconds(120));
  fs::create_directory(root_ / ".library.json.folder");
  fs::last_write_time(root_ / ".library.json.folder",
                      fs::file_time_type::clock::now() - std::chrono::seconds(120));
  ASSERT_TRUE(store.save(LibraryState{}).ok());
  EXPECT_FALSE(fs::exists(root_ / ".library.json.Ab12Cd"));
  for (const char* kept : {".library.json.Ef34Gh", ".library.json.lock", "notes.txt",
                           ".library.json.folder", "library.json"}) {
    EXPECT_TRUE(fs::exists(root_ / kept)) << kept;
  }
}

}  // namespace
}  // namespace velto
