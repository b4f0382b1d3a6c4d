// The built velto and VeltoMCP as processes: a client added with velto is accepted by a
// real server started with the printed configuration.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;

struct Outcome {
  int status = -1;
  std::string out, err;
};

// Runs `program` with exactly `env`, feeds it `input` and closes its stdin, and collects
// its output until it exits.
Outcome runProcess(const fs::path& program, const std::vector<std::string>& args,
                   const std::map<std::string, std::string>& env, const std::string& input = "") {
  int in[2], out[2], err[2];
  if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0) return {};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err[1], 2);
  for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) {
    posix_spawn_file_actions_addclose(&actions, fd);
  }
  std::vector<std::string> argvText{program.string()};
  argvText.insert(argvText.end(), args.begin(), args.end());
  std::vector<std::string> envText;
  for (const auto& [name, value] : env) envText.push_back(name + "=" + value);
  std::vector<char*> argv, envp;
  for (auto& text : argvText) argv.push_back(text.data());
  for (auto& text : envText) envp.push_back(text.data());
  argv.push_back(nullptr);
  envp.push_back(nullptr);
  pid_t pid = 0;
  const int spawned =
      posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  close(out[1]);
  close(err[1]);
  Outcome outcome;
  if (spawned == 0) {
    // Small inputs fit in the pipe, so writing all before reading cannot block.
    [[maybe_unused]] const ssize_t written = write(in[1], input.data(), input.size());
  }
  close(in[1]);
  pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
  std::string* sinks[2] = {&outcome.out, &outcome.err};
  int open = 2;
  while (open > 0 && poll(fds, 2, 10000) > 0) {
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      char buffer[4096];
      const ssize_t got = read(fds[i].fd, buffer, sizeof buffer);
      if (got > 0) {
        sinks[i]->append(buffer, static_cast<size_t>(got));
      } else {
        close(fds[i].fd);
        fds[i].fd = -1;
        --open;
      }
    }
  }
  for (const pollfd& fd : fds) {
    if (fd.fd >= 0) close(fd.fd);
  }
  int status = 0;
  if (spawned == 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
    outcome.status = WEXITSTATUS(status);
  }
  return outcome;
}

class VeltoProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* binaries = std::getenv("VELTO_BINARY_DIR");
    ASSERT_NE(binaries, nullptr) << "run through ctest";
    velto_ = fs::path(binaries) / "cli/velto";
    server_ = fs::path(binaries) / "server/VeltoMCP";
    ASSERT_TRUE(fs::exists(velto_));
    char pattern[] = "/tmp/velto-process-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    env_ = {{"HOME", root_.string()},
            {"XDG_DATA_HOME", (root_ / "data").string()},
            {"PATH", "/usr/bin:/bin"}};
  }
  void TearDown() override { fs::remove_all(root_); }

  Outcome velto(const std::vector<std::string>& args) { return runProcess(velto_, args, env_); }
  fs::path libraryFile() const { return root_ / "data/Velto/library.json"; }

  fs::path velto_, server_, root_;
  std::map<std::string, std::string> env_;
};

TEST_F(VeltoProcessTest, ServerAcceptsTheAddedClientWithThePrintedConfiguration) {
  if (!fs::exists(server_)) GTEST_SKIP() << "VeltoMCP is not built";
  const Outcome added = velto({"clients", "add", "Process test"});
  ASSERT_EQ(added.status, 0) << added.err;
  const auto config = nlohmann::json::parse(added.out.substr(added.out.find("\n{") + 1));
  const auto& entry = config["mcpServers"]["velto"];
  EXPECT_EQ(fs::path(entry["command"].get<std::string>()), fs::canonical(server_));

  // What a client passes: a few variables of its own plus the configured ones.
  std::map<std::string, std::string> serverEnv{{"HOME", root_.string()}, {"PATH", "/usr/bin:/bin"}};
  for (const auto& [name, value] : entry["env"].items()) serverEnv[name] = value;
  const std::string initialize =
      R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25",)"
      R"("capabilities":{},"clientInfo":{"name":"test","version":"1"}}})"
      "\n";
  const Outcome accepted =
      runProcess(entry["command"].get<std::string>(), {}, serverEnv, initialize);
  EXPECT_EQ(accepted.status, 0) << accepted.err;
  const auto reply = nlohmann::json::parse(accepted.out.substr(0, accepted.out.find('\n')));
  EXPECT_TRUE(reply.contains("result")) << accepted.out;
  EXPECT_FALSE(reply.contains("error")) << accepted.out;

  // The same server refuses a token that differs in one digit.
  std::string& token = serverEnv["VELTO_CLIENT_TOKEN"];
  token[0] = token[0] == '0' ? '1' : '0';
  const Outcome refused =
      runProcess(entry["command"].get<std::string>(), {}, serverEnv, initialize);
  EXPECT_THAT(refused.out, HasSubstr("-32001"));
}

TEST_F(VeltoProcessTest, FailuresGoToStderrAndLeaveTheLibraryAlone) {
  const Outcome unknown = velto({"unknown"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(unknown.out, "");
  EXPECT_THAT(unknown.err, StartsWith("velto: unknown command"));

  fs::create_directories(libraryFile().parent_path());
  std::ofstream(libraryFile()) << "{\"version\": 1, \"clients\": [";
  const Outcome corrupt = velto({"clients", "add", "x"});
  EXPECT_EQ(corrupt.status, 1);
  EXPECT_EQ(corrupt.out, "");
  std::ifstream in(libraryFile());
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "{\"version\": 1, \"clients\": [");

  const Outcome help = velto({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.out, StartsWith("Usage: velto"));
}

TEST_F(VeltoProcessTest, WrittenLibraryIsPrivate) {
  ASSERT_EQ(velto({"clients", "add", "x"}).status, 0);
  EXPECT_EQ(fs::status(libraryFile()).permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(fs::status(libraryFile().parent_path()).permissions(), fs::perms::owner_all);
  const Outcome listed = velto({"clients", "list"});
  EXPECT_EQ(listed.status, 0);
  EXPECT_EQ(std::count(listed.out.begin(), listed.out.end(), '\n'), 2) << listed.out;
}

}  // namespace
