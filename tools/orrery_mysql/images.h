#pragma once

#include <string>
#include <vector>

#include "orrery/platform/services.h"

#include "context.h"

namespace orrery::tool {

/// The backup set that every instance has. Throws Failure.
platform::BackupSet defaultBackupSet(Context& context, const platform::InstanceRecord& instance);

/// The images of an instance in the order in which they were entered, which is that of their making also when the clock
/// was set back. Throws Failure.
std::vector<platform::ArchiveFile> imagesOf(Context& context, const platform::InstanceRecord& instance);

/// Why a restore to the time of an image would not bring it back, for each image of `imagesOf`; empty where it would.
/// Looks at headers and trailers, each once where nothing is missing and the clock was not set back.
std::vector<std::string> whyNotRestorable(Context& context, const std::vector<platform::ArchiveFile>& images);

const char* levelText(int level);
/// An image with name, level, time, size, job and subclient.
Json imageDocument(const platform::ArchiveFile& image);

}  // namespace orrery::tool
