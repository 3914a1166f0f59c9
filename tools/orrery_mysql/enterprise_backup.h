#pragma once

#include "orrery/platform/services.h"

#include "backup_road.h"
#include "context.h"

namespace orrery::tool {

/// Whether images are made of the instance with the server's enterprise backup program.
bool isEnterprise(const platform::InstanceRecord& instance);

/// Makes an image of the instance as a job and prints what it made. A backup that has nothing to stand on, or must not
/// stand on it any more, becomes a full one, which is said. Throws Failure or Interrupted.
void runEnterpriseBackup(Context& context, const BackupRequest& request, const platform::InstanceRecord& instance,
                         const platform::SubclientRecord& subclient);

}  // namespace orrery::tool
