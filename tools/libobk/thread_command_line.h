#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orrery::libobk {

/// What the agent tells the media library about the job that it works for.
struct ThreadCommandLine {
  long long jobId = 0;           ///< 0: no job, a run by hand
  std::uint64_t instanceId = 0;  ///< 0: not told
  std::uint64_t subclientId = 0;
  std::uint32_t level = 1;  ///< 2 incremental, everything else full

  bool operator==(const ThreadCommandLine&) const = default;
};

/// Reads "-j JOB -a INSTANCE:SUBCLIENT -at 104 -t LEVEL": options in any order, each at most once, all of them
/// optional, numbers decimal and not negative, and no subclient without its instance. False, with `line` as it was and
/// what is wrong in `problem`, for anything else.
bool parseThreadCommandLine(std::string_view text, ThreadCommandLine& line, std::string& problem);

}  // namespace orrery::libobk
