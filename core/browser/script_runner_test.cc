#include "core/browser/script_runner.h"

#include <gtest/gtest.h>

#include "core/browser/browser_scripts.h"
#include "core/model/velto_error.h"

namespace velto {
namespace {

// Runs `shell` as a stand-in for the system's script runner.
Result<ScriptValue> runWithFake(const std::string& shell, const std::string& source = "x") {
  return CommandScriptRunner("/bin/sh", {"-c", shell}).run(source);
}

TEST(ScriptRunnerTest, SourceGoesToStandardInputAndTheReplyIsRead) {
  const auto echoed = runWithFake(R"sh(printf '{"%s", true}\n' "$(cat)")sh", "tell application");
  ASSERT_TRUE(echoed.ok());
  EXPECT_EQ(*echoed,
            ScriptValue::list({ScriptValue::text("tell application"), ScriptValue::boolean(true)}));

  // A real script text, line feeds and non-ASCII characters included, arrives whole.
  const std::string script = BrowserScripts::snapshotScript(Browser::chrome);
  const auto counted = runWithFake("wc -c", script);
  ASSERT_TRUE(counted.ok());
  EXPECT_EQ(counted->int32Value(), static_cast<int32_t>(script.size()));
}

TEST(ScriptRunnerTest, AStuckProgramIsKilledAfterTheScriptsOwnLimitAndAGrace) {
  using namespace std::chrono_literals;
  CommandScriptRunner stuck("/bin/sh", {"-c", "cat >/dev/null; sleep 30"}, 200ms);
  const auto started = std::chrono::steady_clock::now();
  const auto result = stuck.run("with timeout of 1 seconds\n    tell application id \"x\"");
  const auto took = std::chrono::steady_clock::now() - started;
  ASSERT_FALSE(result.ok());
  EXPECT_EQ(result.error(), VeltoError::automationFailure(-1712));
  EXPECT_GE(took, 1200ms);
  EXPECT_LT(took, 5s);
}

TEST(ScriptRunnerTest, TimeLimitIsTheScriptsOwn) {
  using namespace std::chrono_literals;
  EXPECT_EQ(scriptTimeLimit(BrowserScripts::snapshotScript(Browser::safari)), 12s);
  EXPECT_EQ(scriptTimeLimit("with timeout of 10 seconds\nend timeout"), 10s);
  for (const char* other : {"tell application", "", "with timeout of x seconds",
                            "with timeout of -3 seconds", " with timeout of 5 seconds"}) {
    EXPECT_EQ(scriptTimeLimit(other), 120s) << other;
  }
  EXPECT_EQ(scriptTimeLimit("with timeout of 99999999999 seconds"), 86400s);
}

TEST(ScriptRunnerTest, FailuresMapToUserSentencesByTheLastErrorNumber) {
  const struct {
    std::string standardError;
    int64_t number;
  } failed[] = {
      {"36:52: execution error: Not authorized to send Apple events to Google Chrome. (-1743)\n",
       -1743},
      {"112:130: execution error: Brave Browser got an error: Application isn\xe2\x80\x99t "
       "running. (-600)\r\n\n",
       -600},
      {"35:40: syntax error: Expected end of line but found identifier. (-2741)", -2741},
      {"warning: (-1743)\nexecution error: Can\xe2\x80\x99t get window 1. (-1728)\n", -1728},
      {"execution error: Some error. (42)", 42},
      {"osascript: no such file\n", 0},
      {"(-1743) at the start", 0},
      {"()", 0},
      {"(12a)", 0},
      {"(99999999999999999999)", 0},
  };
  for (const auto& c : failed) {
    EXPECT_EQ(automationErrorNumber(c.standardError), c.number) << c.standardError;
  }
  // A failed run is judged by its standard error, whatever it printed; a reply that cannot
  // be read counts as an unnumbered failure.
  EXPECT_EQ(
      runWithFake("printf '%s' \"$(cat)\" >&2; echo true; exit 1", failed[0].standardError).error(),
      VeltoError::automationFailure(-1743));
  EXPECT_EQ(runWithFake("kill -KILL $$").error(), VeltoError::automationFailure(0));
  EXPECT_EQ(runWithFake("echo '{\"unterminated'").error(), VeltoError::automationFailure(0));

  CommandScriptRunner missing("/nonexistent/osascript", {"-s", "s", "-"});
  EXPECT_EQ(missing.run("return true").error(), VeltoError::scriptNotCreated());
#ifndef __APPLE__
  EXPECT_EQ(platformScriptRunner()->run(BrowserScripts::snapshotScript(Browser::safari)).error(),
            VeltoError::scriptNotCreated());
#endif
}

}  // namespace
}  // namespace velto
