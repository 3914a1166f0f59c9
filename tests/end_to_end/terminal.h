#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "support/program.h"

namespace orrery::test {

/// Both ends of a terminal.
class Terminal {
 public:
  Terminal() : master_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    char name[128] = {};
    if (master_ < 0 || ::grantpt(master_) != 0 || ::unlockpt(master_) != 0 ||
        ::ptsname_r(master_, name, sizeof name) != 0)
      throw std::runtime_error("no terminal");
    slave_ = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  }
  ~Terminal() {
    ::close(slave_);
    ::close(master_);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ProgramOptions asInput() const { return {.standardInput = slave_}; }
  ProgramOptions asErrors() const { return {.standardError = slave_}; }
  bool echoes() const {
    termios state{};
    return ::tcgetattr(slave_, &state) == 0 && (state.c_lflag & ECHO) != 0;
  }
  void type(const std::string& text) const {
    ASSERT_EQ(::write(master_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  /// What the screen shows by now.
  std::string shown() const {
    ::fcntl(master_, F_SETFL, O_NONBLOCK);
    char buffer[4096];
    const ssize_t size = ::read(master_, buffer, sizeof buffer);
    return size > 0 ? std::string(buffer, static_cast<std::size_t>(size)) : std::string();
  }

 private:
  int master_;
  int slave_ = -1;
};

}  // namespace orrery::test
