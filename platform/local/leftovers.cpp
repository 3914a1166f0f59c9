/// Defaults files of sessions whose process was killed.

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <memory>

#include "orrery/platform/home.h"

#include "clock.h"
#include "posix.h"

namespace orrery::platform {
namespace {

using namespace local;

constexpr std::string_view prefix = "orrery_bkp_mycnf_";
constexpr std::string_view suffix = ".cnf";
constexpr std::int64_t tolerance = 1000000;  // microseconds; the start of a process is known in hundredths of a second

template <class Number>
bool takeNumber(std::string_view& text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

bool takeText(std::string_view& text, std::string_view expected) {
  if (text.substr(0, expected.size()) != expected) return false;
  text.remove_prefix(expected.size());
  return true;
}

/// The process that made a defaults file of this name; 0 when sessions do not make such names. The name is composed
/// again from its numbers, so that "007" or "+7" is not taken for one of ours.
pid_t makerOf(const std::string& name) {
  std::string_view rest = name;
  long purpose = 0;
  unsigned long long time = 0;
  int process = 0;
  int again = 0;
  long long job = 0;
  const bool wellFormed = takeText(rest, prefix) && takeNumber(rest, purpose) && takeText(rest, "_") &&
                          takeNumber(rest, time) && takeText(rest, "_") && takeNumber(rest, process) &&
                          takeText(rest, "_") && takeNumber(rest, again) && takeText(rest, "_") &&
                          takeNumber(rest, job) && rest == suffix;
  if (!wellFormed || process <= 0 || process != again) return 0;
  char composed[160];
  std::snprintf(composed, sizeof composed, "orrery_bkp_mycnf_%ld_%llu_%d_%d_%lld.cnf", purpose, time, process, again,
                job);
  return name == composed ? process : 0;
}

/// Start of a process in microseconds since the epoch; 0 when it cannot be told.
std::int64_t startOf(pid_t process) {
  const std::string path = "/proc/" + std::to_string(process) + "/stat";
  const OwnFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return 0;
  const std::string text = readWhole(file.get(), path, 65536);
  // The second field is the program's name in parentheses and may itself hold blanks and parentheses.
  std::size_t at = text.rfind(')');
  constexpr int fieldsToTheStart = 20;
  for (int field = 0; field < fieldsToTheStart && at != std::string::npos; ++field) at = text.find(' ', at + 1);
  if (at == std::string::npos) return 0;
  std::string_view rest = std::string_view(text).substr(at + 1);
  std::int64_t ticks = 0;
  if (!takeNumber(rest, ticks)) return 0;
  timespec sinceBoot{};
  if (::clock_gettime(CLOCK_BOOTTIME, &sinceBoot) != 0) return 0;
  const std::int64_t boot = microsecondsNow() - (std::int64_t{sinceBoot.tv_sec} * 1000000 + sinceBoot.tv_nsec / 1000);
  return boot + ticks * (1000000 / ::sysconf(_SC_CLK_TCK));
}

/// Whether the maker of the file is gone, or its id belongs to a process that is younger than the file.
/// In doubt it lives.
bool isGone(pid_t process, const struct stat& file) {
  if (::kill(process, 0) != 0) return errno == ESRCH;
  const std::int64_t changed = std::int64_t{file.st_ctim.tv_sec} * 1000000 + file.st_ctim.tv_nsec / 1000;
  return startOf(process) > changed + tolerance;
}

bool isLeftover(int folder, const std::string& name) {
  const pid_t maker = makerOf(name);
  struct stat status {};
  return maker != 0 && ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode) &&
         isGone(maker, status);
}

struct CloseFolder {
  void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

void removeLeftoversIn(const std::string& path, std::vector<std::string>& removed) {
  OwnFd opened(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!opened) throw systemFailure("open the folder " + path, errno);
  const std::unique_ptr<DIR, CloseFolder> folder(::fdopendir(opened.get()));
  if (!folder) throw systemFailure("read the folder " + path, errno);
  const int fd = opened.release();  // the stream closes it now
  std::string problem;
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(folder.get());  // NOLINT(concurrency-mt-unsafe): the stream is this call's own
    if (entry == nullptr && errno != 0) throw systemFailure("read the folder " + path, errno);
    if (entry == nullptr) break;
    const std::string name = entry->d_name;
    if (!isLeftover(fd, name)) continue;
    std::string whole = path;
    whole.append("/").append(name);
    if (::unlinkat(fd, name.c_str(), 0) == 0)
      removed.push_back(std::move(whole));
    else if (errno != ENOENT && problem.empty())
      problem = systemFailure("remove " + whole, errno).what();
  }
  if (!problem.empty()) throw Failure(Status::failure(problem));
}

}  // namespace

Status removeLeftovers(const std::string& temporaryDirectory, std::vector<std::string>* removed) {
  return guarded([&] {
    std::vector<std::string> paths;
    removeLeftoversIn(temporaryDirectory, removed != nullptr ? *removed : paths);
  });
}

}  // namespace orrery::platform
