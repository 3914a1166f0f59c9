#pragma once

#include <sys/types.h>

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include "orrery/platform/posix.h"

#include "ending.h"

namespace orrery::standin {

/// A program that runs for this one. What it says on standard error is passed on line by line with its name in front,
/// so that none of it looks like a line of ours. It gets SIGKILL when the object ends before `finish`, and when this
/// process dies. Everything throws Failure, also when a signal tells this program to end.
class ChildProgram {
 public:
  enum class Streams { none, output, input };

  /// `arguments[0]` is looked for in PATH. Of standard input and output the one that is not piped is /dev/null.
  ChildProgram(const std::vector<std::string>& arguments, Streams streams, const Ending& ending);
  ~ChildProgram();
  ChildProgram(const ChildProgram&) = delete;
  ChildProgram& operator=(const ChildProgram&) = delete;

  /// Reads until `size` bytes are there or the output ends; how many there are.
  std::size_t read(char* buffer, std::size_t size);
  /// Writes all of it.
  void write(const char* bytes, std::size_t size);
  /// Waits for the program's end, its input closed; throws Failure with its last words unless it succeeded.
  void finish();

 private:
  void start(const std::vector<std::string>& arguments, int input, int output, int errors);
  /// Waits until `fd` is ready for `events`, passing on what the program says meanwhile.
  void waitFor(int fd, short events);
  void passOn();
  void passOnLine(const std::string& line);
  int reap() noexcept;
  std::string lastWords() const;

  const std::string name_;
  const Ending& ending_;
  pid_t pid_ = -1;
  platform::OwnFd ended_;   ///< readable at the program's end
  platform::OwnFd stream_;  ///< our end of the piped stream
  platform::OwnFd errors_;
  std::string line_;  ///< the beginning of one that has not ended
  std::deque<std::string> lastLines_;
};

/// Runs a program to its end.
void runChild(const std::vector<std::string>& arguments, const Ending& ending);
/// The same; its output, which is small.
std::string outputOf(const std::vector<std::string>& arguments, const Ending& ending);

}  // namespace orrery::standin
