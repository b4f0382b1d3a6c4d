#include "server/line_loop.h"

#include <gtest/gtest.h>

#include <sstream>

namespace velto {
namespace {

// An output buffer that records each write it is given separately.
class RecordingOutput : public std::streambuf {
 public:
  std::vector<std::string> writes;

 protected:
  std::streamsize xsputn(const char* data, std::streamsize count) override {
    writes.emplace_back(data, static_cast<size_t>(count));
    return count;
  }
};

using Lines = std::vector<std::string>;

// Runs the loop over `input` with a handler that answers "<line>", except that lines
// starting with "n" get no answer; returns the writes made.
Lines run(const std::string& input) {
  RecordingOutput output;
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
  struct Case {
    std::string input;
    Lines writes;
  };
  for (const Case& c : std::vector<Case>{
           {"", {}},
           {"a\r\nb", {"<a>\n", "<b>\n"}},      // CR LF; a last line without LF
           {"a\r\r\n", {"<a\r>\n"}},            // only one CR belongs to the line end
           {"x\ry\n\n", {"<x\ry>\n", "<>\n"}},  // a lone CR is text; empty lines count
           {"note\nb\n", {"<b>\n"}},            // no answer, no line
           {"a\xff"
            "b\n",
            {"<a\xEF\xBF\xBD"
             "b>\n"}},
       }) {
    EXPECT_EQ(run(c.input), c.writes) << c.input;
  }
}

TEST(LineLoopTest, DropsLinesOverTheLimitAndServesTheNext) {
  const std::string longest(kMaxLineBytes, 'x');
  struct Case {
    std::string line;
    bool answered;
  };
  for (const Case& c : std::vector<Case>{
           {longest, true},
           {longest + "\r", true},
           {longest + "x", false},
           {longest + "x\r", false},
           {longest + std::string(5'000'000, 'y'), false},
           // Each invalid byte becomes the three bytes of U+FFFD.
           {std::string(kMaxLineBytes / 3 + 1, '\xff'), false},
           {std::string(kMaxLineBytes / 3, '\xff') + "x\r", true},
       }) {
    const Lines writes = run(c.line + "\nafter\n");
    EXPECT_EQ(writes.size(), c.answered ? 2u : 1u) << c.line.size();
    EXPECT_EQ(writes.back(), "<after>\n");
  }
}

}  // namespace
}  // namespace velto
