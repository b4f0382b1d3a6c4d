#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace velto::testing {

// The whole of a file's bytes; empty when it cannot be read.
inline std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// A fixture whose every test gets a fresh folder of its own, `root_`, removed with all
// it holds when the test ends.
class TempDirTest : public ::testing::Test {
 protected:
  TempDirTest() {
    std::string pattern = "/tmp/velto-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    root_ = pattern;
  }
  ~TempDirTest() override {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }

  std::filesystem::path root_;
};

}  // namespace velto::testing
