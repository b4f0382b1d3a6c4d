#pragma once

#include <cstddef>
#include <functional>
#include <istream>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

#include "core/support/diagnostics.h"

namespace velto {

// Longest line, in UTF-8 bytes after invalid sequences are replaced, that is answered.
inline constexpr size_t kMaxLineBytes = 1'048'576;

// Answers one line (without its line end): the response bytes, or absent for none.
using LineHandler = std::function<std::optional<std::string>(std::string_view line)>;

// Reads `in` line by line until it ends and writes each answer followed by one line
// feed to `out`, as a single write, flushed before the next line is read. A line ends at
// LF; a CR before the LF is not part of it, and a last line without LF still counts.
// Invalid UTF-8 in a line is replaced by U+FFFD before its length is measured; a line
// longer than kMaxLineBytes is dropped unanswered, and is never held in memory whole; each
// such line is told to `diagnostics` with its length. Write failures are ignored. Returns
// the process exit status: always 0.
int runLineLoop(std::istream& in, std::ostream& out, const LineHandler& handle,
                const Diagnostics& diagnostics = {});

// Diagnostics as lines on `err`: "<program>: " and the message made valid UTF-8 with
// control characters as spaces, then one line feed, written and flushed at once.
Diagnostics diagnosticLines(std::ostream& err, std::string_view program);

// An unbuffered output stream buffer over a file descriptor: every write of the stream
// becomes one write(2) of all its bytes (repeated only if the system writes part of them).
// Does not own the descriptor.
class FileDescriptorOutput : public std::streambuf {
 public:
  explicit FileDescriptorOutput(int fd) : fd_(fd) {}

 protected:
  std::streamsize xsputn(const char* data, std::streamsize count) override;
  int_type overflow(int_type c) override;

 private:
  int fd_;
};

}  // namespace velto
