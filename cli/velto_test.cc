// The built velto and VeltoMCP as processes: a client added with velto is accepted by a
// real server started with the printed configuration.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using Environment = std::map<std::string, std::string>;

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
    char pattern[] = "/tmp/velto-process-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    env_ = {{"HOME", root_.string()}, {"XDG_DATA_HOME", (root_ / "data").string()}};
  }
  void TearDown() override { fs::remove_all(root_); }

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

  fs::path velto_, root_;
  Environment env_;
};

TEST_F(VeltoProcessTest, ServerAcceptsTheAddedClientWithThePrintedConfiguration) {
  const Outcome added = run(velto_, "clients add 'Process test'", env_);
  ASSERT_EQ(added.status, 0) << added.err;
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

  // The same server refuses the token with one digit changed.
  std::string& token = serverEnv["VELTO_CLIENT_TOKEN"];
  token[0] = token[0] == '0' ? '1' : '0';
  EXPECT_THAT(run(server, "", serverEnv, initialize).out, HasSubstr("-32001"));
}

TEST_F(VeltoProcessTest, InstalledItNamesTheServerBesideIt) {
  const fs::path bin = root_ / "prefix/bin";
  fs::create_directories(bin);
  fs::copy_file(velto_, bin / "velto");
  fs::copy_file(fs::canonical(velto_.parent_path() / "../server/VeltoMCP"), bin / "VeltoMCP");
  const Outcome added = run(bin / "velto", "clients add Installed", env_);
  ASSERT_EQ(added.status, 0) << added.err;
  EXPECT_EQ(added.err, "");
  EXPECT_THAT(added.out, HasSubstr("\"command\": \"" + (bin / "VeltoMCP").string() + "\""));

  const Outcome version = run(bin / "velto", "--version", env_);
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out, "velto " VELTO_VERSION "\n");
}

TEST_F(VeltoProcessTest, FailuresAreOneLineOnStderrWithTheirStatus) {
  struct Case {
    const char* words;
    const char* stdoutPath;
    int status;
    const char* err;
  };
  for (const Case& c :
       {Case{"unknown", "", 2, "velto: unknown command \"unknown\" (see \"velto --help\")\n"},
        Case{"clients list", "/dev/full", 1, "velto: could not write the output\n"},
        Case{"clients add x", "/dev/full", 1,
             "velto: could not write the token, so the client was not added\n"}}) {
    const Outcome outcome = run(velto_, c.words, env_, "", c.stdoutPath);
    EXPECT_EQ(outcome.status, c.status) << c.words;
    EXPECT_EQ(outcome.out, "") << c.words;
    EXPECT_EQ(outcome.err, c.err) << c.words;
  }
  EXPECT_EQ(run(velto_, "clients list", env_).out,
            "No clients. Add one with: velto clients add NAME\n");
}

}  // namespace
