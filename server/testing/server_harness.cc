#include "server/testing/server_harness.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "core/model/library_codec.h"
#include "core/model/library_store.h"
#include "core/support/testing/files.h"

namespace velto::testing {

namespace fs = std::filesystem;

namespace {

// The VeltoMCP of the build tree that runs the tests.
std::string serverBinary() {
  const char* buildTree = std::getenv("VELTO_BINARY_DIR");
  EXPECT_NE(buildTree, nullptr) << "VELTO_BINARY_DIR must name the build tree";
  return (fs::path(buildTree ? buildTree : ".") / "server" / "VeltoMCP").string();
}

}  // namespace

ServerHarness::ServerHarness() {
  std::string pattern = (fs::temp_directory_path() / "velto-mcp-home.XXXXXX").string();
  home = ::mkdtemp(pattern.data());
  bin = home / "bin";
  libraryFile = home / "data" / "Velto" / "library.json";
  fs::create_directories(bin);
  fs::create_directories(libraryFile.parent_path());
  environment = {{"HOME", home.string()},
                 {"XDG_DATA_HOME", (home / "data").string()},
                 {"PATH", bin.string() + ":/usr/bin:/bin"},
                 {"VELTO_CLIENT_ID", kOpenerID},
                 {"VELTO_CLIENT_TOKEN", kOpenerToken}};
  liveUpdatedAt = formatISO8601(now());
  std::ofstream(libraryFile) << sampleLibraryText();
}

ServerHarness::~ServerHarness() {
  std::error_code ignored;
  fs::remove_all(home, ignored);
}

std::string ServerHarness::sampleLibraryText() const {
  std::string library = readFile(std::string(VELTO_SERVER_SOURCE_DIR) + "/testing/library.json");
  library.replace(library.find("$LIVE_UPDATED_AT"), 16, liveUpdatedAt);
  return library;
}

LibraryState ServerHarness::sampleLibrary() const {
  return decodeLibrary(sampleLibraryText()).value();
}

void ServerHarness::saveLibrary(const LibraryState& state) const {
  const Result<void> saved = LibraryStore(libraryFile.parent_path()).save(state);
  ASSERT_TRUE(saved.ok()) << saved.error().message;
}

ProcessOutput ServerHarness::run(std::string_view input,
                                 const std::vector<std::string>& arguments) const {
  // env -i: the server sees exactly these variables, as a client would start it.
  std::vector<std::string> words{"-i"};
  for (const auto& [name, value] : environment) words.push_back(name + "=" + value);
  words.push_back(serverBinary());
  words.insert(words.end(), arguments.begin(), arguments.end());
  Result<ProcessOutput> output = runProcess("/usr/bin/env", words, input);
  EXPECT_TRUE(output.ok()) << output.error().message;
  return output.ok() ? *output : ProcessOutput{-1, "", ""};
}

ServerSession::ServerSession(const ServerHarness& harness) {
  int in[2], out[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) std::abort();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  std::vector<std::string> environment;
  for (const auto& [name, value] : harness.environment) environment.push_back(name + "=" + value);
  std::vector<char*> envp;
  for (std::string& variable : environment) envp.push_back(variable.data());
  envp.push_back(nullptr);
  std::string binary = serverBinary();
  char* argv[] = {binary.data(), nullptr};
  if (::posix_spawn(&pid_, binary.c_str(), &actions, nullptr, argv, envp.data()) != 0) {
    std::abort();
  }
  posix_spawn_file_actions_destroy(&actions);
  ::close(in[0]);
  ::close(out[1]);
  in_ = in[1];
  out_ = out[0];
}

ServerSession::~ServerSession() {
  ::close(in_);
  ::close(out_);
  ::waitpid(pid_, nullptr, 0);
}

std::string ServerSession::ask(std::string_view lines, int answers) {
  if (::write(in_, lines.data(), lines.size()) != static_cast<ssize_t>(lines.size())) {
    return "(write failed)";
  }
  std::string answer;
  while (answers > 0) {
    char byte;
    if (::read(out_, &byte, 1) != 1) return answer + "(server gone)";
    answer += byte;
    if (byte == '\n') --answers;
  }
  return answer;
}

}  // namespace velto::testing
