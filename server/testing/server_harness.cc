#include "server/testing/server_harness.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>

#include "core/model/library_codec.h"
#include "core/model/library_store.h"

namespace velto::testing {

namespace fs = std::filesystem;

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
  std::ifstream file(std::string(VELTO_SERVER_SOURCE_DIR) + "/testing/library.json");
  std::stringstream text;
  text << file.rdbuf();
  std::string library = text.str();
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

ProcessOutput ServerHarness::run(std::string_view input) const {
  const char* buildTree = std::getenv("VELTO_BINARY_DIR");
  EXPECT_NE(buildTree, nullptr) << "VELTO_BINARY_DIR must name the build tree";
  // env -i: the server sees exactly these variables, as a client would start it.
  std::vector<std::string> arguments{"-i"};
  for (const auto& [name, value] : environment) arguments.push_back(name + "=" + value);
  arguments.push_back((fs::path(buildTree ? buildTree : ".") / "server" / "VeltoMCP").string());
  Result<ProcessOutput> output = runProcess("/usr/bin/env", arguments, input);
  EXPECT_TRUE(output.ok()) << output.error().message;
  return output.ok() ? *output : ProcessOutput{-1, "", ""};
}

}  // namespace velto::testing
