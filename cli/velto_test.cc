// The built velto and VeltoMCP as processes: a client added with velto is accepted by a
// real server started with the printed configuration, `velto watch` stops cleanly, and
// writers running at once lose none of each other's changes.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

#include "core/browser/process_runner.h"
#include "core/model/library_store.h"
#include "core/support/testing/files.h"

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using Environment = std::map<std::string, std::string>;

struct Outcome {
  int status = -1;
  std::string out, err;
};

using velto::testing::readFile;

class VeltoProcessTest : public velto::testing::TempDirTest {
 protected:
  void SetUp() override {
    const char* binaries = std::getenv("VELTO_BINARY_DIR");
    ASSERT_NE(binaries, nullptr) << "run through ctest";
    velto_ = fs::path(binaries) / "cli/velto";
    env_ = {{"HOME", root_.string()}, {"XDG_DATA_HOME", (root_ / "data").string()}};
  }

  // Runs `program words` under exactly `env`, with `input` on stdin and stdout into
  // `stdoutPath` (read back only when it is the default), until it exits.
  Outcome run(const fs::path& program, const std::string& words, const Environment& env,
              const std::string& input = "", std::string stdoutPath = "") {
    const bool ownStdout = stdoutPath.empty();
    if (ownStdout) stdoutPath = (root_ / "stdout").string();
    std::ofstream(root_ / "stdin", std::ios::binary) << input;
    std::string line = "env -i";
    for (const auto& [name, value] : env) line += " " + name + "='" + value + "'";
    line += " '" + program.string() + "' " + words + " <" + (root_ / "stdin").string() + " >" +
            stdoutPath + " 2>" + (root_ / "stderr").string();
    const int status = std::system(line.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ownStdout ? readFile(stdoutPath) : "",
            readFile(root_ / "stderr")};
  }

  // `program words` started under exactly `env`, stdin empty, stdout and stderr into
  // files named `name`.out and `name`.err in the test folder.
  pid_t start(const fs::path& program, const std::vector<std::string>& words,
              const Environment& env, const std::string& name) {
    std::vector<std::string> texts{program.string()};
    texts.insert(texts.end(), words.begin(), words.end());
    std::vector<std::string> variables;
    for (const auto& [variable, value] : env) variables.push_back(variable + "=" + value);
    const auto pointers = [](std::vector<std::string>& strings) {
      std::vector<char*> out;
      for (std::string& text : strings) out.push_back(text.data());
      out.push_back(nullptr);
      return out;
    };
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    const std::string out = (root_ / (name + ".out")).string();
    const std::string err = (root_ / (name + ".err")).string();
    posix_spawn_file_actions_addopen(&files, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&files, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t pid = -1;
    const int started = posix_spawn(&pid, texts[0].c_str(), &files, nullptr, pointers(texts).data(),
                                    pointers(variables).data());
    posix_spawn_file_actions_destroy(&files);
    EXPECT_EQ(started, 0);
    return pid;
  }

  // The exit status of `pid` once it ends within `limit`; -1 (and killed) when it does not.
  static int finish(pid_t pid, std::chrono::seconds limit = std::chrono::seconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    int status = 0;
    while (::waitpid(pid, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, &status, 0);
        return -1;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  fs::path libraryFile() const { return root_ / "data/Velto/library.json"; }

  // Waits until a watch has stored a snapshot.
  bool snapshotStored() const {
    for (int tries = 0; tries < 500; ++tries) {
      const auto state = velto::LibraryStore(libraryFile().parent_path()).load();
      if (state.ok() && state->liveUpdatedAt) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }

  fs::path velto_;
  Environment env_;
};

TEST_F(VeltoProcessTest, ServerAcceptsTheAddedClientWithThePrintedConfiguration) {
  const Outcome added = run(velto_, "clients add 'Process test'", env_);
  ASSERT_EQ(added.status, 0) << added.err;
  EXPECT_EQ(added.err, "");
  const auto entry =
      nlohmann::json::parse(added.out.substr(added.out.find("\n{") + 1))["mcpServers"]["velto"];
  const fs::path server = entry["command"].get<std::string>();
  // The release build's server when there is one: this velto may be a sanitizer build's.
  const fs::path release = velto_.parent_path() / "../../release/server/VeltoMCP";
  EXPECT_EQ(
      server,
      fs::canonical(fs::exists(release) ? release : velto_.parent_path() / "../server/VeltoMCP"));

  // What a client passes: a few variables of its own plus the configured ones.
  Environment serverEnv{{"HOME", root_.string()}, {"PATH", "/usr/bin:/bin"}};
  for (const auto& [name, value] : entry["env"].items()) serverEnv[name] = value;
  const std::string initialize =
      R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25",)"
      R"("capabilities":{},"clientInfo":{"name":"test","version":"1"}}})"
      "\n";
  const Outcome accepted = run(server, "", serverEnv, initialize);
  EXPECT_EQ(accepted.status, 0) << accepted.err;
  EXPECT_THAT(accepted.out, HasSubstr(R"("result":)"));
  EXPECT_THAT(accepted.out, ::testing::Not(HasSubstr(R"("error":)")));
}

// What main adds to the commands: the version, exit statuses and output failures.
TEST_F(VeltoProcessTest, VersionAndFailuresAsOneLineOnStderrWithTheirStatus) {
  struct Case {
    const char* words;
    const char* stdoutPath;
    int status;
    const char *out, *err;
  };
  for (const Case& c :
       {Case{"--version", "", 0, "velto " VELTO_VERSION "\n", ""},
        Case{"clients list", "", 0, "No clients. Add one with: velto clients add NAME\n", ""},
        Case{"unknown", "", 2, "", "velto: unknown command \"unknown\" (see \"velto --help\")\n"},
        Case{"clients list", "/dev/full", 1, "", "velto: could not write the output\n"},
        Case{"clients add x", "/dev/full", 1, "",
             "velto: could not write the token, so the client was not added\n"}}) {
    const Outcome outcome = run(velto_, c.words, env_, "", c.stdoutPath);
    EXPECT_EQ(outcome.status, c.status) << c.words;
    EXPECT_EQ(outcome.out, c.out) << c.words;
    EXPECT_EQ(outcome.err, c.err) << c.words;
  }
}

// Safari is connected because it never runs here: the looks read no browser, whatever
// else runs on the machine.
TEST_F(VeltoProcessTest, WatchLooksOnceOrUntilStoppedAndSaysNothingOnStdout) {
  ASSERT_EQ(run(velto_, "browsers connect safari", env_).status, 0);
  const Outcome once = run(velto_, "watch --once", env_);
  EXPECT_EQ(once.status, 0) << once.err;
  EXPECT_EQ(once.out, "");
  EXPECT_TRUE(snapshotStored());

  // A stop signal ends the wait between two looks at once, not a minute later.
  for (int signal : {SIGTERM, SIGINT}) {
    fs::remove(libraryFile());
    ASSERT_EQ(run(velto_, "browsers connect safari", env_).status, 0);
    const pid_t watch = start(velto_, {"watch", "--interval", "60"}, env_, "watch");
    ASSERT_TRUE(snapshotStored());
    const auto signalled = std::chrono::steady_clock::now();
    ::kill(watch, signal);
    EXPECT_EQ(finish(watch), 0) << signal;
    EXPECT_LT(std::chrono::steady_clock::now() - signalled, std::chrono::seconds(10));
    EXPECT_EQ(readFile(root_ / "watch.out"), "");
    EXPECT_EQ(readFile(root_ / "watch.err"), "");
  }
}

TEST_F(VeltoProcessTest, WatchReportsEachFailedLookAndKeepsGoingWithoutOverwriting) {
  fs::create_directories(libraryFile().parent_path());
  const std::string broken = R"({"version": 1, "tabs": [)";
  std::ofstream(libraryFile()) << broken;
  const pid_t watch = start(velto_, {"watch", "--interval=0.1"}, env_, "watch");
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  EXPECT_EQ(readFile(libraryFile()), broken);

  // Repaired, the library gets its snapshot on the next look.
  ASSERT_TRUE(velto::LibraryStore(libraryFile().parent_path()).save({}).ok());
  EXPECT_TRUE(snapshotStored());
  ::kill(watch, SIGTERM);
  EXPECT_EQ(finish(watch), 0);
  EXPECT_EQ(readFile(root_ / "watch.out"), "");
  const std::string err = readFile(root_ / "watch.err");
  const std::regex failure("velto: watch: [^\n]+\n");
  const auto failures =
      std::distance(std::sregex_iterator(err.begin(), err.end(), failure), std::sregex_iterator());
  EXPECT_GE(failures, 2) << err;
  EXPECT_TRUE(std::regex_match(err, std::regex("(velto: watch: [^\n]+\n)+"))) << err;
}

// 50 pairs of `velto clients add` at once while `velto watch` keeps writing: every grant
// stays, and every printed token opens a session with the real server.
TEST_F(VeltoProcessTest, ConcurrentWritersKeepEveryClient) {
  ASSERT_EQ(run(velto_, "browsers connect safari", env_).status, 0);
  const pid_t watch = start(velto_, {"watch", "--interval", "0.1"}, env_, "watch");
  ASSERT_TRUE(snapshotStored());

  std::vector<std::string> envArguments{"-i"};
  for (const auto& [name, value] : env_) envArguments.push_back(name + "=" + value);
  // Both of a pair at once, and five pairs at a time: a fair race on two cores.
  constexpr int kPairs = 50, kPairsAtOnce = 5;
  std::vector<velto::ProcessOutput> added;
  for (int first = 0; first < kPairs; first += kPairsAtOnce) {
    std::vector<std::future<velto::Result<velto::ProcessOutput>>> running;
    for (int i = first * 2; i < (first + kPairsAtOnce) * 2; ++i) {
      std::vector<std::string> arguments = envArguments;
      arguments.insert(arguments.end(),
                       {velto_.string(), "clients", "add", "Client " + std::to_string(i)});
      running.push_back(std::async(std::launch::async, [arguments] {
        return velto::runProcess("/usr/bin/env", arguments);
      }));
    }
    for (auto& process : running) {
      const auto output = process.get();
      ASSERT_TRUE(output.ok());
      EXPECT_EQ(output->exitStatus, 0) << output->standardError;
      added.push_back(*output);
    }
  }
  ::kill(watch, SIGTERM);
  EXPECT_EQ(finish(watch), 0);
  EXPECT_EQ(readFile(root_ / "watch.err"), "");
  const auto library = velto::LibraryStore(libraryFile().parent_path()).load();
  ASSERT_TRUE(library.ok());
  EXPECT_EQ(library->clients.size(), size_t{kPairs * 2});

  const fs::path server = velto_.parent_path() / "../server/VeltoMCP";
  const std::string session =
      R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25",)"
      R"("capabilities":{},"clientInfo":{"name":"test","version":"1"}}})"
      "\n"
      R"({"jsonrpc":"2.0","method":"notifications/initialized"})"
      "\n"
      R"({"jsonrpc":"2.0","id":1,"method":"tools/list"})"
      "\n";
  for (size_t first = 0; first < added.size(); first += 10) {
    std::vector<std::future<velto::Result<velto::ProcessOutput>>> running;
    for (size_t i = first; i < std::min(first + 10, added.size()); ++i) {
      std::smatch id, token;
      const std::string& out = added[i].standardOutput;
      ASSERT_TRUE(std::regex_search(out, id, std::regex("Client id: (\\S+)")));
      ASSERT_TRUE(std::regex_search(out, token, std::regex("Token: +(\\S+)")));
      std::vector<std::string> arguments = envArguments;
      arguments.insert(arguments.end(), {"VELTO_CLIENT_ID=" + id[1].str(),
                                         "VELTO_CLIENT_TOKEN=" + token[1].str(), server.string()});
      running.push_back(std::async(std::launch::async, [arguments, session] {
        return velto::runProcess("/usr/bin/env", arguments, session);
      }));
    }
    for (auto& process : running) {
      const auto output = process.get();
      ASSERT_TRUE(output.ok());
      EXPECT_THAT(output->standardOutput, HasSubstr(R"("name":"list_tabs")"));
      EXPECT_THAT(output->standardOutput, ::testing::Not(HasSubstr("Connection not allowed.")));
    }
  }
}

}  // namespace
