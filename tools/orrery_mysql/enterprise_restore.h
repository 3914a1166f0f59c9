#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "context.h"

namespace orrery::tool {

struct RestoreRequest {
  std::string instance;
  std::int64_t toTime = 0;          ///< seconds since the epoch
  std::optional<std::string> into;  ///< an absolute path; none: into the server
  bool planOnly = false;
  bool littleRoom = false;  ///< no room to unpack an image is no reason
  bool asks = false;        ///< before the data of the server are replaced
};

/// Restores an instance as a job and prints what was done, or what would be. Throws Failure or Interrupted; the job
/// then says in words what went wrong.
void runRestore(Context& context, const RestoreRequest& request);

}  // namespace orrery::tool
