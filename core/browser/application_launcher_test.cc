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
#include <map>
#include <thread>

namespace velto {
namespace {

namespace fs = std::filesystem;

// The Linux launcher, with a private PATH directory holding fake browsers.
class ApplicationLauncherTest : public ::testing::Test {
 protected:
  void SetUp() override {
#ifndef __linux__
    GTEST_SKIP() << "the fake browsers are Linux executables";
#endif
    std::string pattern = (fs::temp_directory_path() / "velto-launcher.XXXXXX").string();
    directory_ = ::mkdtemp(pattern.data());
    bin_ = directory_ / "bin";
    fs::create_directories(bin_);
    path_ = "relative/bin::" + bin_.string() + ":/nonexistent";
  }
  void TearDown() override {
    std::error_code ignored;
    if (!directory_.empty()) fs::remove_all(directory_, ignored);
  }

  std::unique_ptr<ApplicationLauncher> launcher() {
    return platformApplicationLauncher([this](std::string_view name) -> std::optional<std::string> {
      if (name == "PATH") return path_;
      return std::nullopt;
    });
  }

  // A script that writes its arguments, one per line, to <name>.args once it has run.
  fs::path fakeBrowser(const std::string& name, const std::string& body = "",
                       fs::perms perms = fs::perms::owner_all) {
    const fs::path script = bin_ / name;
    const std::string record = (directory_ / (name + ".args")).string();
    std::ofstream(script) << (body.empty() ? "#!/bin/sh\nprintf '%s\\n' \"$@\" > " + record +
                                                 ".tmp && mv " + record + ".tmp " + record + "\n"
                                           : body);
    fs::permissions(script, perms);
    return script;
  }

  std::string recordedArguments(const std::string& name) {
    const fs::path record = directory_ / (name + ".args");
    for (int i = 0; i < 200 && !fs::exists(record); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    std::ifstream file(record);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

  fs::path directory_;
  fs::path bin_;
  std::string path_;
};

TEST_F(ApplicationLauncherTest, FindsOnlyExecutableFilesOnAbsolutePathEntries) {
  EXPECT_FALSE(launcher()->isInstalled(Browser::chrome));
  fakeBrowser("google-chrome", "", fs::perms::owner_read | fs::perms::owner_write);
  fs::create_directory(bin_ / "brave-browser");
  EXPECT_FALSE(launcher()->isInstalled(Browser::chrome));  // not executable
  EXPECT_FALSE(launcher()->isInstalled(Browser::brave));   // a directory
  fakeBrowser("google-chrome");
  fakeBrowser("microsoft-edge-stable");
  fakeBrowser("safari");
  EXPECT_TRUE(launcher()->isInstalled(Browser::chrome));
  EXPECT_TRUE(launcher()->isInstalled(Browser::edge));
  EXPECT_FALSE(launcher()->isInstalled(Browser::safari));

  // Relative entries are never searched, even when they name the right folder.
  const fs::path workingDirectory = fs::current_path();
  fs::current_path(directory_);
  path_ = "bin::.";
  EXPECT_FALSE(launcher()->isInstalled(Browser::chrome));
  fs::current_path(workingDirectory);
}

TEST_F(ApplicationLauncherTest, OpenPassesTheURLAsOneArgumentToTheFirstExecutable) {
  fakeBrowser("google-chrome-stable");
  fakeBrowser("google-chrome");
  const std::string url = "https://example.org/?q=a b;$(touch pwned)&x='\"";
  ASSERT_TRUE(launcher()->open(url, Browser::chrome).ok());
  EXPECT_EQ(recordedArguments("google-chrome-stable"), url + "\n");
  EXPECT_FALSE(fs::exists(directory_ / "pwned"));
  EXPECT_FALSE(fs::exists(directory_ / "google-chrome.args"));
}

TEST_F(ApplicationLauncherTest, OpenReportsAnExecThatFails) {
  fakeBrowser("brave-browser", "#!/nonexistent/interpreter\n");
  const Result<void> opened = launcher()->open("https://example.org/", Browser::brave);
  ASSERT_FALSE(opened.ok());
  EXPECT_EQ(opened.error().message,
            "Could not start " + (bin_ / "brave-browser").string() + ": No such file or directory");
  EXPECT_EQ(launcher()->open("https://example.org/", Browser::edge).error().message,
            "Edge is not installed. Copy this link to open it in another browser.");
}

TEST_F(ApplicationLauncherTest, RunningMeansAProcessWithTheBrowsersName) {
  // A copy of sleep named like Brave's main binary runs as "brave".
  const fs::path brave = directory_ / "brave";
  fs::copy_file("/bin/sleep", brave);
  EXPECT_FALSE(launcher()->isRunning(Browser::brave));
  pid_t pid = 0;
  std::string seconds = "30";
  char* argv[] = {const_cast<char*>(brave.c_str()), seconds.data(), nullptr};
  ASSERT_EQ(::posix_spawn(&pid, brave.c_str(), nullptr, nullptr, argv, nullptr), 0);
  bool seen = false;
  for (int i = 0; i < 100 && !seen; ++i) {
    seen = launcher()->isRunning(Browser::brave);
    if (!seen) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_TRUE(seen);
  EXPECT_FALSE(launcher()->isRunning(Browser::edge));
  EXPECT_FALSE(launcher()->isRunning(Browser::safari));
  ::kill(pid, SIGKILL);
  ::waitpid(pid, nullptr, 0);
  EXPECT_FALSE(launcher()->isRunning(Browser::brave));
}

}  // namespace
}  // namespace velto
