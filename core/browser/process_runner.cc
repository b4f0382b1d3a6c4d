#include "core/browser/process_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

extern char** environ;

namespace velto {

namespace {

// Owns one file descriptor.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  ~Descriptor() { reset(); }

  int get() const { return fd_; }
  bool open() const { return fd_ >= 0; }
  void reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

// Moves `fd` above the standard descriptors and marks it close-on-exec: the child only
// keeps the copies dup2 gives it as 0, 1 and 2, and a pipe end that happened to be made
// as 0, 1 or 2 (this process closed its own) cannot be mistaken for one of them.
// (pipe2 would be simpler, but not every platform has it.)
bool prepare(int& fd) {
  const int moved = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
  ::close(fd);
  fd = moved;
  return fd >= 0;
}

bool makePipe(Descriptor& readEnd, Descriptor& writeEnd) {
  int fds[2];
  if (::pipe(fds) != 0) return false;
  const bool readOk = prepare(fds[0]);
  const bool writeOk = prepare(fds[1]);
  readEnd = Descriptor(fds[0]);
  writeEnd = Descriptor(fds[1]);
  return readOk && writeOk;
}

Error startFailure(const std::string& program, int error) {
  return platformError("Could not start " + program + ": " +
                       std::generic_category().message(error));
}

// Blocks SIGPIPE on this thread while it writes to a child that may have stopped
// reading; a SIGPIPE raised meanwhile is taken back before unblocking, so the write only
// fails with EPIPE and the process is never killed.
class SigpipeGuard {
 public:
  SigpipeGuard() {
    sigemptyset(&sigpipe_);
    sigaddset(&sigpipe_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &sigpipe_, &previous_);
  }
  ~SigpipeGuard() {
    sigset_t pending;
    sigemptyset(&pending);
    if (sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1 &&
        sigismember(&previous_, SIGPIPE) == 0) {
      int taken = 0;
      sigwait(&sigpipe_, &taken);
    }
    pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
  }

 private:
  sigset_t sigpipe_;
  sigset_t previous_;
};

using Clock = std::chrono::steady_clock;
using Deadline = std::optional<Clock::time_point>;

// Milliseconds left for poll: -1 (no limit) without a deadline, 0 once it has passed.
int pollTimeout(const Deadline& deadline) {
  if (!deadline) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
  return static_cast<int>(std::clamp<int64_t>(left.count(), 0, 60'000));
}

bool passed(const Deadline& deadline) { return deadline && Clock::now() >= *deadline; }

// Feeds `input` and drains both outputs together, so that a child writing much before
// reading (or the reverse) never deadlocks against a full pipe. Returns false when the
// deadline passed first. Every pipe end is closed on return: a child blocked on a full
// pipe (after a failed poll, say) then fails its write instead of waiting for ever while
// we wait for it.
bool exchange(Descriptor& in, std::string_view input, Descriptor& out, Descriptor& err,
              ProcessOutput& output, const Deadline& deadline) {
  SigpipeGuard guard;
  if (input.empty()) in.reset();
  if (in.open()) ::fcntl(in.get(), F_SETFL, ::fcntl(in.get(), F_GETFL) | O_NONBLOCK);
  size_t written = 0;
  std::array<char, 65536> buffer;
  const auto drain = [&buffer](const pollfd& polled, Descriptor& source, std::string& target) {
    if (polled.revents == 0) return;
    const ssize_t n = ::read(source.get(), buffer.data(), buffer.size());
    if (n > 0) {
      target.append(buffer.data(), static_cast<size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      source.reset();
    }
  };
  bool inTime = true;
  while (in.open() || out.open() || err.open()) {
    if (passed(deadline)) {
      inTime = false;
      break;
    }
    std::array<pollfd, 3> fds{
        {{in.get(), POLLOUT, 0}, {out.get(), POLLIN, 0}, {err.get(), POLLIN, 0}}};
    if (::poll(fds.data(), fds.size(), pollTimeout(deadline)) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    if (fds[0].revents != 0) {
      const ssize_t n = ::write(in.get(), input.data() + written, input.size() - written);
      if (n > 0) written += static_cast<size_t>(n);
      if ((n < 0 && errno != EAGAIN && errno != EINTR) || written == input.size()) in.reset();
    }
    drain(fds[1], out, output.standardOutput);
    drain(fds[2], err, output.standardError);
  }
  in.reset();
  out.reset();
  err.reset();
  return inTime;
}

// Waits for the child to end, until the deadline at most; then kills its whole process
// group (what it started may hold on to anything) and reaps it.
int waitForExit(pid_t pid, const Deadline& deadline, bool& killed) {
  int status = 0;
  const int flags = deadline ? WNOHANG : 0;
  while (true) {
    const pid_t reaped = ::waitpid(pid, &status, killed ? 0 : flags);
    if (reaped == pid) return status;
    if (reaped < 0 && errno != EINTR) return -1;
    if (reaped == 0) {
      if (passed(deadline)) {
        ::kill(-pid, SIGKILL);
        killed = true;
      } else {
        ::usleep(5000);
      }
    }
  }
}

}  // namespace

Result<ProcessOutput> runProcess(const std::string& program,
                                 const std::vector<std::string>& arguments, std::string_view input,
                                 std::optional<std::chrono::milliseconds> timeLimit) {
  const Deadline deadline =
      timeLimit ? Deadline(Clock::now() + *timeLimit) : Deadline(std::nullopt);
  Descriptor inRead, inWrite, outRead, outWrite, errRead, errWrite;
  if (!makePipe(inRead, inWrite) || !makePipe(outRead, outWrite) || !makePipe(errRead, errWrite)) {
    return startFailure(program, errno);
  }

  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, inRead.get(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, outWrite.get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errWrite.get(), STDERR_FILENO);
  // Its own process group, so that a time limit ends what it started too.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  posix_spawnattr_setpgroup(&attributes, 0);
  pid_t pid = 0;
  const int spawnError =
      ::posix_spawn(&pid, program.c_str(), &actions, &attributes, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (spawnError != 0) return startFailure(program, spawnError);

  // Only the child may hold these ends, or the outputs would never reach end of file.
  inRead.reset();
  outWrite.reset();
  errWrite.reset();

  ProcessOutput output;
  bool killed = false;
  if (!exchange(inWrite, input, outRead, errRead, output, deadline)) {
    ::kill(-pid, SIGKILL);
    killed = true;
  }
  const int status = waitForExit(pid, deadline, killed);
  if (status < 0) {
    return platformError("Lost track of " + program + ": " +
                         std::generic_category().message(errno));
  }
  output.timedOut = killed;
  output.exitStatus = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  return output;
}

}  // namespace velto
