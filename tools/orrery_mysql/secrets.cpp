#include "secrets.h"

#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>

#include "failure.h"
#include "interrupt.h"
#include "posix.h"

namespace orrery::tool {
namespace {

void wipe(std::string& text) noexcept {
  // The whole capacity: a text that shrank leaves its tail behind.
  ::explicit_bzero(text.data(), text.capacity());
  text.clear();
}

/// Keeps what is typed from being shown for one scope.
class EchoOff {
 public:
  EchoOff() : changed_(::tcgetattr(STDIN_FILENO, &earlier_) == 0) {
    if (!changed_) throw Failure("the terminal cannot be kept from showing the password", errorText(errno));
    termios silent = earlier_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    silent.c_lflag |= ECHONL;
    if (::tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) != 0) {
      throw Failure("the terminal cannot be kept from showing the password", errorText(errno));
    }
  }
  ~EchoOff() { ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &earlier_); }
  EchoOff(const EchoOff&) = delete;
  EchoOff& operator=(const EchoOff&) = delete;

 private:
  termios earlier_{};
  bool changed_;
};

/// Waits until there is something to read. The wait is in short pieces because a signal may come just before one of
/// them, and must not be noticed only with the next byte.
void waitForInput(int descriptor, const std::string& source) {
  constexpr int kPieceMilliseconds = 200;
  for (;;) {
    pollfd polled{descriptor, POLLIN, 0};
    const int ready = ::poll(&polled, 1, kPieceMilliseconds);
    const int reason = errno;
    if (interruptSignal() != 0) throw Interrupted();
    if (ready > 0) return;
    if (ready < 0 && reason != EINTR) throw Failure("nothing can be read from " + source, errorText(reason));
  }
}

/// What the descriptor holds, up to one byte more than a password with its newline may have.
Secret readLimited(int descriptor, const std::string& source) {
  std::array<char, kLongestPassword + 3> buffer{};
  std::size_t size = 0;
  while (size < buffer.size()) {
    waitForInput(descriptor, source);
    const ssize_t count = ::read(descriptor, buffer.data() + size, buffer.size() - size);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (count < 0) throw Failure("the password cannot be read from " + source, errorText(errno));
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
  }
  Secret result(std::string(buffer.data(), size));
  ::explicit_bzero(buffer.data(), buffer.size());
  return result;
}

Secret checked(const Secret& raw, const std::string& source) {
  std::string_view text = raw.text();
  if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  const std::string what = "the password in " + source + " is refused";
  if (text.empty()) throw Failure(what, "it is empty", "--no-password stores none");
  if (text.size() > kLongestPassword) {
    throw Failure(what, "it is longer than " + std::to_string(kLongestPassword) + " bytes");
  }
  if (text.find_first_of(std::string_view("\0\r\n", 3)) != std::string_view::npos) {
    throw Failure(what, "it holds a line break or a null", "give a file with the password alone");
  }
  return Secret(std::string(text));
}

void say(std::string_view text) {
  if (::write(STDERR_FILENO, text.data(), text.size()) < 0)
    throw Failure("the terminal cannot be asked", errorText(errno));
}

/// One line from the terminal, with its newline.
Secret readLine() {
  waitForInput(STDIN_FILENO, "the terminal");
  std::array<char, kLongestPassword + 3> buffer{};
  const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
  if (count < 0) throw Failure("nothing can be read from the terminal", errorText(errno));
  Secret line(std::string(buffer.data(), static_cast<std::size_t>(count)));
  ::explicit_bzero(buffer.data(), buffer.size());
  return line;
}

}  // namespace

Secret::~Secret() {
  wipe(text_);
}

// A short text stays behind in the object that it is moved out of, so that one is wiped as well.
Secret::Secret(Secret&& other) noexcept : text_(std::move(other.text_)) {
  wipe(other.text_);
}

Secret& Secret::operator=(Secret&& other) noexcept {
  if (this != &other) {
    wipe(text_);
    text_ = std::move(other.text_);
    wipe(other.text_);
  }
  return *this;
}

Secret readPasswordFile(const std::string& path) {
  // Without waiting, because a named pipe that nobody writes to yet would hold the program in `open`.
  const OwnFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (!file.valid()) throw Failure("the password file " + path + " cannot be opened", errorText(errno));
  return checked(readLimited(file.get(), path), path);
}

Secret readPasswordFromStandardInput() {
  return checked(readLimited(STDIN_FILENO, "standard input"), "standard input");
}

Secret askForPassword(const std::string& prompt) {
  if (::isatty(STDIN_FILENO) != 1) {
    throw WrongUsage(
        "there is no terminal to ask for the password: give --password-file, --password-stdin or --no-password");
  }
  const EchoOff echoOff;
  say(prompt);
  return checked(readLine(), "the answer");
}

bool askYesOrNo(const std::string& question, const std::string& instead) {
  if (::isatty(STDIN_FILENO) != 1) throw WrongUsage("there is no terminal to ask: give " + instead);
  say(question + " [y/N] ");
  const Secret answer = readLine();
  return !answer.text().empty() && (answer.text().front() == 'y' || answer.text().front() == 'Y');
}

}  // namespace orrery::tool
