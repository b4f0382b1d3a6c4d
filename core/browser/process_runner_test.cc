#include "core/browser/process_runner.h"

#include <gtest/gtest.h>

namespace velto {
namespace {

ProcessOutput run(const std::string& program, const std::vector<std::string>& arguments,
                  std::string_view input = {}) {
  auto result = runProcess(program, arguments, input);
  EXPECT_TRUE(result.ok()) << (result.ok() ? "" : result.error().message);
  return result.ok() ? *result : ProcessOutput{};
}

TEST(ProcessRunnerTest, FeedsInputPassesArgumentsAndCollectsBothStreams) {
  EXPECT_EQ(run("/bin/cat", {}, "one\ntwo"), (ProcessOutput{0, "one\ntwo", ""}));
  EXPECT_EQ(run("/bin/cat", {}), (ProcessOutput{0, "", ""}));
  // No shell: nothing in an argument is expanded.
  EXPECT_EQ(run("/usr/bin/printf", {"%s|", "a b", "$HOME", "*", ""}).standardOutput,
            "a b|$HOME|*||");
  EXPECT_EQ(run("/bin/sh", {"-c", "echo out; echo 'oops (-1743)' >&2; exit 3"}),
            (ProcessOutput{3, "out\n", "oops (-1743)\n"}));
  EXPECT_EQ(run("/bin/sh", {"-c", "kill -TERM $$"}).exitStatus, 128 + 15);
}

TEST(ProcessRunnerTest, LargeStreamsAndEarlyExitsNeitherDeadlockNorKill) {
  // Far beyond any pipe buffer, in and out at once, with a flood on standard error too.
  const std::string input(8 << 20, 'x');
  const ProcessOutput output = run("/bin/sh", {"-c", "head -c 3000000 /dev/zero >&2; cat"}, input);
  EXPECT_EQ(output.exitStatus, 0);
  EXPECT_EQ(output.standardOutput.size(), input.size());
  EXPECT_EQ(output.standardError.size(), 3000000u);

  // Writing to a child that stopped reading raises SIGPIPE; the runner must survive it.
  EXPECT_EQ(run("/bin/sh", {"-c", "head -c 10 >/dev/null; echo done"}, input),
            (ProcessOutput{0, "done\n", ""}));
  EXPECT_EQ(run("/bin/true", {}, input).exitStatus, 0);
  EXPECT_EQ(run("/bin/cat", {}, "again").standardOutput, "again");
}

TEST(ProcessRunnerTest, ProgramThatCannotStartIsAPlatformError) {
  for (const std::string program : {"/nonexistent/osascript", "/etc"}) {
    const auto result = runProcess(program, {}, "input");
    ASSERT_FALSE(result.ok()) << program;
    EXPECT_EQ(result.error().domain, Error::Domain::platform);
    EXPECT_NE(result.error().message.find(program), std::string::npos);
  }
}

}  // namespace
}  // namespace velto
