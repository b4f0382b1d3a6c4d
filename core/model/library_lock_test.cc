#include "core/model/library_lock.h"

#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>

#include "core/support/testing/files.h"

namespace velto {
namespace {

namespace fs = std::filesystem;

class LibraryLockTest : public testing::TempDirTest {
 protected:
  // Adds one saved tab titled `title`.
  Result<void> addTab(const std::string& title) {
    return updateLibrary(store_, [&](LibraryState& state) {
      state.tabs.emplace_back().title = title;
      return true;
    });
  }

  LibraryStore store_{root_ / "new" / "Velto"};
};

TEST_F(LibraryLockTest, ConcurrentWritersKeepEveryChange) {
  constexpr int kWriters = 8, kChanges = 15;
  std::vector<std::thread> writers;
  std::atomic<int> failures = 0;
  for (int w = 0; w < kWriters; ++w) {
    writers.emplace_back([&, w] {
      for (int i = 0; i < kChanges; ++i) {
        if (!addTab(std::to_string(w) + "." + std::to_string(i)).ok()) ++failures;
      }
    });
  }
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(store_.load()->tabs.size(), size_t{kWriters * kChanges});
  const fs::path lock = store_.directory() / kLibraryLockFileName;
  EXPECT_EQ(static_cast<unsigned>(fs::status(lock).permissions()), 0600u);
  EXPECT_EQ(static_cast<unsigned>(fs::status(store_.directory()).permissions()), 0700u);
}

TEST_F(LibraryLockTest, AWriterWaitsForTheHolderAndThenSeesItsChange) {
  store_ = LibraryStore(root_ / "Velto");
  std::atomic<bool> done = false;
  std::thread waiting;
  {
    Result<LibraryLock> held = LibraryLock::acquire(store_);
    ASSERT_TRUE(held.ok()) << held.error().message;
    waiting = std::thread([&] {
      EXPECT_TRUE(addTab("second").ok());
      done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(done);
    // The holder's own change, saved while the other writer waits.
    LibraryState state;
    state.tabs.emplace_back().title = "first";
    ASSERT_TRUE(store_.save(state).ok());
  }
  waiting.join();
  const LibraryState state = *store_.load();
  ASSERT_EQ(state.tabs.size(), 2u);
  EXPECT_EQ(state.tabs[0].title, "first");
  EXPECT_EQ(state.tabs[1].title, "second");
}

TEST_F(LibraryLockTest, AnUnreadableLibraryIsNeverOverwritten) {
  store_ = LibraryStore(root_);
  for (const std::string bad : {"{\"version\": 1",
                                "{\"version\": 2, \"tabs\": [], \"liveTabs\": "
                                "[], \"preferences\": {}, \"clients\": []}"}) {
    std::ofstream(store_.fileURL()) << bad;
    bool called = false;
    const Result<void> result = updateLibrary(store_, [&](LibraryState&) {
      called = true;
      return true;
    });
    EXPECT_FALSE(result.ok());
    EXPECT_FALSE(called);
    EXPECT_EQ(testing::readFile(store_.fileURL()), bad);
  }
}

TEST_F(LibraryLockTest, AChangeThatDeclinesWritesNothing) {
  store_ = LibraryStore(root_);
  EXPECT_TRUE(updateLibrary(store_, [](LibraryState& state) {
                state.tabs.emplace_back();
                return false;
              }).ok());
  EXPECT_FALSE(fs::exists(store_.fileURL()));
}

TEST_F(LibraryLockTest, TheLockIsNotInheritedByStartedPrograms) {
  store_ = LibraryStore(root_);
  Result<LibraryLock> held = LibraryLock::acquire(store_);
  ASSERT_TRUE(held.ok());
  // A child that would inherit the open lock file would keep every writer waiting after
  // this process let go.
  const std::string probe = "ls -l /proc/$$/fd | grep -c " + std::string(kLibraryLockFileName);
  std::FILE* pipe = ::popen(probe.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  char count[16] = {};
  ASSERT_NE(std::fgets(count, sizeof count, pipe), nullptr);
  ::pclose(pipe);
  EXPECT_EQ(std::string(count), "0\n");
}

}  // namespace
}  // namespace velto
