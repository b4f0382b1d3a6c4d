#include "core/browser/application_launcher.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "core/support/testing/files.h"

namespace velto {
namespace {

namespace fs = std::filesystem;

// This platform's launcher with a private PATH folder for fake browsers: shell scripts
// that record their arguments, so these tests run where the fakes can run (Linux).
class ApplicationLauncherTest : public testing::TempDirTest {
 protected:
  void SetUp() override {
#ifndef __linux__
    GTEST_SKIP() << "the launcher finds browsers on PATH only on Linux";
#endif
    fs::create_directory(root_ / "bin");
    fs::current_path(root_);
    // Relative and empty entries are never searched, even when they name the folder.
    launcher_ = launcherWithPath("bin::" + (root_ / "bin").string());
  }
  void TearDown() override { fs::current_path(fs::temp_directory_path()); }

  static std::unique_ptr<ApplicationLauncher> launcherWithPath(std::string path) {
    return platformApplicationLauncher([path](std::string_view name) {
      return name == "PATH" ? std::optional(path) : std::nullopt;
    });
  }

  // A fake browser `name` that writes its arguments to <name>.args (whole, by renaming).
  void fakeBrowser(const std::string& name, fs::perms perms = fs::perms::owner_all,
                   std::string script = "") {
    const std::string record = (root_ / name).string() + ".args";
    if (script.empty()) {
      script = "#!/bin/sh\nprintf '%s\\n' \"$@\" > " + record + ".tmp && mv " + record + ".tmp " +
               record + "\n";
    }
    std::ofstream(root_ / "bin" / name) << script;
    fs::permissions(root_ / "bin" / name, perms);
  }

  std::string recordedArguments(const std::string& name) {
    const fs::path record = root_ / (name + ".args");
    for (int i = 0; i < 200 && !fs::exists(record); ++i) {  // the browser runs detached
      std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    return testing::readFile(record);
  }

  // Whether the launcher sees `browser` as `running` within two seconds.
  bool becomes(Browser browser, bool running) {
    for (int i = 0; i < 100 && launcher_->isRunning(browser) != running; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return launcher_->isRunning(browser) == running;
  }

  std::unique_ptr<ApplicationLauncher> launcher_;
};

TEST_F(ApplicationLauncherTest, FindsOnlyExecutableFilesOnAbsolutePathEntries) {
  fakeBrowser("google-chrome", fs::perms::owner_read);
  fs::create_directory(root_ / "bin" / "brave-browser");
  fakeBrowser("microsoft-edge-stable");
  fakeBrowser("safari");
  EXPECT_FALSE(launcher_->isInstalled(Browser::chrome));
  EXPECT_FALSE(launcher_->isInstalled(Browser::brave));
  EXPECT_TRUE(launcher_->isInstalled(Browser::edge));
  EXPECT_FALSE(launcher_->isInstalled(Browser::safari));
  EXPECT_FALSE(launcherWithPath("bin")->isInstalled(Browser::edge));
  // Debian's Chromium stands in for Google Chrome.
  fakeBrowser("chromium");
  EXPECT_TRUE(launcher_->isInstalled(Browser::chrome));
}

TEST_F(ApplicationLauncherTest, OpenGivesTheURLAsOneArgumentToTheFirstCommandFound) {
  fakeBrowser("google-chrome-stable");
  fakeBrowser("google-chrome");
  const std::string url = "https://example.org/?q=a b;$(touch pwned)&x='\"";
  ASSERT_TRUE(launcher_->open(url, Browser::chrome).ok());
  EXPECT_EQ(recordedArguments("google-chrome-stable"), url + "\n");
  EXPECT_FALSE(fs::exists(root_ / "pwned"));
  EXPECT_FALSE(fs::exists(root_ / "google-chrome.args"));

  // Success means the program started: an exec that fails is reported.
  fakeBrowser("brave-browser", fs::perms::owner_all, "#!/nonexistent/interpreter\n");
  EXPECT_EQ(launcher_->open("https://example.org/", Browser::brave).error().message,
            "Could not start " + (root_ / "bin" / "brave-browser").string() +
                ": No such file or directory");
  EXPECT_EQ(launcher_->open("https://example.org/", Browser::edge).error().message,
            "Edge is not installed. Copy this link to open it in another browser.");
}

// A sleeping process under each browser's process name; Debian's Chromium runs as Chrome.
// Only Brave is sure to run nowhere else: the real-browser tests may run Chromium.
TEST_F(ApplicationLauncherTest, RunningMeansAProcessWithTheBrowsersName) {
  for (const auto& [name, browser, alone] :
       {std::tuple{"brave", Browser::brave, true}, {"chromium", Browser::chrome, false}}) {
    if (alone) EXPECT_FALSE(launcher_->isRunning(browser));
    const fs::path program = root_ / name;
    fs::copy_file("/bin/sleep", program);
    pid_t pid = 0;
    char seconds[] = "30";
    char* argv[] = {const_cast<char*>(program.c_str()), seconds, nullptr};
    ASSERT_EQ(::posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv, nullptr), 0);
    EXPECT_TRUE(becomes(browser, true)) << name;
    EXPECT_FALSE(launcher_->isRunning(Browser::edge));
    EXPECT_FALSE(launcher_->isRunning(Browser::safari));
    // Killed but not yet collected by this process, its parent: ended all the same.
    ::kill(pid, SIGKILL);
    if (alone) EXPECT_TRUE(becomes(browser, false));
    ::waitpid(pid, nullptr, 0);
  }
}

TEST_F(ApplicationLauncherTest, AnotherUsersBrowserIsNotOurs) {
  if (::geteuid() != 0) GTEST_SKIP() << "starting a process as another user needs root";
  const fs::path brave = root_ / "brave";
  fs::copy_file("/bin/sleep", brave);
  fs::permissions(root_, fs::perms::all);
  const pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    constexpr uid_t kNobody = 65534;
    if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) ::_exit(1);
    ::execl(brave.c_str(), brave.c_str(), "30", static_cast<char*>(nullptr));
    ::_exit(1);
  }
  // Long enough for the exec to have happened: /proc shows the new name at once after it.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_FALSE(launcher_->isRunning(Browser::brave));
  int status = 0;
  EXPECT_EQ(::waitpid(pid, &status, WNOHANG), 0) << "the other user's fake browser did not run";
  ::kill(pid, SIGKILL);
  ::waitpid(pid, nullptr, 0);
}

}  // namespace
}  // namespace velto
