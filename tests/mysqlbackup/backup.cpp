#include <sys/stat.h>
#include <time.h>

#include <chrono>
#include <optional>

#include "child_program.h"
#include "commands.h"
#include "folders.h"
#include "image.h"
#include "media.h"
#include "server.h"

namespace orrery::standin {
namespace {

std::uint64_t newBackupId() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

std::vector<std::string> dumpCommand(const Options& options, const ImageFacts& facts, const std::string& dataDirectory,
                                     const WorkFolder& work) {
  std::vector<std::string> command{"mariadb-backup",
                                   "--defaults-file=" + options.defaultsFile,
                                   "--backup",
                                   "--stream=xbstream",
                                   "--user=" + options.user,
                                   "--socket=" + options.socket,
                                   "--datadir=" + dataDirectory,
                                   "--target-dir=" + work.path() + "/target",
                                   "--extra-lsndir=" + work.path()};
  if (facts.incremental) command.push_back("--incremental-lsn=" + std::to_string(facts.fromLsn));
  if (options.locksNothing) command.emplace_back("--no-lock");
  return command;
}

/// Streams the server's data into the image and completes it; the position that the backup reaches.
std::uint64_t streamServer(const std::vector<std::string>& command, const WorkFolder& work, ImageWriter& image,
                           const Ending& ending) {
  ChildProgram dump(command, ChildProgram::Streams::output, ending);
  image.fill(dump);
  dump.finish();
  const std::string checkpoints = work.path() + "/xtrabackup_checkpoints";
  const std::uint64_t reached = numberIn(readFacts(checkpoints), "to_lsn", checkpoints);
  image.finish(reached);
  return reached;
}

/// An image that no backup could follow, and that its job calls failed, does not stay.
void recordOrRemove(const Server& server, const ImageFacts& facts, const std::string& dataDirectory,
                    std::int64_t started, Media& media, const Options& options, const Faults& faults) {
  try {
    faults.at("history");
    server.record(facts, dataDirectory, started);
  } catch (const std::exception&) {
    media.remove(options.imageName);
    throw;
  }
}

void leaveMeta(const Options& options, const ImageFacts& facts) {
  const std::string folder = options.backupDirectory + "/meta";
  if (::mkdir(folder.c_str(), 0700) != 0) throw systemFailure("make the folder " + folder, errno);
  writeFile(folder + "/" + variablesFile, variablesOf(facts));
}

}  // namespace

std::string variablesOf(const ImageFacts& facts) {
  return "[backup_variables]\nbackup_id=" + std::to_string(facts.backupId) +
         "\nstart_lsn=" + std::to_string(facts.fromLsn) + "\nend_lsn=" + std::to_string(facts.toLsn) +
         "\nis_incremental=" + (facts.incremental ? "1" : "0") + "\n";
}

void backupToImage(const Options& options, const Faults& faults, const Ending& ending) {
  const std::int64_t started = ::time(nullptr);
  makeBackupDirectory(options.backupDirectory);
  const Server server(options, ending);
  faults.at("server");
  const std::string dataDirectory = server.dataDirectory();
  leaveServerOptions(options.backupDirectory, dataDirectory);
  ImageFacts facts;
  facts.incremental = options.incremental;
  facts.backupId = newBackupId();
  if (facts.incremental) server.findBase(facts);

  tell((facts.incremental ? "incremental backup of " : "full backup of ") + dataDirectory + " from position " +
       std::to_string(facts.fromLsn) + " to the image " + options.imageName);
  Media media(options);
  {
    ImageWriter image(media, options.imageName, facts, faults, ending);
    faults.onConnected(ending);
    const WorkFolder work(options.backupDirectory + "/work");
    facts.toLsn = streamServer(dumpCommand(options, facts, dataDirectory, work), work, image, ending);
  }
  recordOrRemove(server, facts, dataDirectory, started, media, options, faults);
  leaveMeta(options, facts);
  media.end();
  tell("the backup reaches position " + std::to_string(facts.toLsn));
}

}  // namespace orrery::standin
