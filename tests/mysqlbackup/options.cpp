#include "options.h"

#include <string_view>

#include "failure.h"

namespace orrery::standin {
namespace {

constexpr std::string_view backupCommand = "backup-to-image";
constexpr std::string_view restoreCommand = "copy-back-and-apply-log";

/// Walks along the arguments; each must be the one that is expected next.
class Walk {
 public:
  explicit Walk(const std::vector<std::string>& arguments) : arguments_(arguments) {}

  bool takeWord(std::string_view word) {
    if (at_ == arguments_.size() || arguments_[at_] != word) return false;
    ++at_;
    return true;
  }
  bool takeValue(std::string_view prefix, std::string& value) {
    if (at_ == arguments_.size() || !std::string_view(arguments_[at_]).starts_with(prefix)) return false;
    value = arguments_[at_].substr(prefix.size());
    if (value.empty()) throw Failure("the option " + std::string(prefix) + " has no value");
    ++at_;
    return true;
  }
  void requireWord(std::string_view word) {
    if (!takeWord(word)) refuse(word);
  }
  void requireValue(std::string_view prefix, std::string& value) {
    if (!takeValue(prefix, value)) refuse(std::string(prefix) + "VALUE");
  }
  std::string requireNext(std::string_view what) {
    if (at_ == arguments_.size() || arguments_[at_].empty()) refuse(what);
    return arguments_[at_++];
  }
  void requireEnd() {
    if (at_ != arguments_.size()) refuse("the end");
  }

 private:
  [[noreturn]] void refuse(std::string_view expected) {
    throw Failure("argument " + std::to_string(at_ + 1) + " must be " + std::string(expected) + ", and " +
                  (at_ == arguments_.size() ? "there is none" : "is \"" + arguments_[at_] + "\""));
  }

  const std::vector<std::string>& arguments_;
  std::size_t at_ = 0;
};

void readEnvironment(std::string_view list, Options& options) {
  for (const std::string_view name :
       {"DzSrcClientName=", "DzKycmdTokenFile=", "DzMySQLSBTInstance=", "ThreadCommandLine="}) {
    const bool last = name.starts_with("Thread");
    if (last && list.empty()) return;
    const std::size_t comma = list.find(',');
    if (!list.starts_with(name) || (comma == std::string_view::npos) != last)
      throw Failure("--sbt-environment must go on with " + std::string(name) + "VALUE" +
                    (last ? " or end" : " and a comma") + ", and goes on with \"" + std::string(list) + "\"");
    options.environment.emplace_back(name.substr(0, name.size() - 1),
                                     list.substr(name.size(), last ? comma : comma - name.size()));
    if (!last) list.remove_prefix(comma + 1);
  }
}

void readRest(Walk& walk, Options& options, std::string_view command) {
  std::string list;
  walk.requireValue("--sbt-environment=", list);
  readEnvironment(list, options);
  walk.requireWord("--verbose");
  walk.requireWord("--debug=all");
  walk.requireWord(command);
  walk.requireEnd();
}

Options parseBackup(Walk walk) {
  Options options;
  walk.requireValue("--defaults-file=", options.defaultsFile);
  walk.requireWord("-u");
  options.user = walk.requireNext("the user");
  walk.requireValue("--socket=", options.socket);
  walk.requireValue("--sbt-lib-path=", options.mediaLibrary);
  walk.requireValue("--backup-dir=", options.backupDirectory);
  walk.requireValue("--backup-image=sbt:", options.imageName);
  options.incremental = walk.takeWord("--incremental");
  if (options.incremental) walk.requireWord("--incremental-base=history:last_backup");
  options.locksNothing = walk.takeWord("--no-locking");
  if (options.locksNothing) walk.requireWord("--skip-binlog");
  readRest(walk, options, backupCommand);
  return options;
}

Options parseRestore(Walk walk) {
  Options options;
  options.restores = true;
  walk.takeValue("--defaults-file=", options.defaultsFile);
  walk.requireValue("--backup-dir=", options.backupDirectory);
  walk.requireValue("--backup-image=sbt:", options.imageName);
  walk.requireValue("--sbt-lib-path=", options.mediaLibrary);
  options.incremental = walk.takeWord("--incremental");
  walk.takeValue("--datadir=", options.dataDirectory);
  readRest(walk, options, restoreCommand);
  if (options.dataDirectory.empty() && options.defaultsFile.empty())
    throw Failure("where to restore to is not told; give --datadir=DIR or --defaults-file=FILE");
  return options;
}

}  // namespace

Options parseOptions(const std::vector<std::string>& arguments) {
  if (!arguments.empty() && arguments.back() == backupCommand) return parseBackup(Walk(arguments));
  if (!arguments.empty() && arguments.back() == restoreCommand) return parseRestore(Walk(arguments));
  throw Failure("the last argument must be " + std::string(backupCommand) + " or " + std::string(restoreCommand));
}

}  // namespace orrery::standin
