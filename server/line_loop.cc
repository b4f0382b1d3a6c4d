#include "server/line_loop.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "core/support/text.h"

namespace velto {

namespace {

// Reads one line into `line`. Stops storing once the line is certainly too long (a CR
// may still follow the longest line, hence the one byte of slack) but keeps consuming
// it to its end, counting its bytes in `length`. Absent at end of input with nothing
// read; otherwise whether the line ended with LF (a last line may not).
std::optional<bool> readLine(std::streambuf& in, std::string& line, size_t& length) {
  line.clear();
  length = 0;
  bool readAny = false;
  for (int c = in.sbumpc(); c != std::char_traits<char>::eof(); c = in.sbumpc()) {
    readAny = true;
    if (c == '\n') return true;
    ++length;
    if (line.size() <= kMaxLineBytes) line.push_back(static_cast<char>(c));
  }
  return readAny ? std::optional(false) : std::nullopt;
}

void reportDropped(const Diagnostics& diagnostics, size_t length) {
  if (!diagnostics) return;
  diagnostics("dropped a line of " + std::to_string(length) + " bytes without answering it: " +
              "lines longer than " + std::to_string(kMaxLineBytes) + " bytes are not read");
}

}  // namespace

int runLineLoop(std::istream& in, std::ostream& out, const LineHandler& handle,
                const Diagnostics& diagnostics) {
  std::streambuf* input = in.rdbuf();
  if (input == nullptr) return 0;
  std::string line;
  size_t length = 0;
  for (std::optional<bool> endedWithLF; (endedWithLF = readLine(*input, line, length));) {
    // Only a CR before the LF belongs to the line end. (A line cut short is too long
    // with or without its CR.)
    if (*endedWithLF && length == line.size() && line.ends_with('\r')) {
      line.pop_back();
      --length;
    }
    if (length > kMaxLineBytes) {
      reportDropped(diagnostics, length);
      continue;
    }
    if (!isValidUTF8(line)) {
      // Replacing invalid bytes can only make the line longer, never shorter.
      line = sanitizedUTF8(line);
      if (line.size() > kMaxLineBytes) {
        reportDropped(diagnostics, line.size());
        continue;
      }
    }
    std::optional<std::string> response = handle(line);
    if (!response) continue;
    response->push_back('\n');
    out.write(response->data(), static_cast<std::streamsize>(response->size()));
    out.flush();
    out.clear();  // a failed write must not silence the answers that follow
  }
  return 0;
}

Diagnostics diagnosticLines(std::ostream& err, std::string_view program) {
  return [&err, prefix = std::string(program) + ": "](std::string_view message) {
    std::string line = prefix + sanitizedUTF8(message);
    std::replace_if(
        line.begin(), line.end(),
        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }, ' ');
    line.push_back('\n');
    err.write(line.data(), static_cast<std::streamsize>(line.size()));
    err.flush();
    err.clear();
  };
}

std::streamsize FileDescriptorOutput::xsputn(const char* data, std::streamsize count) {
  std::streamsize written = 0;
  while (written < count) {
    const ssize_t n = ::write(fd_, data + written, static_cast<size_t>(count - written));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    written += n;
  }
  return written;
}

FileDescriptorOutput::int_type FileDescriptorOutput::overflow(int_type c) {
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  const char byte = traits_type::to_char_type(c);
  return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
}

}  // namespace velto
