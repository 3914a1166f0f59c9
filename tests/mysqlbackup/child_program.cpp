#include "child_program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

namespace orrery::standin {
namespace {

using platform::aboveStandardStreams;
using platform::OwnFd;

constexpr int pipeSize = 1 << 20;  ///< what an ordinary user may ask for
constexpr std::size_t linesToKeep = 3;
constexpr std::size_t longestLine = 4096;

struct Pipe {
  explicit Pipe(int size = 0) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw systemFailure("make a pipe", errno);
    reading = OwnFd(aboveStandardStreams(ends[0]));
    writing = OwnFd(aboveStandardStreams(ends[1]));
    if (!reading || !writing) throw systemFailure("make a pipe", errno);
    // A small one works too, only slower.
    if (size > 0) ::fcntl(writing.get(), F_SETPIPE_SZ, size);
  }
  OwnFd reading;
  OwnFd writing;
};

void doNotBlock(const OwnFd& fd) {
  if (::fcntl(fd.get(), F_SETFL, O_NONBLOCK) != 0) throw systemFailure("set up a pipe", errno);
}

std::string findInPath(const std::string& name) {
  const char* const path = ::secure_getenv("PATH");
  std::string_view folders = path != nullptr ? path : "/usr/bin:/bin";
  while (!folders.empty()) {
    const std::string_view folder = folders.substr(0, folders.find(':'));
    folders.remove_prefix(std::min(folder.size() + 1, folders.size()));
    std::string file = std::string(folder) + "/" + name;
    if (::access(file.c_str(), X_OK) == 0) return file;
  }
  throw Failure(name + " is not installed: it is not found in PATH");
}

/// In the child, between fork and exec: system calls only.
[[noreturn]] void becomeProgram(const char* file, char* const* argv, const int (&streams)[3], pid_t parent) {
  for (int i = 0; i < 3; ++i)
    if (::dup2(streams[i], i) < 0) ::_exit(127);
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(127);
  ::signal(SIGPIPE, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
  ::execv(file, argv);
  ::_exit(127);
}

std::string endingOf(int status) {
  if (WIFSIGNALED(status)) return "was ended by signal " + std::to_string(WTERMSIG(status));
  if (WEXITSTATUS(status) == 127) return "could not be started";
  return "failed with exit status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

ChildProgram::ChildProgram(const std::vector<std::string>& arguments, Streams streams, const Ending& ending)
    : name_(arguments.at(0)), ending_(ending) {
  const OwnFd nothing(aboveStandardStreams(::open("/dev/null", O_RDWR | O_CLOEXEC)));
  if (!nothing) throw systemFailure("open /dev/null", errno);
  Pipe errors;
  doNotBlock(errors.reading);
  errors_ = std::move(errors.reading);
  if (streams == Streams::none) {
    start(arguments, nothing.get(), nothing.get(), errors.writing.get());
    return;
  }
  Pipe data(pipeSize);
  const bool reads = streams == Streams::output;
  stream_ = std::move(reads ? data.reading : data.writing);
  doNotBlock(stream_);
  start(arguments, reads ? nothing.get() : data.reading.get(), reads ? data.writing.get() : nothing.get(),
        errors.writing.get());
}

void ChildProgram::start(const std::vector<std::string>& arguments, int input, int output, int errors) {
  const std::string file = findInPath(name_);
  std::vector<std::string> texts = arguments;
  std::vector<char*> argv;
  argv.reserve(texts.size() + 1);
  for (std::string& text : texts) argv.push_back(text.data());
  argv.push_back(nullptr);
  const int streams[3] = {input, output, errors};
  const pid_t self = ::getpid();
  pid_ = ::fork();
  if (pid_ == 0) becomeProgram(file.c_str(), argv.data(), streams, self);
  if (pid_ < 0) throw systemFailure("start " + name_, errno);
  ended_ = OwnFd(aboveStandardStreams(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0))));
  if (ended_) return;
  const int error = errno;
  ::kill(pid_, SIGKILL);
  reap();
  throw systemFailure("watch " + name_, error);
}

ChildProgram::~ChildProgram() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  reap();
}

int ChildProgram::reap() noexcept {
  int status = 0;
  while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  return status;
}

void ChildProgram::waitFor(int fd, short events) {
  while (true) {
    std::array<pollfd, 3> all{{{fd, events, 0}, {errors_.get(), POLLIN, 0}, {ending_.fd(), POLLIN, 0}}};
    if (::poll(all.data(), all.size(), -1) < 0) {
      if (errno == EINTR) continue;
      throw systemFailure("wait for " + name_, errno);
    }
    if (all[2].revents != 0) ending_.check();
    if (all[1].revents != 0) passOn();
    if (all[0].revents != 0) return;
  }
}

std::size_t ChildProgram::read(char* buffer, std::size_t size) {
  std::size_t filled = 0;
  while (filled < size) {
    const ssize_t count = ::read(stream_.get(), buffer + filled, size - filled);
    if (count == 0) return filled;
    if (count > 0) {
      filled += static_cast<std::size_t>(count);
    } else if (errno == EAGAIN) {
      waitFor(stream_.get(), POLLIN);
    } else if (errno != EINTR) {
      throw systemFailure("read from " + name_, errno);
    }
  }
  return filled;
}

void ChildProgram::write(const char* bytes, std::size_t size) {
  for (std::size_t done = 0; done < size;) {
    const ssize_t count = ::write(stream_.get(), bytes + done, size - done);
    if (count >= 0) {
      done += static_cast<std::size_t>(count);
    } else if (errno == EAGAIN) {
      waitFor(stream_.get(), POLLOUT);
    } else if (errno == EPIPE) {
      finish();
      throw Failure(name_ + " ended before it had read everything");
    } else if (errno != EINTR) {
      throw systemFailure("write to " + name_, errno);
    }
  }
}

void ChildProgram::finish() {
  stream_ = OwnFd();
  waitFor(ended_.get(), POLLIN);
  const int status = reap();
  passOn();
  if (!line_.empty()) passOnLine(line_);
  if (status != 0) throw Failure(name_ + " " + endingOf(status) + lastWords());
}

void ChildProgram::passOn() {
  std::array<char, 8192> buffer;
  while (errors_) {
    const ssize_t count = ::read(errors_.get(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) return;
    if (count <= 0) {
      errors_ = OwnFd();  // which poll then leaves out
      return;
    }
    for (const char character : std::string_view(buffer.data(), static_cast<std::size_t>(count))) {
      if (character != '\n') line_ += character;
      if (character != '\n' && line_.size() < longestLine) continue;
      passOnLine(line_);
      line_.clear();
    }
  }
}

void ChildProgram::passOnLine(const std::string& line) {
  say(name_ + ": " + line);
  lastLines_.push_back(line);
  if (lastLines_.size() > linesToKeep) lastLines_.pop_front();
}

std::string ChildProgram::lastWords() const {
  std::string words;
  for (const std::string& line : lastLines_) words += (words.empty() ? "; its last words: " : " | ") + line;
  return words;
}

void runChild(const std::vector<std::string>& arguments, const Ending& ending) {
  ChildProgram(arguments, ChildProgram::Streams::none, ending).finish();
}

std::string outputOf(const std::vector<std::string>& arguments, const Ending& ending) {
  ChildProgram program(arguments, ChildProgram::Streams::output, ending);
  std::string output(65536, '\0');
  output.resize(program.read(output.data(), output.size()));
  program.finish();
  return output;
}

}  // namespace orrery::standin
