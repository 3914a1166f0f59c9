#include <filesystem>

#include "child_program.h"
#include "commands.h"
#include "folders.h"
#include "image.h"
#include "media.h"
#include "server.h"

namespace orrery::standin {
namespace {

namespace fs = std::filesystem;

std::string dataDirectoryOf(const Options& options, const Faults& faults, const Ending& ending) {
  faults.at("server");
  return options.dataDirectory.empty() ? dataDirectoryIn(options.defaultsFile, ending) : options.dataDirectory;
}

/// An image goes where it belongs and nowhere else; known before anything is written there.
void requireFit(const ImageFacts& image, const Options& options, const std::string& dataDirectory) {
  if (image.incremental && !options.incremental)
    throw Failure("the image " + options.imageName + " is incremental; --incremental is missing");
  if (!image.incremental && options.incremental)
    throw Failure("the image " + options.imageName + " is a full backup; --incremental does not go with it");
  if (!image.incremental) {
    if (!isMissingOrEmpty(dataDirectory)) throw Failure("the data directory " + dataDirectory + " is not empty");
    return;
  }
  const std::string path = dataDirectory + "/" + variablesFile;
  if (!fs::exists(path))
    throw Failure(dataDirectory + " holds no restored backup to which an incremental one could be applied");
  const Facts restored = readFacts(path);
  const std::uint64_t reached = numberIn(restored, "end_lsn", path);
  if (image.fromLsn != reached || image.baseId != numberIn(restored, "backup_id", path))
    throw Failure("the image " + options.imageName + " follows backup " + std::to_string(image.baseId) +
                  " at position " + std::to_string(image.fromLsn) + ", and " + dataDirectory + " holds backup " +
                  restored.at("backup_id") + " at position " + std::to_string(reached) +
                  "; images are applied in the order in which they were taken");
}

void unpack(ImageReader& image, const std::string& folder, const Faults& faults, const Ending& ending) {
  ChildProgram unpacker({"mbstream", "-x", "-C", folder}, ChildProgram::Streams::input, ending);
  image.drain(unpacker);
  unpacker.finish();
  faults.at("unpack");
}

/// What the program that applies incremental backups looks for in a data folder, and does not copy there itself.
void copyDescription(const std::string& folder, const std::string& dataDirectory) {
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (name == "backup-my.cnf" || name.starts_with("xtrabackup_"))
      fs::copy_file(entry.path(), fs::path(dataDirectory) / name, fs::copy_options::overwrite_existing);
  }
}

void copyBack(const std::string& folder, const std::string& dataDirectory, const Faults& faults, const Ending& ending) {
  tell("preparing the data");
  faults.at("prepare");
  runChild({"mariadb-backup", "--no-defaults", "--prepare", "--target-dir=" + folder}, ending);
  tell("copying to " + dataDirectory);
  faults.at("copy_back");
  runChild({"mariadb-backup", "--no-defaults", "--copy-back", "--target-dir=" + folder, "--datadir=" + dataDirectory},
           ending);
  copyDescription(folder, dataDirectory);
}

void apply(const std::string& folder, const std::string& dataDirectory, const Faults& faults, const Ending& ending) {
  tell("applying to " + dataDirectory);
  faults.at("apply");
  // A folder where this breaks off takes no further image.
  fs::remove(dataDirectory + "/" + variablesFile);
  runChild(
      {"mariadb-backup", "--no-defaults", "--prepare", "--target-dir=" + dataDirectory, "--incremental-dir=" + folder},
      ending);
}

}  // namespace

void copyBackAndApplyLog(const Options& options, const Faults& faults, const Ending& ending) {
  makeBackupDirectory(options.backupDirectory);
  const std::string dataDirectory = dataDirectoryOf(options, faults, ending);
  leaveServerOptions(options.backupDirectory, dataDirectory);

  Media media(options);
  ImageReader image(media, options.imageName, faults, ending);
  faults.onConnected(ending);
  requireFit(image.facts(), options, dataDirectory);
  tell("unpacking the image " + options.imageName);
  WorkFolder unpacked(options.backupDirectory + "/image");
  try {
    unpack(image, unpacked.path(), faults, ending);
    media.end();
    if (image.facts().incremental)
      apply(unpacked.path(), dataDirectory, faults, ending);
    else
      copyBack(unpacked.path(), dataDirectory, faults, ending);
    writeFile(dataDirectory + "/" + variablesFile, variablesOf(image.facts()));
  } catch (const std::exception&) {
    // It may tell what went wrong.
    unpacked.keep();
    throw;
  }
  tell("restored to position " + std::to_string(image.facts().toLsn));
}

}  // namespace orrery::standin
