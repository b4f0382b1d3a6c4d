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
// except that lines starting with "n" get no answer; returns the writes made.
Lines run(const std::string& input, int failingWrites = 0) {
  RecordingOutput output;
  output.failures = failingWrites;
  std::ostream out(&output);
  std::istringstream in(input);
  EXPECT_EQ(runLineLoop(in, out,
                        [](std::string_view line) -> std::optional<std::string> {
                          if (line.starts_with("n")) return std::nullopt;
                          return "<" + std::string(line.substr(0, 8)) + ">";
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
  for (const auto& [line, answered] : std::vector<std::pair<std::string, bool>>{
           {longest, true},
           {longest + "\r", true},
           {longest + "x", false},
           {longest + "x\r", false},
           {longest + std::string(5'000'000, 'y'), false},
           // Each invalid byte becomes the three bytes of U+FFFD.
           {std::string(kMaxLineBytes / 3 + 1, '\xff'), false},
           {std::string(kMaxLineBytes / 3, '\xff') + "x\r", true},
       }) {
    EXPECT_EQ(run(line + "\nafter\n").size(), answered ? 2u : 1u) << line.size();
  }
}

}  // namespace
}  // namespace velto
