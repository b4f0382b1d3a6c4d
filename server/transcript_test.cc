// Whole sessions against the real binary: each server/transcripts/*.jsonl file holds the
// lines sent ("> ") and the exact lines expected back ("< "), in order; a line that must
// get no answer simply has none. "#" starts a comment. $LIVE_UPDATED_AT in an expected
// line stands for the time the sample library's open tabs were observed.

#include <gtest/gtest.h>

#include <sstream>

#include "core/support/testing/files.h"
#include "server/testing/server_harness.h"

namespace velto::testing {
namespace {

struct Transcript {
  const char* file;
  const char* clientID;
  std::string token;

  friend void PrintTo(const Transcript& transcript, std::ostream* out) { *out << transcript.file; }
};

size_t occurrences(std::string_view text, std::string_view part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string_view::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

class TranscriptTest : public ::testing::TestWithParam<Transcript> {};

TEST_P(TranscriptTest, AnswersExactlyAsRecorded) {
  ServerHarness harness;
  harness.environment["VELTO_CLIENT_ID"] = GetParam().clientID;
  harness.environment["VELTO_CLIENT_TOKEN"] = GetParam().token;
  std::istringstream file(
      readFile(std::string(VELTO_SERVER_SOURCE_DIR) + "/transcripts/" + GetParam().file));
  std::string input, expected;
  for (std::string line; std::getline(file, line);) {
    const std::string text = line.substr(std::min<size_t>(2, line.size()));
    if (line.starts_with(">")) input += text + "\n";
    if (line.starts_with("<")) expected += text + "\n";
    EXPECT_TRUE(line.starts_with(">") || line.starts_with("<") || line.starts_with("#")) << line;
  }
  ASSERT_FALSE(expected.empty());
  for (size_t at; (at = expected.find("$LIVE_UPDATED_AT")) != std::string::npos;) {
    expected.replace(at, 16, harness.liveUpdatedAt);
  }
  const ProcessOutput output = harness.run(input);
  EXPECT_EQ(output.exitStatus, 0);
  // The operator hears of every refusal, once, and of nothing else.
  const size_t refusals = occurrences(expected, "\"Connection not allowed.\"");
  EXPECT_EQ(occurrences(output.standardError, "VeltoMCP: refused the client"), refusals);
  EXPECT_EQ(occurrences(output.standardError, "\n"), refusals) << output.standardError;
  // Line by line, so that a failure names the first answer that differs.
  std::istringstream got(output.standardOutput), want(expected);
  for (std::string gotLine, wantLine; std::getline(want, wantLine);) {
    ASSERT_TRUE(std::getline(got, gotLine)) << "missing: " << wantLine;
    EXPECT_EQ(gotLine, wantLine);
  }
  EXPECT_EQ(output.standardOutput, expected);
  EXPECT_EQ(readFile(harness.libraryFile), harness.sampleLibraryText());  // never written
}

INSTANTIATE_TEST_SUITE_P(Sessions, TranscriptTest,
                         ::testing::Values(Transcript{"handshake.jsonl", kOpenerID, kOpenerToken},
                                           Transcript{"envelope.jsonl", kOpenerID, kOpenerToken},
                                           Transcript{"tools.jsonl", kOpenerID, kOpenerToken},
                                           Transcript{"arguments.jsonl", kOpenerID, kOpenerToken},
                                           Transcript{"read_only.jsonl", kReaderID, kReaderToken},
                                           Transcript{"refused.jsonl", kReaderID, kOpenerToken}),
                         [](const auto& info) {
                           const std::string name = info.param.file;
                           return name.substr(0, name.find('.'));
                         });

}  // namespace
}  // namespace velto::testing
