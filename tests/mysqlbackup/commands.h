#pragma once

#include <string>

#include "ending.h"
#include "faults.h"
#include "image.h"
#include "options.h"

namespace orrery::standin {

// The two things that this program does. Both throw Failure.

/// Takes a backup of the server straight into an image, and records it.
void backupToImage(const Options& options, const Faults& faults, const Ending& ending);

/// Restores a full image to an empty data folder, or applies an incremental one to the folder that holds what it
/// follows.
void copyBackAndApplyLog(const Options& options, const Faults& faults, const Ending& ending);

/// A file in restored data folders, and in the `meta` folder of a backup: `backup_id` and `end_lsn` of the last image.
inline constexpr const char* variablesFile = "backup_variables.txt";
std::string variablesOf(const ImageFacts& facts);

}  // namespace orrery::standin
