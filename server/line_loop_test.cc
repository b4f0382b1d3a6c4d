#include "server/line_loop.h"

#include <gtest/gtest.h>

#include <sstream>

namespace velto {
namespace {

using Lines = std::vector<std::string>;

// An output buffer that records each write it is given separately, after refusing the
// first `failures` writes.
class RecordingOutput : public std::streambuf {
 public:
  Lines writes;
  int failures = 0;

 protected:
  std::streamsize xsputn(const char* data, std::streamsize count) override {
    if (failures > 0 && failures--) return 0;
    writes.emplace_back(data, static_cast<size_t>(count));
    return count;
  }
};

// Runs the loop over `input` with a handler that answers "<line>" (its first 8 bytes),
// except that lines starting with "n" get no answer; returns the writes made, and adds
// what the loop told its diagnostics to `told`.
Lines run(const std::string& input, int failingWrites = 0, Lines* told = nullptr) {
  RecordingOutput output;
  output.failures = failingWrites;
  std::ostream out(&output);
  std::istringstream in(input);
  EXPECT_EQ(runLineLoop(
                in, out,
                [](std::string_view line) -> std::optional<std::string> {
                  if (line.starts_with("n")) return std::nullopt;
                  return "<" + std::string(line.substr(0, 8)) + ">";
                },
                [told](std::string_view message) {
                  if (told) told->emplace_back(message);
                }),
            0);
  return output.writes;
}

TEST(LineLoopTest, FramesLinesAndWritesEachAnswerOnce) {
  for (const auto& [input, writes] : std::vector<std::pair<std::string, Lines>>{
           {"", {}},
           {"a\r\nb\r", {"<a>\n", "<b\r>\n"}},  // a CR is stripped only before a LF
           {"a\r\r\n", {"<a\r>\n"}},
           {"x\ry\n\n", {"<x\ry>\n", "<>\n"}},  // empty lines are answered too
           {"note\nb\n", {"<b>\n"}},            // no answer, no line
           {"a\xff"
            "b\n",
            {"<a\xEF\xBF\xBD"
             "b>\n"}},
       }) {
    EXPECT_EQ(run(input), writes) << input;
  }
  EXPECT_EQ(run("a\nb\n", 1), Lines{"<b>\n"});  // a failed write does not stop the next
}

TEST(LineLoopTest, DropsLinesOverTheLimitAndServesTheNext) {
  const std::string longest(kMaxLineBytes, 'x');
  for (const auto& [line, dropped] : std::vector<std::pair<std::string, std::string>>{
           {longest, ""},
           {longest + "\r", ""},
           {longest + "x", "1048577"},
           {longest + "x\r", "1048578"},
           {longest + std::string(5'000'000, 'y'), "6048576"},
           // Each invalid byte becomes the three bytes of U+FFFD.
           {std::string(kMaxLineBytes / 3 + 1, '\xff'), "1048578"},
           {std::string(kMaxLineBytes / 3, '\xff') + "x\r", ""},
       }) {
    Lines told;
    EXPECT_EQ(run(line + "\nafter\n", 0, &told).size(), dropped.empty() ? 2u : 1u) << line.size();
    // A dropped line is told once, with its length in bytes.
    EXPECT_EQ(told, dropped.empty() ? Lines{}
                                    : Lines{"dropped a line of " + dropped +
                                            " bytes without answering it: lines longer than "
                                            "1048576 bytes are not read"})
        << line.size();
  }
}

TEST(LineLoopTest, DiagnosticLinesAreOneLineOfValidUTF8) {
  std::ostringstream err;
  const Diagnostics tell = diagnosticLines(err, "VeltoMCP");
  tell("a\nb\r\x01 \xff");
  tell("");
  EXPECT_EQ(err.str(), "VeltoMCP: a b   \xEF\xBF\xBD\nVeltoMCP: \n");
}

}  // namespace
}  // namespace velto
