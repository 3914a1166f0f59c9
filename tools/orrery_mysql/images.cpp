#include "images.h"

#include <algorithm>
#include <limits>

#include "orrery/platform/instance_properties.h"

#include "failure.h"
#include "time_text.h"

namespace orrery::tool {

platform::BackupSet defaultBackupSet(Context& context, const platform::InstanceRecord& instance) {
  std::vector<platform::BackupSet> sets;
  require(context.services().inventory->listBackupSets(instance.id, sets), "the backup sets cannot be read");
  const auto found =
      std::find_if(sets.begin(), sets.end(), [](const platform::BackupSet& set) { return set.isDefault; });
  if (found == sets.end()) throw Failure("the instance " + instance.name, "has no default backup set", "add it again");
  return *found;
}

std::vector<platform::ArchiveFile> imagesOf(Context& context, const platform::InstanceRecord& instance) {
  std::vector<platform::ArchiveFile> images;
  require(context.services().archive->listFiles(defaultBackupSet(context, instance).id,
                                                platform::property::applicationTypeMySql, 0,
                                                std::numeric_limits<std::int64_t>::max(), images),
          "the archive cannot be read");
  return images;
}

const char* levelText(int level) {
  return level == 2 ? "incremental" : "full";
}

Json imageDocument(const platform::ArchiveFile& image) {
  Json document;
  document["name"] = image.name;
  document["level"] = levelText(image.level);
  document["created"] = timeText(image.created * 1000000);
  document["bytes"] = image.size;
  document["job"] = image.jobId;
  document["subclient_id"] = image.subclientId;
  return document;
}

}  // namespace orrery::tool
