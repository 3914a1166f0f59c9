#include "replica_release.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "orrery/platform/DZFile.h"

#include "failure.h"
#include "posix.h"
#include "process_mark.h"

namespace orrery::tool {
namespace {

constexpr int kSecondsToLook = 2;
constexpr int kSecondsToRelease = 120;  // as long as one try of a backup

std::string lockFileOf(const std::string& temporaryDirectory, platform::Id instance) {
  return temporaryDirectory + "/MySQLInstance_" + std::to_string(instance) + "_LOCK";
}

std::string counterFileOf(const std::string& temporaryDirectory, platform::Id instance) {
  return temporaryDirectory + "/Instance_" + std::to_string(instance) + "_RunningBkpUps";
}

/// The lock that backups of one instance take around every look at the counter, for the time of one object.
class InstanceLock {
 public:
  explicit InstanceLock(std::string path) : path_(std::move(path)) {}

  /// The results of DZFile::lock, also for a file that cannot be opened.
  int take(int mode, int seconds) {
    // Backups delete the file while they hold its lock, and a lock on a file that the path no longer leads to keeps
    // nobody out.
    for (;;) {
      if (!file_.open(path_, mode)) return -1;
      const int rc = file_.lock(DZFile::lockExclusive, seconds);
      if (rc <= 0 || file_.isNamedBy(path_)) return rc;
    }
  }
  int error() const noexcept { return file_.lastError(); }

 private:
  const std::string path_;
  DZFile file_;
};

void readCounter(const std::string& path, Holds& holds) {
  if (kindOf(path) == FileKind::missing) return;
  DZFile file;
  // Four bytes, as backups read them, so that all agree on what the file says.
  std::array<char, 4> text{};
  const bool isOpen = file.open(path, DZFile::modeRead);
  const ssize_t size = isOpen ? file.read(text.data(), text.size()) : -1;
  if (size < 0) {
    if (file.lastError() != ENOENT) holds.counterProblem = path + " cannot be read: " + errorText(file.lastError());
    return;
  }
  if (size == 0) return;
  const char* const end = text.data() + size;
  if (std::from_chars(text.data(), end, holds.counter).ec != std::errc()) {
    holds.counterProblem = path + " holds no number";
  }
}

void readKnown(Context& context, platform::Id instance, Holds& holds) {
  std::vector<platform::ReplicaHolder> records;
  require(context.services().holders->list(instance, records), "the holders of the replica cannot be read");
  for (platform::ReplicaHolder& record : records) {
    const bool alive = isAlive(record.process) || isAlive(record.command);
    holds.known.push_back({std::move(record), alive});
  }
}

/// Process whose session on the instance made the defaults file of this name, 0 for other names:
/// orrery_bkp_mycnf_INSTANCE_TIME_PID_PID_JOB.cnf.
pid_t makerOf(const std::string& name, platform::Id instance) {
  const std::string prefix = "orrery_bkp_mycnf_" + std::to_string(instance) + "_";
  if (!name.starts_with(prefix)) return 0;
  const std::size_t time = name.find('_', prefix.size());
  pid_t process = 0;
  if (time != std::string::npos) std::from_chars(name.data() + time + 1, name.data() + name.size(), process);
  return process;
}

/// Sessions of living processes; those of dead ones are removed when a home is opened. Commands of this program enter
/// themselves before they hold.
void readPossible(const std::string& temporaryDirectory, platform::Id instance, Holds& holds) {
  if (holds.counterProblem.empty() && holds.counter <= holds.alive()) return;
  for (const auto& entry : std::filesystem::directory_iterator(temporaryDirectory)) {
    const pid_t process = makerOf(entry.path().filename(), instance);
    const bool isKnown = std::any_of(holds.known.begin(), holds.known.end(), [&](const KnownHolder& known) {
      // An id of one who died may have come to somebody else.
      return known.isAlive && (known.holder.process.id == process || known.holder.command.id == process);
    });
    if (process > 0 && !isKnown && !isOfThisProgram(process)) holds.possible.push_back(process);
  }
}

Holds look(Context& context, platform::Id instance) {
  Holds holds;
  readCounter(counterFileOf(context.temporaryDirectory(), instance), holds);
  readKnown(context, instance, holds);
  readPossible(context.temporaryDirectory(), instance, holds);
  return holds;
}

bool isAsSeen(const Holds& now, const Holds& seen) {
  return now.counter == seen.counter && now.counterProblem == seen.counterProblem &&
         std::equal(now.known.begin(), now.known.end(), seen.known.begin(), seen.known.end(),
                    [](const KnownHolder& a, const KnownHolder& b) {
                      return a.holder.id == b.holder.id && a.isAlive == b.isAlive;
                    });
}

/// Replaces the file as a whole: whoever is killed meanwhile leaves the old number or the new one.
void writeCounter(const std::string& path, unsigned number) {
  const std::string unfinished = path + ".new";
  const std::string text = std::to_string(number);
  std::remove(unfinished.c_str());
  DZFile file;
  const bool isWritten =
      file.open(unfinished, DZFile::modeReadWrite) && file.write(text.data(), text.size()) == 0 && file.close() == 0;
  int error = isWritten ? 0 : file.lastError();
  if (isWritten && std::rename(unfinished.c_str(), path.c_str()) == 0) return;
  if (error == 0) error = errno;
  std::remove(unfinished.c_str());
  throw Failure("the counter " + path + " is not written", errorText(error), "make room there and try again");
}

}  // namespace

unsigned Holds::alive() const {
  return static_cast<unsigned>(
      std::count_if(known.begin(), known.end(), [](const KnownHolder& holder) { return holder.isAlive; }));
}

unsigned Holds::unknown() const {
  return counter > known.size() ? counter - static_cast<unsigned>(known.size()) : 0;
}

std::string listOf(const std::vector<pid_t>& processes) {
  std::string text;
  for (const pid_t process : processes) text += (text.empty() ? "" : ", ") + std::to_string(process);
  return text;
}

Holds readHolds(Context& context, platform::Id instance) {
  // Backups rewrite the counter under the lock. Where that is not to be had, a look without it is better than none.
  InstanceLock lock(lockFileOf(context.temporaryDirectory(), instance));
  lock.take(DZFile::modeWrite, kSecondsToLook);
  return look(context, instance);
}

Release releaseStale(Context& context, const platform::InstanceRecord& instance, const Holds& seen,
                     const std::function<void()>& start) {
  const std::string what = "the replica of " + instance.name + " is not released";
  const std::string lockFile = lockFileOf(context.temporaryDirectory(), instance.id);
  InstanceLock lock(lockFile);
  const int locked = lock.take(DZFile::modeReadWrite, kSecondsToRelease);
  if (locked < 0) throw Failure(what, "the lock " + lockFile + " cannot be taken: " + errorText(lock.error()));
  if (locked == 0) throw Failure(what, "a backup holds the lock " + lockFile, "try again when it goes on");

  const Holds now = look(context, instance.id);
  if (!now.possible.empty()) {
    throw Failure(what, "process " + listOf(now.possible) + " may be a backup that holds it",
                  "end it or wait for its end");
  }
  if (!isAsSeen(now, seen)) throw Failure(what, "its holders changed meanwhile", "look at them again");
  Release release;
  // A living holder may not have raised the counter yet: the number never gets higher here.
  release.counter = now.counterProblem.empty() ? std::min(now.counter, now.alive()) : now.alive();
  if (now.alive() == 0) {
    start();
    release.started = true;
  }
  if (release.counter != now.counter || !now.counterProblem.empty()) {
    writeCounter(counterFileOf(context.temporaryDirectory(), instance.id), release.counter);
  }
  for (const KnownHolder& known : now.known) {
    if (known.isAlive) continue;
    require(context.services().holders->remove(known.holder.id), "a holder that died cannot be forgotten");
    release.forgotten.push_back(known.holder);
  }
  return release;
}

}  // namespace orrery::tool
