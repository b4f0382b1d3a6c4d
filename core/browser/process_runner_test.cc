#include "core/browser/process_runner.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <thread>

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

using namespace std::chrono_literals;

TEST(ProcessRunnerTest, AProgramOutlivingItsTimeLimitIsKilledWithWhatItStarted) {
  const auto started = std::chrono::steady_clock::now();
  // The background sleep holds the output pipe open after its parent is gone.
  const auto result =
      runProcess("/bin/sh", {"-c", "echo early; (sleep 30; echo late) & sleep 30"}, {}, 300ms);
  ASSERT_TRUE(result.ok());
  EXPECT_TRUE(result->timedOut);
  EXPECT_EQ(result->standardOutput, "early\n");
  EXPECT_EQ(result->exitStatus, 128 + SIGKILL);
  EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);

  // One that ends in time is left alone.
  EXPECT_EQ(runProcess("/bin/cat", {}, "quick", 5s)->standardOutput, "quick");
  EXPECT_FALSE(runProcess("/bin/cat", {}, "quick", 5s)->timedOut);
}

// When waiting on the pipes fails, the child must not be left blocked on a full one while
// we wait for it to end. poll is made to fail by lowering the descriptor limit below the
// three it watches, once the child runs.
TEST(ProcessRunnerTest, AFailedPollStopsWaitingOnFullPipesBeforeWaitingForTheChild) {
  rlimit original{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &original), 0);
  // Detached, so that a runner that never returns fails the test instead of hanging it.
  struct Outcome {
    std::atomic<bool> done = false;
    bool ok = false;
  };
  auto outcome = std::make_shared<Outcome>();
  // The child marks when it runs, so that the limit is lowered only once its pipes exist.
  const std::string started = ::testing::TempDir() + "velto-poll-" + std::to_string(::getpid());
  std::thread([outcome, started] {
    outcome->ok =
        runProcess("/bin/sh", {"-c", "touch \"$0\"; sleep 1; head -c 1000000 /dev/zero", started})
            .ok();
    outcome->done = true;
  }).detach();
  for (int waited = 0; waited < 1000 && ::access(started.c_str(), F_OK) != 0; ++waited) {
    std::this_thread::sleep_for(10ms);
  }
  ::unlink(started.c_str());
  rlimit lowered = original;
  lowered.rlim_cur = 2;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lowered), 0);
  for (int waited = 0; waited < 200 && !outcome->done; ++waited) std::this_thread::sleep_for(100ms);
  ::setrlimit(RLIMIT_NOFILE, &original);
  ASSERT_TRUE(outcome->done) << "the runner waits for a child it blocks";
  EXPECT_TRUE(outcome->ok);
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
