// What an agent tells the media library: a line that is taken reads back as what was taken from it.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "libobk/thread_command_line.h"

namespace {

using namespace orrery::libobk;

void require(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ThreadCommandLine line;
  std::string problem;
  if (!parseThreadCommandLine({reinterpret_cast<const char*>(data), size}, line, problem)) {
    require(line == ThreadCommandLine() && !problem.empty());
    return 0;
  }
  require(line.jobId >= 0 && (line.level == 1 || line.level == 2));
  ThreadCommandLine again;
  require(parseThreadCommandLine("-j " + std::to_string(line.jobId) + " -a " + std::to_string(line.instanceId) + ":" +
                                     std::to_string(line.subclientId) + " -at 104 -t " + std::to_string(line.level),
                                 again, problem));
  require(again == line);
  return 0;
}
