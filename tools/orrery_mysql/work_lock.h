#pragma once

#include "orrery/platform/posix.h"
#include "orrery/platform/services.h"

#include "context.h"

namespace orrery::tool {

/// One enterprise backup or restore of an instance at a time, in any number of processes: an incremental image stands
/// on the last one, and two restores would empty each other's work. Held for one scope; ends with the process, however
/// that ends. Leaves nothing behind: the lock is a byte of a file that the home has anyway, one for each instance.
class [[nodiscard]] WorkLock {
 public:
  /// Throws Failure, with the job that is at it, when the lock is held.
  WorkLock(Context& context, const platform::InstanceRecord& instance);

 private:
  platform::OwnFd file_;
};

}  // namespace orrery::tool
