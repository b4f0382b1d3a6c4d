// The built velto and VeltoMCP as processes: a client added with velto is accepted by a
// real server started with the printed configuration.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>

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

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

class VeltoProcessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* binaries = std::getenv("VELTO_BINARY_DIR");
    ASSERT_NE(binaries, nullptr) << "run through ctest";
    velto_ = fs::path(binaries) / "cli/velto";
    server_ = fs::path(binaries) / "server/VeltoMCP";
    char pattern[] = "/tmp/velto-process-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    env_ = {{"HOME", root_.string()}, {"XDG_DATA_HOME", (root_ / "data").string()}};
  }
  void TearDown() override { fs::remove_all(root_); }

  // Runs `program` with exactly `env` and `input` on stdin, until it exits.
  Outcome run(const fs::path& program, const std::vector<std::string>& args,
              const std::map<std::string, std::string>& env, const std::string& input = "") {
    std::ofstream(root_ / "stdin", std::ios::binary) << input;
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, (root_ / "stdin").c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, (root_ / "stdout").c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&files, 2, (root_ / "stderr").c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::vector<std::string> words{program.string()}, pairs;
    words.insert(words.end(), args.begin(), args.end());
    for (const auto& [name, value] : env) pairs.push_back(name + "=" + value);
    std::vector<char*> argv, envp;
    for (auto& word : words) argv.push_back(word.data());
    for (auto& pair : pairs) envp.push_back(pair.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    pid_t pid = 0;
    int status = 0;
    Outcome outcome;
    if (posix_spawn(&pid, program.c_str(), &files, nullptr, argv.data(), envp.data()) == 0 &&
        waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
      outcome = {WEXITSTATUS(status), readFile(root_ / "stdout"), readFile(root_ / "stderr")};
    }
    posix_spawn_file_actions_destroy(&files);
    return outcome;
  }
  Outcome velto(const std::vector<std::string>& args) { return run(velto_, args, env_); }

  fs::path velto_, server_, root_;
  std::map<std::string, std::string> env_;
};

TEST_F(VeltoProcessTest, ServerAcceptsTheAddedClientWithThePrintedConfiguration) {
  if (!fs::exists(server_)) GTEST_SKIP() << "VeltoMCP is not built";
  const Outcome added = velto({"clients", "add", "Process test"});
  ASSERT_EQ(added.status, 0) << added.err;
  const auto entry =
      nlohmann::json::parse(added.out.substr(added.out.find("\n{") + 1))["mcpServers"]["velto"];
  const fs::path command = entry["command"].get<std::string>();
  EXPECT_EQ(command, fs::canonical(server_));

  // What a client passes: a few variables of its own plus the configured ones.
  std::map<std::string, std::string> serverEnv{{"HOME", root_.string()}, {"PATH", "/usr/bin:/bin"}};
  for (const auto& [name, value] : entry["env"].items()) serverEnv[name] = value;
  const std::string initialize =
      R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25",)"
      R"("capabilities":{},"clientInfo":{"name":"test","version":"1"}}})"
      "\n";
  const Outcome accepted = run(command, {}, serverEnv, initialize);
  EXPECT_EQ(accepted.status, 0) << accepted.err;
  const auto reply = nlohmann::json::parse(accepted.out.substr(0, accepted.out.find('\n')));
  EXPECT_TRUE(reply.contains("result")) << accepted.out;
  EXPECT_FALSE(reply.contains("error")) << accepted.out;

  // The same server refuses the token with one digit changed.
  std::string& token = serverEnv["VELTO_CLIENT_TOKEN"];
  token[0] = token[0] == '0' ? '1' : '0';
  EXPECT_THAT(run(command, {}, serverEnv, initialize).out, HasSubstr("-32001"));
}

TEST_F(VeltoProcessTest, FailuresGoToStderrAndLeaveTheLibraryAlone) {
  const Outcome unknown = velto({"unknown"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_EQ(unknown.out, "");
  EXPECT_THAT(unknown.err, StartsWith("velto: unknown command"));

  const fs::path library = root_ / "data/Velto/library.json";
  fs::create_directories(library.parent_path());
  std::ofstream(library) << "{\"version\": 1, \"clients\": [";
  const Outcome corrupt = velto({"clients", "add", "x"});
  EXPECT_EQ(corrupt.status, 1);
  EXPECT_EQ(corrupt.out, "");
  EXPECT_EQ(readFile(library), "{\"version\": 1, \"clients\": [");
}

}  // namespace
