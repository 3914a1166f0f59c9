#include "folders.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>
#include <utility>

#include "orrery/platform/posix.h"

#include "failure.h"

namespace orrery::standin {
namespace {

namespace fs = std::filesystem;

std::string trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(" \t\r") - first + 1));
}

void makeFolder(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) throw systemFailure("make the folder " + path, errno);
}

}  // namespace

void makeBackupDirectory(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
    makeFolder(path.substr(0, slash));
  makeFolder(path);
  if (!isMissingOrEmpty(path)) throw Failure("the backup directory " + path + " is not empty");
}

bool isMissingOrEmpty(const std::string& path) {
  return !fs::exists(path) || (fs::is_directory(path) && fs::is_empty(path));
}

Facts readFacts(const std::string& path) {
  std::ifstream file(path);
  Facts facts;
  for (std::string line; std::getline(file, line);) {
    const std::size_t sign = line.find('=');
    if (sign != std::string::npos) facts[trimmed(line.substr(0, sign))] = trimmed(line.substr(sign + 1));
  }
  if (!file.eof()) throw Failure("cannot read " + path);
  return facts;
}

std::uint64_t numberIn(const Facts& facts, const std::string& name, const std::string& path) {
  std::uint64_t number = 0;
  const auto found = facts.find(name);
  if (found != facts.end()) {
    const std::string& text = found->second;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && end == text.data() + text.size()) return number;
  }
  throw Failure(path + " does not tell " + name);
}

void writeFile(const std::string& path, const std::string& content) {
  platform::OwnFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  if (!file) throw systemFailure("make " + path, errno);
  for (std::size_t done = 0; done < content.size();) {
    const ssize_t count = ::write(file.get(), content.data() + done, content.size() - done);
    if (count < 0 && errno != EINTR) throw systemFailure("write " + path, errno);
    if (count > 0) done += static_cast<std::size_t>(count);
  }
  if (file.closeNow() != 0) throw systemFailure("write " + path, errno);
}

void leaveServerOptions(const std::string& backupDirectory, const std::string& dataDirectory) {
  writeFile(backupDirectory + "/server-my.cnf", "[mysqld]\ndatadir=" + dataDirectory + "\n");
}

WorkFolder::WorkFolder(std::string path) : path_(std::move(path)) {
  makeFolder(path_);
}

void WorkFolder::remove() noexcept {
  if (std::exchange(kept_, true)) return;
  std::error_code error;
  fs::remove_all(path_, error);
  if (error) say("mysqlbackup: WARNING: " + path_ + " was not removed: " + error.message());
}

}  // namespace orrery::standin
