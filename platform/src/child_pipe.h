#pragma once

/// What passes between a program that is started and the one that starts it.

#include <fcntl.h>
#include <unistd.h>

#include "orrery/platform/posix.h"

namespace orrery::platform {

/// Why the program was not started; travels over a pipe that exec closes. The text is a literal.
struct Obstacle {
  const char* step = nullptr;
  int error = 0;
};

struct Pipe {
  OwnFd reading;
  OwnFd writing;

  bool make() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    reading = OwnFd(aboveStandardStreams(ends[0]));
    writing = OwnFd(aboveStandardStreams(ends[1]));
    // Only our own end: a program may not expect that its output is full for a moment.
    return reading && writing && fcntl(reading.get(), F_SETFL, O_NONBLOCK) == 0;
  }
};

}  // namespace orrery::platform
