// What the real VeltoMCP tells its operator on stderr: one line for each refused client,
// library that does not load and dropped line, nothing for requests that succeed, and
// never a token; and its answers to the command line.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "core/mcp/client_authorization.h"
#include "server/line_loop.h"
#include "server/testing/server_harness.h"

namespace velto::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const std::string kInitialize =
    R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25","clientInfo":{"name":"t","version":"1"}}})"
    "\n";
const std::string kNotified = R"({"jsonrpc":"2.0","method":"notifications/initialized"})"
                              "\n";
const std::string kPing = R"({"jsonrpc":"2.0","id":1,"method":"ping"})"
                          "\n";
const std::string kList = R"({"jsonrpc":"2.0","id":2,"method":"tools/list"})"
                          "\n";
const std::string kRefused =
    R"({"error":{"code":-32001,"message":"Connection not allowed."},"id":0,"jsonrpc":"2.0"})"
    "\n";

size_t lines(const std::string& text) { return std::ranges::count(text, '\n'); }

class DiagnosticsTest : public ::testing::Test {
 protected:
  // Runs the server and checks that stderr holds exactly one line, which it returns.
  std::string oneLine(const std::string& input, const std::string& expectedOut) {
    const ProcessOutput output = harness_.run(input);
    EXPECT_EQ(output.exitStatus, 0);
    EXPECT_EQ(output.standardOutput, expectedOut);
    EXPECT_EQ(lines(output.standardError), 1u) << output.standardError;
    EXPECT_THAT(output.standardError, StartsWith("VeltoMCP: "));
    return output.standardError;
  }

  ServerHarness harness_;
};

TEST_F(DiagnosticsTest, EachRefusalIsOneLineNamingTheCheckThatFailed) {
  struct Case {
    std::optional<std::string> id, token;
    std::string cause;
  };
  const std::string unknownID = "C0FFEE00-0000-4000-8000-0000000000FF";
  const std::string otherToken(64, '3');
  for (const Case& c : {
           Case{std::nullopt, std::nullopt,
                "VELTO_CLIENT_ID and VELTO_CLIENT_TOKEN are empty or not set"},
           Case{std::nullopt, kOpenerToken, "VELTO_CLIENT_ID is empty or not set"},
           Case{kOpenerID, "", "VELTO_CLIENT_TOKEN is empty or not set"},
           Case{kOpenerID, kOpenerToken + "\r", "VELTO_CLIENT_TOKEN is not 64 characters long"},
           Case{kOpenerToken, kOpenerToken, "VELTO_CLIENT_ID is not a UUID"},
           Case{unknownID, kOpenerToken, "no client has the id " + unknownID},
           Case{kReaderID, kOpenerToken,
                std::string("VELTO_CLIENT_TOKEN is not the token of the client ") + kReaderID},
           Case{kReaderID, otherToken,
                std::string("VELTO_CLIENT_TOKEN is not the token of the client ") + kReaderID},
       }) {
    harness_.environment.erase("VELTO_CLIENT_ID");
    harness_.environment.erase("VELTO_CLIENT_TOKEN");
    if (c.id) harness_.environment["VELTO_CLIENT_ID"] = *c.id;
    if (c.token) harness_.environment["VELTO_CLIENT_TOKEN"] = *c.token;
    // ping is served without a check, and tells nothing.
    const std::string line =
        oneLine(kInitialize + kPing, kRefused + R"({"id":1,"jsonrpc":"2.0","result":{}})"
                                                "\n");
    EXPECT_THAT(line, HasSubstr("refused the client (\"Connection not allowed.\"): " + c.cause))
        << c.cause;
    EXPECT_THAT(line, HasSubstr(harness_.libraryFile.string()));
    // Neither the token, nor its hash, nor a part of either.
    for (const std::string& secret : {kOpenerToken.substr(0, 16), otherToken.substr(0, 16),
                                      ClientAuthorization::hash(kOpenerToken).substr(0, 8),
                                      ClientAuthorization::hash(otherToken).substr(0, 8)}) {
      EXPECT_THAT(line, Not(HasSubstr(secret))) << c.cause;
    }
  }

  // One line for each refused request, none for the notification or the ping between.
  const ProcessOutput output = harness_.run(kInitialize + kNotified + kPing + kList);
  EXPECT_EQ(lines(output.standardError), 2u) << output.standardError;
}

TEST_F(DiagnosticsTest, ALibraryThatDoesNotLoadIsNamedWithTheReason) {
  struct Case {
    std::string bytes, reason;
  };
  std::string newer = harness_.sampleLibraryText();
  newer.replace(newer.find("\"version\": 1"), 12, "\"version\": 2");
  for (const Case& c : {Case{"{\"version\": 1, \"tabs\": [", "The library file is damaged"},
                        Case{newer, "newer Velto"}}) {
    std::ofstream(harness_.libraryFile, std::ios::trunc) << c.bytes;
    const ProcessOutput output = harness_.run(kInitialize + kPing);
    // The answer stays the tool-style error result; stderr says which file and why.
    EXPECT_THAT(output.standardOutput,
                StartsWith(R"({"id":0,"jsonrpc":"2.0","result":{"content":[{"text":)"));
    EXPECT_THAT(output.standardOutput, HasSubstr(R"("isError":true)"));
    ASSERT_EQ(lines(output.standardError), 1u) << output.standardError;
    EXPECT_THAT(output.standardError, StartsWith("VeltoMCP: could not load the library " +
                                                 harness_.libraryFile.string() + ": "));
    EXPECT_THAT(output.standardError, HasSubstr(c.reason));
  }

  // An unreadable file, e.g. a folder in its place: the reason comes from the system.
  std::filesystem::remove(harness_.libraryFile);
  std::filesystem::create_directory(harness_.libraryFile);
  const ProcessOutput output = harness_.run(kInitialize);
  ASSERT_EQ(lines(output.standardError), 1u) << output.standardError;
  EXPECT_THAT(output.standardError, HasSubstr(harness_.libraryFile.string()));
}

TEST_F(DiagnosticsTest, ADroppedLineIsToldWithItsLengthAndAGoodSessionTellsNothing) {
  const std::string line = oneLine(std::string(kMaxLineBytes + 1, ' ') + "\n" + kPing,
                                   R"({"id":1,"jsonrpc":"2.0","result":{}})"
                                   "\n");
  EXPECT_THAT(line, HasSubstr("dropped a line of 1048577 bytes"));

  const ProcessOutput good = harness_.run(kInitialize + kNotified + kPing + kList);
  EXPECT_EQ(lines(good.standardOutput), 3u);
  EXPECT_EQ(good.standardError, "");
}

TEST_F(DiagnosticsTest, VersionAndHelpAnswerOnStdoutAndOtherArgumentsAreRefused) {
  const ProcessOutput version = harness_.run(kPing, {"--version"});
  EXPECT_EQ(version.exitStatus, 0);
  EXPECT_EQ(version.standardOutput, "VeltoMCP " VELTO_VERSION "\n");
  EXPECT_EQ(version.standardError, "");

  const ProcessOutput help = harness_.run(kPing, {"--help"});
  EXPECT_EQ(help.exitStatus, 0);
  EXPECT_THAT(help.standardOutput, StartsWith("Usage: VeltoMCP"));
  for (const char* part : {"VELTO_CLIENT_ID", "VELTO_CLIENT_TOKEN", "XDG_DATA_HOME", "stdin"}) {
    EXPECT_THAT(help.standardOutput, HasSubstr(part));
  }
  EXPECT_THAT(help.standardOutput, HasSubstr(harness_.libraryFile.string() + "\n"));
  EXPECT_EQ(help.standardError, "");

  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--serve"}, {"--help", "--version"}, {"x\ny"}}) {
    const ProcessOutput refused = harness_.run(kPing, arguments);
    EXPECT_EQ(refused.exitStatus, 2);
    EXPECT_EQ(refused.standardOutput, "");  // the input is not served
    EXPECT_EQ(lines(refused.standardError), 1u) << refused.standardError;
    EXPECT_THAT(refused.standardError, StartsWith("VeltoMCP: unexpected argument"));
  }
}

}  // namespace
}  // namespace velto::testing
