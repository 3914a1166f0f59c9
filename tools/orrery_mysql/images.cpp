#include "images.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "orrery/platform/instance_properties.h"

#include "failure.h"
#include "time_text.h"

namespace orrery::tool {
namespace {

constexpr int fullLevel = 1;
using Image = std::vector<platform::ArchiveFile>::const_iterator;

std::string whyNotRestorable(Context& context, const platform::ArchiveFile& image, std::int64_t from) {
  platform::ChainQuery query;
  query.backupSetId = image.backupSetId;
  query.applicationType = image.applicationType;
  query.from = from;
  query.to = image.created;
  query.reads = false;
  std::vector<platform::ArchiveFile> chain;
  const platform::Status status = context.services().archive->restoreChain(query, chain);
  if (status.code == platform::statusNotFound) return "there is no full image that it stands on";
  if (!status.ok()) return status.text;
  const bool isIn = std::any_of(chain.rbegin(), chain.rend(), [&](const auto& one) { return one.id == image.id; });
  return isIn ? std::string() : "a restore to its time takes the later image " + chain.back().name;
}

/// For a full image and those that follow it: behind the first one that cannot be restored none can, so that a group
/// that is whole takes one question and every other one few.
void addReasons(Context& context, Image begin, Image end, std::int64_t from, std::vector<std::string>& reasons) {
  const Image last = std::prev(end);
  std::string reason = whyNotRestorable(context, *last, from);
  const Image broken =
      reason.empty() ? end : std::partition_point(begin, last, [&](const platform::ArchiveFile& image) {
        return whyNotRestorable(context, image, from).empty();
      });
  if (broken < last) reason = whyNotRestorable(context, *broken, from);
  for (Image image = begin; image != end; ++image) reasons.push_back(image < broken ? std::string() : reason);
}

}  // namespace

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
  std::sort(images.begin(), images.end(), [](const auto& one, const auto& other) { return one.id < other.id; });
  return images;
}

std::vector<std::string> whyNotRestorable(Context& context, const std::vector<platform::ArchiveFile>& images) {
  const auto isEarlier = [](const auto& one, const auto& other) { return one.created < other.created; };
  std::vector<std::int64_t> earliestFrom(images.size() + 1, std::numeric_limits<std::int64_t>::max());
  for (std::size_t i = images.size(); i-- > 0;) earliestFrom[i] = std::min(earliestFrom[i + 1], images[i].created);
  std::vector<std::string> reasons;
  reasons.reserve(images.size());
  std::int64_t latestBefore = std::numeric_limits<std::int64_t>::min();
  for (auto begin = images.begin(); begin != images.end();) {
    auto end = std::next(begin);
    while (end != images.end() && end->level != fullLevel) ++end;
    const std::int64_t latest = std::max_element(begin, end, isEarlier)->created;
    // Where a clock was set back, an image's time may lead to any other.
    const bool isInOrder = latestBefore <= begin->created && std::is_sorted(begin, end, isEarlier) &&
                           latest <= earliestFrom[static_cast<std::size_t>(end - images.begin())];
    if (isInOrder) {
      addReasons(context, begin, end, begin->created, reasons);
    } else {
      for (auto image = begin; image != end; ++image) addReasons(context, image, std::next(image), 0, reasons);
    }
    latestBefore = std::max(latestBefore, latest);
    begin = end;
  }
  return reasons;
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
