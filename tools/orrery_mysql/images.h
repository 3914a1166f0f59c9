#pragma once

#include <string>
#include <vector>

#include "orrery/platform/services.h"

#include "context.h"

namespace orrery::tool {

/// The backup set that every instance has. Throws Failure.
platform::BackupSet defaultBackupSet(Context& context, const platform::InstanceRecord& instance);

/// The images of an instance, oldest first. Throws Failure.
std::vector<platform::ArchiveFile> imagesOf(Context& context, const platform::InstanceRecord& instance);

const char* levelText(int level);
/// An image with name, level, time, size, job and subclient.
Json imageDocument(const platform::ArchiveFile& image);

}  // namespace orrery::tool
