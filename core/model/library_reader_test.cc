#include "core/model/library_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "core/model/velto_error.h"

namespace velto {
namespace {

namespace fs = std::filesystem;

class LibraryReaderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/velto-reader-XXXXXX";
    ASSERT_NE(::mkdtemp(name), nullptr);
    root_ = name;
  }
  void TearDown() override { fs::remove_all(root_); }

  // Overwrites the file in place, keeping its modification time.
  void write(const std::string& bytes) {
    std::error_code absent;
    const auto time = fs::last_write_time(store().fileURL(), absent);
    std::ofstream(store().fileURL(), std::ios::binary | std::ios::trunc) << bytes;
    if (!absent) fs::last_write_time(store().fileURL(), time);
  }

  // What a reader that never loaded before answers: LibraryStore::load.
  void expectAsFresh(const Result<const PreparedLibrary*>& loaded) {
    const Result<LibraryState> fresh = store().load();
    ASSERT_EQ(loaded.ok(), fresh.ok());
    if (!fresh.ok()) {
      EXPECT_EQ(loaded.error(), fresh.error());
      return;
    }
    EXPECT_EQ((*loaded)->state, *fresh);
    EXPECT_EQ((*loaded)->closedTabs.size(),
              static_cast<size_t>(std::count_if(
                  fresh->tabs.begin(), fresh->tabs.end(),
                  [](const SavedTab& tab) { return tab.state == ArchiveState::closed; })));
  }

  static std::string library(std::string_view title, std::string_view state = "closed",
                             int version = 1) {
    LibraryState library;
    library.version = version;
    SavedTab& tab = library.tabs.emplace_back();
    tab.title = title;
    tab.url = "https://example.org/";
    tab.state = *archiveStateFromRawValue(state);
    return encodeLibrary(library);
  }

  LibraryStore store() const { return LibraryStore(root_); }

  fs::path root_;
  LibraryReader reader_;
};

TEST_F(LibraryReaderTest, EveryLoadAnswersAsTheFileIsNow) {
  expectAsFresh(reader_.load(store()));  // no file: the fresh library
  EXPECT_TRUE(reader_.load(store()).value()->state.tabs.empty());

  write(library("one"));
  expectAsFresh(reader_.load(store()));
  expectAsFresh(reader_.load(store()));  // the same bytes again

  // Same size, same time, one letter different.
  write(library("two"));
  expectAsFresh(reader_.load(store()));
  EXPECT_EQ(reader_.load(store()).value()->state.tabs[0].title, "two");
  write(library("one", "saved"));
  expectAsFresh(reader_.load(store()));
  EXPECT_EQ(reader_.load(store()).value()->closedTabs.size(), 0u);

  // A failure, then the bytes decoded before it: decoded again, not half-read records.
  const std::string good = library("one");
  write(good.substr(0, good.size() - 10));
  expectAsFresh(reader_.load(store()));
  std::string lateDamage = library("three");
  lateDamage.replace(lateDamage.rfind("\"url\""), 5, "\"url\": 5, \"x\"");
  write(lateDamage);
  EXPECT_FALSE(reader_.load(store()).ok());
  write(good);
  expectAsFresh(reader_.load(store()));

  write(library("one", "closed", 2));
  EXPECT_EQ(reader_.load(store()).error(), VeltoError::newerLibrary());
  write(good);
  expectAsFresh(reader_.load(store()));

  fs::remove(store().fileURL());
  expectAsFresh(reader_.load(store()));
  fs::create_directory(store().fileURL());  // unreadable as a file
  expectAsFresh(reader_.load(store()));
}

}  // namespace
}  // namespace velto
