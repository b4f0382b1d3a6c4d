#include "server/line_loop.h"

#include <gtest/gtest.h>
#include <unistd.h>

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
  int_type overflow(int_type c) override {
    writes.emplace_back(1, traits_type::to_char_type(c));
    return c;
  }
};

class LineLoopTest : public ::testing::Test {
 protected:
  // Runs the loop over `input`; the handler echoes each line as "<line>" and answers
  // nothing for lines starting with "n".
  std::vector<std::string> run(const std::string& input) {
    std::istringstream in(input);
    std::ostream out(&output_);
    EXPECT_EQ(runLineLoop(in, out,
                          [this](std::string_view line) -> std::optional<std::string> {
                            seen_.emplace_back(line);
                            if (line.starts_with("n")) return std::nullopt;
                            return "<" + std::string(line.substr(0, 20)) + ">";
                          }),
              0);
    return output_.writes;
  }

  RecordingOutput output_;
  std::vector<std::string> seen_;
};

using Lines = std::vector<std::string>;

TEST_F(LineLoopTest, FramesLinesAndWritesEachAnswerOnce) {
  struct Case {
    std::string input;
    Lines writes;
  };
  for (const Case& c : std::vector<Case>{
           {"", {}},
           {"a\nb\n", {"<a>\n", "<b>\n"}},
           {"a\r\nb", {"<a>\n", "<b>\n"}},  // CR LF; last line without LF
           {"a\r\r\n", {"<a\r>\n"}},        // only one CR belongs to the end
           {"x\ry\n", {"<x\ry>\n"}},        // a lone CR is text
           {"\n\r\n", {"<>\n", "<>\n"}},    // empty lines are answered
           {"note\nb\n", {"<b>\n"}},        // no answer, no line
           {"a\xff"
            "b\n",
            {"<a\xEF\xBF\xBD"
             "b>\n"}},  // invalid UTF-8 replaced
       }) {
    output_.writes.clear();
    EXPECT_EQ(run(c.input), c.writes) << c.input;
  }
}

TEST_F(LineLoopTest, DropsLinesOverTheLimitAndServesTheNext) {
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
           // Each invalid byte becomes the three bytes of U+FFFD: 349,526 of them are too many.
           {std::string(kMaxLineBytes / 3 + 1, '\xff'), false},
           {std::string(kMaxLineBytes / 3, '\xff') + "x\r", true},
       }) {
    seen_.clear();
    output_.writes.clear();
    const Lines writes = run(c.line + "\nafter\n");
    EXPECT_EQ(writes.size(), c.answered ? 2u : 1u) << c.line.size();
    EXPECT_EQ(writes.back(), "<after>\n");
    if (c.answered) {
      EXPECT_LE(seen_.front().size(), kMaxLineBytes);
    }
  }
}

TEST(FileDescriptorOutputTest, WritesWholeLinesToThePipe) {
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  {
    FileDescriptorOutput buffer(fds[1]);
    std::ostream out(&buffer);
    std::istringstream in("one\ntwo\n");
    runLineLoop(in, out, [](std::string_view line) { return std::optional<std::string>(line); });
  }
  ::close(fds[1]);
  char bytes[64];
  const ssize_t n = ::read(fds[0], bytes, sizeof bytes);
  ::close(fds[0]);
  EXPECT_EQ(std::string(bytes, static_cast<size_t>(std::max<ssize_t>(n, 0))), "one\ntwo\n");
}

}  // namespace
}  // namespace velto
