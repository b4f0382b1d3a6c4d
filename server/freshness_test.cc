// One long session of the real VeltoMCP while the library changes under it: every answer
// must be the one a fresh process gives for the same request, however the file changed
// (same size and same times included) and whatever failed before.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "core/mcp/client_authorization.h"
#include "server/testing/server_harness.h"

namespace velto::testing {
namespace {

namespace fs = std::filesystem;

const std::string kHandshake =
    R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25","clientInfo":{}}})"
    "\n"
    R"({"jsonrpc":"2.0","method":"notifications/initialized"})"
    "\n";
const std::vector<std::string> kRequests = {
    R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"search_closed_tabs","arguments":{"query":""}}})",
    R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"search_closed_tabs","arguments":{"query":"PULL github"}}})",
    R"({"jsonrpc":"2.0","id":3,"method":"tools/call","params":{"name":"list_tabs","arguments":{}}})",
    R"({"jsonrpc":"2.0","id":4,"method":"tools/call","params":{"name":"reopen_tab","arguments":{"id":"5A7ED000-0000-4000-8000-000000000005"}}})",
};

// Rewrites the file in place (same inode) and puts its access and modification times
// back, so that nothing but the content (and, if it changed, the size) tells the new
// document from the old one.
void rewriteKeepingTimes(const fs::path& file, const std::string& text) {
  struct stat before {};
  ASSERT_EQ(::stat(file.c_str(), &before), 0);
  const int fd = ::open(file.c_str(), O_WRONLY | O_TRUNC);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  ASSERT_EQ(::close(fd), 0);
  const struct timespec times[2] = {before.st_atim, before.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  struct stat after {};
  ASSERT_EQ(::stat(file.c_str(), &after), 0);
  ASSERT_EQ(static_cast<size_t>(after.st_size), text.size());
  ASSERT_EQ(after.st_ino, before.st_ino);
  ASSERT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
  ASSERT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

void replaceOnce(std::string& text, std::string_view from, std::string_view to) {
  const size_t at = text.find(from);
  ASSERT_NE(at, std::string::npos) << from;
  text.replace(at, from.size(), to);
}

class FreshnessTest : public ::testing::Test {
 protected:
  FreshnessTest() : original(harness.sampleLibraryText()), session(harness) {
    EXPECT_NE(session.ask(kHandshake).find("\"protocolVersion\""), std::string::npos);
  }

  // Every request of the long session against the same request in a fresh process.
  void expectFreshAnswers(const std::string& situation) {
    SCOPED_TRACE(situation);
    for (const std::string& request : kRequests) {
      const std::string fresh = harness.run(kHandshake + request + "\n").standardOutput;
      const std::string expected = fresh.substr(fresh.rfind('\n', fresh.size() - 2) + 1);
      EXPECT_EQ(session.ask(request + "\n"), expected) << request;
    }
  }

  ServerHarness harness;
  const std::string original;
  ServerSession session;
};

TEST_F(FreshnessTest, ASameSizeRewriteWithTheSameTimesIsSeen) {
  expectFreshAnswers("as first written");
  const std::string firstAnswer = session.ask(kRequests[1] + "\n");

  std::string renamed = original;
  replaceOnce(renamed, "pull request #42", "pull request #43");
  rewriteKeepingTimes(harness.libraryFile, renamed);
  EXPECT_NE(session.ask(kRequests[1] + "\n"), firstAnswer);
  expectFreshAnswers("a title changed in place");

  // The closed tab found above becomes a saved one: same size, no longer found.
  std::string saved = renamed;
  replaceOnce(saved, R"("state": "closed", "isFavorite": false, "savedAt": "2026-01-10)",
              R"("state": "saved" , "isFavorite": false, "savedAt": "2026-01-10)");
  rewriteKeepingTimes(harness.libraryFile, saved);
  expectFreshAnswers("a tab's state changed in place");

  rewriteKeepingTimes(harness.libraryFile, original);
  EXPECT_EQ(session.ask(kRequests[1] + "\n"), firstAnswer);
}

TEST_F(FreshnessTest, EveryFailureAnswersAsAFreshProcessAndLeavesNothingBehind) {
  expectFreshAnswers("as first written");

  LibraryState withoutGrant = harness.sampleLibrary();
  std::erase_if(withoutGrant.clients,
                [](const ClientGrant& grant) { return grant.id == *Uuid::parse(kOpenerID); });
  harness.saveLibrary(withoutGrant);
  expectFreshAnswers("the session's grant removed");

  harness.saveLibrary(harness.sampleLibrary());
  expectFreshAnswers("the grant back");

  rewriteKeepingTimes(harness.libraryFile, original.substr(0, original.size() / 2));
  expectFreshAnswers("broken JSON");

  // Valid JSON whose last tab has a bad date: decoding fails after most records were
  // read over; the same bytes as before the failure must not be taken for decoded.
  std::string lateDamage = original;
  const size_t lastDate = lateDamage.rfind("T08:00:00Z");
  ASSERT_NE(lastDate, std::string::npos);
  lateDamage.replace(lastDate, 10, "T08:00:00X");
  harness.saveLibrary(harness.sampleLibrary());
  expectFreshAnswers("back after broken JSON");
  rewriteKeepingTimes(harness.libraryFile, lateDamage);
  expectFreshAnswers("damaged at the end");
  rewriteKeepingTimes(harness.libraryFile, original);
  expectFreshAnswers("back after late damage");

  fs::remove(harness.libraryFile);
  expectFreshAnswers("the file deleted");

  LibraryState newer = harness.sampleLibrary();
  newer.version = 2;
  harness.saveLibrary(newer);
  expectFreshAnswers("a version 2 file");

  std::ofstream(harness.libraryFile, std::ios::trunc) << original;
  expectFreshAnswers("written again");
}

}  // namespace
}  // namespace velto::testing
