// The defaults file: a private option file that carries the password to the clients.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/DZPlatformInfo.h"
#include "orrery/platform/account.h"
#include "orrery/platform/posix.h"
#include "orrery/platform/services.h"

#include "session/guarded.h"
#include "session/option_file.h"

using orrery::mysql::guarded;
using orrery::platform::OwnFd;

namespace {

constexpr const char* createTag = "GetMySqlInfo::CreateConfigPwdFile";
constexpr std::size_t contentRoom = 2048;

bool isTaken(const std::string& path) {
  struct stat info {};
  return lstat(path.c_str(), &info) == 0;  // a link that leads nowhere takes a name as well
}

/// Kept: the process id stands in the name twice, and the log calls the second one a thread. Leftovers of killed
/// processes are told by this pattern, and people find a session's file by its log line.
std::string namePart(unsigned long suffix, unsigned long long timestamp) {
  std::array<char, 96> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%ld_%llu_%d_%d_", static_cast<long>(suffix), timestamp, getpid(),
                getpid());
  return buffer.data();
}

/// Removes a file unless it was finished.
class [[nodiscard]] UnfinishedFile {
 public:
  explicit UnfinishedFile(const std::string& path) : path_(path) {}
  ~UnfinishedFile() {
    if (!finished_) unlink(path_.c_str());
  }
  UnfinishedFile(const UnfinishedFile&) = delete;
  UnfinishedFile& operator=(const UnfinishedFile&) = delete;
  void finish() { finished_ = true; }

 private:
  const std::string& path_;
  bool finished_ = false;
};

/// Text of an option file with a secret in it, wiped at the end.
class [[nodiscard]] SecretContent {
 public:
  explicit SecretContent(const std::string& password) {
    std::snprintf(buffer_.data(), buffer_.size(), "[client]\npassword='%s'\n", password.c_str());
  }
  ~SecretContent() { explicit_bzero(buffer_.data(), buffer_.size()); }
  SecretContent(const SecretContent&) = delete;
  SecretContent& operator=(const SecretContent&) = delete;
  std::string_view text() const { return buffer_.data(); }

 private:
  std::array<char, contentRoom> buffer_{};
};

bool giveTo(const std::string& account, int file) {
  orrery::platform::Account owner;
  return orrery::platform::findAccount(account, owner) == orrery::platform::AccountLookup::found &&
         fchown(file, owner.uid, owner.gid) == 0;
}

int writeAll(int file, std::string_view text, const std::string& path, const EvEvent& event) {
  while (!text.empty()) {
    const ssize_t written = write(file, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0) {
      event.Debug(createTag, "configPwdFile written");
      break;
    } else if (errno != EINTR) {
      event.Debug(createTag, "write failed, errno=[%d],filename= [%s], fd = [%d]", errno, path.c_str(), file);
      return -1;
    }
  }
  return 0;
}

}  // namespace

int GetMySqlInfo::CreateConfigPwdFile(unsigned long suffix) {
  return guarded(evEvent, createTag, [&] {
    const long long jobId = evEvent.getJobId();
    evEvent.Debug(createTag, "JobId = [%lld]", jobId);
    DZPI_Base dzpibase;
    const char* directory = dzpibase.getOrreryTempDirectory();
    if (directory == nullptr) {
      evEvent.Debug(createTag, "DZPI_Base::dzpibase.getOrreryTempDirectory returned NULL");
      return -1;
    }
    evEvent.Debug(createTag, "OrreryTempDirectory: [%s]", directory);

    auto timestamp = static_cast<unsigned long long>(orrery::platform::services().clock->now() / 1000000);
    if (timestamp == suffix) ++timestamp;  // copies pass the time as their suffix; the two numbers stay apart
    evEvent.Debug(createTag, "suffix = [%ld] timestamp [%lld], JobId=%lld Pid=%d Tid=%d", static_cast<long>(suffix),
                  static_cast<long long>(timestamp), jobId, getpid(), getpid());
    const std::string jobIdBuf = std::to_string(jobId);
    evEvent.Debug(createTag, "jobIdBuf = [%s]", jobIdBuf.c_str());
    const auto nameFor = [&](unsigned long long stamp) {
      return std::string(directory) + "/" + "orrery_bkp_mycnf_" + namePart(suffix, stamp) + jobIdBuf + ".cnf";
    };
    std::string path = nameFor(timestamp);

    OwnFd file;
    for (;;) {
      while (isTaken(path)) {
        evEvent.Debug(createTag, "multiple objects with same timestamp, changing timestamp...");
        ++timestamp;
        evEvent.Debug(createTag, "suffix = [%ld] timestamp [%lld] ", static_cast<long>(suffix),
                      static_cast<long long>(timestamp));
        path = nameFor(timestamp);
      }
      // Never through a link, never into a file that somebody else made between the look and the opening.
      file = OwnFd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
      if (file.valid() || errno != EEXIST) break;
    }
    if (!file.valid()) {
      evEvent.Debug(createTag,
                    " Failed to open file [%s] for writing. This was to store the instance details for running backup. "
                    "errnno=[%d]",
                    path.c_str(), errno);
      return -1;
    }

    UnfinishedFile unfinished(path);
    if (!strUnixUser.empty()) {
      if (!giveTo(strUnixUser, file.get())) {
        evEvent.Debug(createTag, " Failed to Set Permissions to Config File..");
        return -1;
      }
      evEvent.Debug(createTag, "Config File Ownership transferred to %s ", strUnixUser.c_str());
    }
    const SecretContent content(strPassword);
    if (!orrery::mysql::givesBackPassword(content.text(), strPassword)) {
      evEvent.Error(createTag,
                    "the password of [%s] holds characters that an option file does not give back as they are: the "
                    "clients will be refused; choose a password without backslashes, quotes before # and line breaks",
                    strSaUser.c_str());
    }
    if (writeAll(file.get(), content.text(), path, evEvent) != 0) return -1;
    if (file.closeNow() != 0) {
      evEvent.Debug(createTag, "close failed, errno=[%d], filename= [%s]", errno, path.c_str());
      return -1;
    }
    unfinished.finish();
    if (bInitialized && !strConfigPwdFile.empty()) unlink(strConfigPwdFile.c_str());
    strConfigPwdFile = path;
    bInitialized = true;
    return 0;
  });
}

int GetMySqlInfo::DeleteConfFile() {
  constexpr const char* tag = "GetMySqlInfo::DeleteConfFile";
  if (!bInitialized) {
    evEvent.Debug(tag, "GetMySqlInfo object not init'ed");
    return 0;
  }
  evEvent.Debug(tag, "Removing [%s] file", strConfigPwdFile.c_str());
  if (unlink(strConfigPwdFile.c_str()) != 0) {
    evEvent.Debug(tag, "unlink of [%s] file failed with errno=[%d]", strConfigPwdFile.c_str(), errno);
    return -1;
  }
  bInitialized = false;
  return 0;
}
