#pragma once

#include "environment.h"
#include "failure.h"
#include "image_format.h"

namespace orrery::libobk {

using namespace media;

/// Where an image belongs in the inventory. All 0 for a run by hand that names no instance.
struct Place {
  platform::Id instance = 0;
  platform::Id backupSet = 0;
  platform::Id subclient = 0;
};

/// What is known of an image once it is complete.
struct ImageEnd {
  std::uint64_t bytes = 0;
  /// Seconds since the epoch. A backup holds what was there when it ended, not when it began, so this is the time that
  /// restores look for.
  std::int64_t seconds = 0;
};

/// Throws MediaFailure for an instance or a subclient that is told but not there.
Place findPlace(const platform::Services& services, const Environment& environment);

/// Enters an image with the archive manager. Throws MediaFailure.
void enterImage(platform::ArchiveManager& archive, const Place& place, const ImageHeader& header, const ImageEnd& end);

/// Enters an image whose writer died before it did so; nothing happens when it is entered. Throws MediaFailure.
void enterLeftImage(const platform::Services& services, const ImageHeader& header, const ImageEnd& end);

/// What the archive manager knows of an image by this name. Throws MediaFailure.
std::vector<platform::ArchiveFile> findRecords(platform::ArchiveManager& archive, const std::string& name);

/// Takes records out of the archive; those that are not there any more do not matter. Throws MediaFailure.
void takeOut(platform::ArchiveManager& archive, const std::vector<platform::ArchiveFile>& files);

/// Puts back what was taken out, for an image that could not be removed after all.
void putBack(platform::ArchiveManager& archive, const std::vector<platform::ArchiveFile>& files) noexcept;

}  // namespace orrery::libobk
