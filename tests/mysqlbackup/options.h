#pragma once

#include <string>
#include <utility>
#include <vector>

namespace orrery::standin {

/// One command line, taken apart.
struct Options {
  bool restores = false;     ///< copy-back-and-apply-log; else backup-to-image
  std::string defaultsFile;  ///< empty: not given, in a restore
  std::string user;
  std::string socket;
  std::string mediaLibrary;
  std::string backupDirectory;
  std::string imageName;  ///< without "sbt:"
  bool incremental = false;
  bool locksNothing = false;
  std::string dataDirectory;  ///< empty: not given; of a restore
  /// What the media library is to find in the environment.
  std::vector<std::pair<std::string, std::string>> environment;
};

/// Reads the arguments behind the program's name. Exactly these are taken, in this order, brackets marking what may be
/// left out; throws Failure for everything else:
///   --defaults-file=F -u USER --socket=S --sbt-lib-path=L --backup-dir=D --backup-image=sbt:NAME
///     [--incremental --incremental-base=history:last_backup] [--no-locking --skip-binlog]
///     --sbt-environment=LIST --verbose --debug=all backup-to-image
///   [--defaults-file=F] --backup-dir=D --backup-image=sbt:NAME --sbt-lib-path=L [--incremental] [--datadir=DATA]
///     --sbt-environment=LIST --verbose --debug=all copy-back-and-apply-log
/// LIST is DzSrcClientName=V,DzKycmdTokenFile=V,DzMySQLSBTInstance=V,ThreadCommandLine=V; every V and the whole last
/// item may be empty.
Options parseOptions(const std::vector<std::string>& arguments);

}  // namespace orrery::standin
