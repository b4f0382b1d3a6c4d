// Whole sessions against the real binary: each server/transcripts/*.jsonl file holds the
// lines sent ("> ") and the exact lines expected back ("< "), in order; a request that
// must get no answer simply has no "< " line. "#" starts a comment. In expected lines,
// $LIVE_UPDATED_AT stands for the time the sample library's open tabs were observed.

#include <gtest/gtest.h>

#include <fstream>

#include "server/testing/server_harness.h"

namespace velto::testing {
namespace {

struct Transcript {
  const char* file;
  const char* clientID;
  const char* token;

  friend void PrintTo(const Transcript& transcript, std::ostream* out) { *out << transcript.file; }
};

struct Session {
  std::string input;
  std::string expected;
};

Session readTranscript(const std::string& path, const std::string& liveUpdatedAt) {
  std::ifstream file(path);
  EXPECT_TRUE(file) << path;
  Session session;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(">")) {
      session.input += line.substr(std::min<size_t>(2, line.size())) + "\n";
    } else if (line.starts_with("<")) {
      std::string expected = line.substr(std::min<size_t>(2, line.size()));
      for (size_t at; (at = expected.find("$LIVE_UPDATED_AT")) != std::string::npos;) {
        expected.replace(at, 16, liveUpdatedAt);
      }
      session.expected += expected + "\n";
    } else {
      EXPECT_TRUE(line.empty() || line.starts_with("#")) << path << ": " << line;
    }
  }
  return session;
}

class TranscriptTest : public ::testing::TestWithParam<Transcript> {};

TEST_P(TranscriptTest, AnswersExactlyAsRecorded) {
  ServerHarness harness;
  const LibraryState library = sampleLibrary();
  harness.saveLibrary(library);
  harness.useClient(GetParam().clientID, GetParam().token);
  const Session session = readTranscript(std::string(VELTO_TRANSCRIPTS_DIR) + "/" + GetParam().file,
                                         formatISO8601(*library.liveUpdatedAt));
  const ProcessOutput output = harness.run(session.input);
  EXPECT_EQ(output.exitStatus, 0);
  EXPECT_EQ(output.standardError, "");
  // Line by line, so that a failure names the first line that differs.
  std::istringstream actual(output.standardOutput), expected(session.expected);
  int number = 1;
  for (std::string want, got; std::getline(expected, want); ++number) {
    EXPECT_TRUE(std::getline(actual, got)) << "answer " << number << " is missing: " << want;
    EXPECT_EQ(got, want) << "answer " << number;
  }
  EXPECT_EQ(output.standardOutput, session.expected);
}

INSTANTIATE_TEST_SUITE_P(Sessions, TranscriptTest,
                         ::testing::Values(Transcript{"handshake.jsonl", kOpenerID, kOpenerToken},
                                           Transcript{"envelope.jsonl", kOpenerID, kOpenerToken},
                                           Transcript{"tools.jsonl", kOpenerID, kOpenerToken},
                                           Transcript{"read_only.jsonl", kReaderID, kReaderToken},
                                           Transcript{"refused.jsonl", kReaderID, kOpenerToken}),
                         [](const auto& info) {
                           std::string name = info.param.file;
                           return name.substr(0, name.find('.'));
                         });

}  // namespace
}  // namespace velto::testing
