#include "orrery/mysql/MySqlChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/CKyDirectory.h"
#include "orrery/platform/DZPlatformInfo.h"
#include "orrery/platform/posix.h"
#include "orrery/platform/services.h"

#include "process/arguments.h"
#include "process/child_plan.h"
#include "process/exit_codes.h"
#include "process/job_folder.h"
#include "session/guarded.h"

using orrery::mysql::guarded;
using orrery::platform::OwnFd;
namespace exitCode = orrery::mysql::exitCode;

namespace {

constexpr int firstFree = 3;
constexpr int brokenPipeElsewhere = 109;  // the number for it on another system, kept for callers that test for it

void closeEnd(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

/// A descriptor above the standard streams: in a process that was started without them, a pipe's end could be one of
/// them, and the child's redirections would overwrite it.
int aboveStandardStreams(int fd) {
  if (fd < 0 || fd >= firstFree) return fd;
  const OwnFd low(fd);
  return fcntl(low.get(), F_DUPFD_CLOEXEC, firstFree);
}

bool makePipe(int (&ends)[2]) {
  int made[2];
  if (pipe2(made, O_CLOEXEC) != 0) return false;
  ends[0] = aboveStandardStreams(made[0]);
  ends[1] = aboveStandardStreams(made[1]);
  return ends[0] >= 0 && ends[1] >= 0;
}

/// Microseconds since the epoch, different for every run of this process: they name the run's error file.
std::int64_t uniqueMicros() {
  static std::atomic<std::int64_t> last{0};
  std::int64_t before = last.load();
  std::int64_t micros = 0;
  do {
    micros = std::max(orrery::platform::services().clock->now(), before + 1);
  } while (!last.compare_exchange_weak(before, micros));
  return micros;
}

void copyBounded(char* to, std::size_t room, const char* from) {
  const std::size_t length = std::min(std::strlen(from), room - 1);
  std::memcpy(to, from, length);
  to[length] = '\0';
}

}  // namespace

MySqlChildProcess::~MySqlChildProcess() {
  closePipes();
}

void MySqlChildProcess::closePipes() {
  for (int* end : {&m_filedesPW[0], &m_filedesPW[1], &m_filedesCW[0], &m_filedesCW[1]}) closeEnd(*end);
}

int MySqlChildProcess::refuse(const char* tag, int error, std::string reason) {
  m_lastErr = error;
  m_lastErrText = std::move(reason);
  m_pEvent->Error(tag, "%s", m_lastErrText.c_str());
  return -1;
}

int MySqlChildProcess::Initialize(std::string cmd, GetMySqlInfo* info) {
  constexpr const char* tag = "MySqlChildProcess::Initialize";
  m_cmd = std::move(cmd);
  m_ownEvent = EvEvent();  // the job may have changed since the object was made
  return guarded(*m_pEvent, tag, [&] {
    m_startMicros = uniqueMicros();
    if (m_cmd.size() > kMaxCommandLength) {
      return refuse(tag, E2BIG,
                    "the command line has " + std::to_string(m_cmd.size()) + " characters, more than the " +
                        std::to_string(kMaxCommandLength) + " that a client can be given");
    }
    if (m_cmd.find('\0') != std::string::npos) return refuse(tag, EINVAL, "the command line holds a null character");
    const std::size_t arguments = orrery::mysql::splitArguments(m_cmd).size();
    if (arguments == 0) return refuse(tag, EINVAL, "the command line is empty");
    if (arguments > kMaxArguments) {
      return refuse(tag, E2BIG,
                    "the command line has " + std::to_string(arguments) + " arguments, more than the " +
                        std::to_string(kMaxArguments) + " that a client can be given");
    }
    if (info != nullptr) {
      if (info->strUnixUser.size() > kMaxUserLength) {
        return refuse(tag, ENAMETOOLONG,
                      "the Unix user's name is longer than " + std::to_string(kMaxUserLength) + " characters");
      }
      copyBounded(m_impUser, sizeof(m_impUser), info->strUnixUser.c_str());
      m_pEvent->Debug(tag, "Impersonating User [ %s ]", m_impUser);
    } else {
      m_pEvent->Debug(tag, "No Impersonation for this Child Process");
    }

    const DZPI_CommClient client;
    std::string results;
    if (client.getJobResultsDirectory(client.getFocusClientName(true), results) != 0) {
      return refuse(tag, ENOENT, "the agent has no directory for job results");
    }
    m_jobFolder = results + "/DZ_JobResults/2/0/" + std::to_string(m_pEvent->getJobId());
    const CKyError error = CKyDirectory::Create(m_jobFolder);
    if (error.isError()) {
      m_pEvent->Debug(tag, "Unable to create log folder [%s], error=[%s]", m_jobFolder.c_str(), error.text().c_str());
      m_lastErr = error.code();
      m_lastErrText = "the folder for error files cannot be created: " + error.text();
      return -1;
    }
    m_errFile = m_jobFolder + "/MySqlErrors_" + std::to_string(m_startMicros) + ".txt";
    m_pEvent->Debug(tag, "Error file [%s]", m_errFile.c_str());
    return 0;
  });
}

int MySqlChildProcess::makePipes() {
  constexpr const char* tag = "MySqlChildProcess::DZ_CreateProcess";
  if (signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
    m_lastErr = errno;
    m_pEvent->Debug(tag, "signal failed: errno=%d", m_lastErr);
    return -1;
  }
  if (!makePipe(m_filedesCW)) {
    m_lastErr = errno;
    m_pEvent->Debug(tag, "pipe(m_filedesCW) call failed when creating m_phpipecw : errno=%d", m_lastErr);
    return -1;
  }
  if (!makePipe(m_filedesPW)) {
    m_lastErr = errno;
    // Kept: the text names the other pipe; people search logs for it as it is.
    m_pEvent->Debug(tag, "pipe(m_filedesPW) call failed when creating m_phpipecw : errno=%d", m_lastErr);
    return -1;
  }
  return 0;
}

int MySqlChildProcess::DZ_CreateProcess(bool, bool, bool bCleanEnv) {
  constexpr const char* tag = "MySqlChildProcess::DZ_CreateProcess";
  if (m_dzProcess != nullptr) {
    m_lastErr = EINVAL;
    return -1;
  }
  const int result = guarded(*m_pEvent, tag, [&] {
    if (makePipes() != 0) return -1;
    m_dzProcess.reset(new (std::nothrow) DzProcess);
    if (m_dzProcess == nullptr) {
      m_pEvent->Debug(tag, "new DzProcess failed ");
      return -1;
    }
    m_pEvent->Debug(tag, "Setting Post Fork Parameters...");
    m_pEvent->Debug(tag, "Command to run [%s]", m_cmd.c_str());
    MySqlChildParam param;
    SetPostForkParam(&param, m_cmd.data(), m_impUser, m_filedesPW, m_filedesCW, bCleanEnv, m_errFile);
    if (param.plan == nullptr) return -1;

    // Only where the child becomes another account: the folder is the agent's own otherwise.
    std::optional<orrery::mysql::JobFolderGrant> grant;
    if (param.plan->takesAccount && geteuid() == 0) {
      grant.emplace(m_jobFolder, param.plan->account.gid);
      if (!grant->valid()) {
        return refuse(
            tag, errno,
            "the job folder [" + m_jobFolder + "] cannot be opened to the account [" + std::string(m_impUser) + "]");
      }
    }
    std::array<char, 120> errorText{};
    if (m_dzProcess->Fork(PostFork, &param, errorText.data(), static_cast<int>(errorText.size()),
                          DzProcess::ChildMemory::borrowed) != 1) {
      m_pEvent->Debug(tag, "fork failed: errno=%d", GetLastErr());
      m_lastErrText = std::string("no child process could be made: ") + errorText.data();
      return -1;
    }
    closeEnd(m_filedesPW[0]);
    closeEnd(m_filedesCW[1]);
    m_childPid = m_dzProcess->GetChildPid();
    m_pEvent->Debug(tag, "Parent: child process pid= %d", m_childPid);
    return 0;
  });
  if (result != 0) closePipes();  // a read would wait for a child that never was
  return result;
}

void MySqlChildProcess::SetPostForkParam(MySqlChildParam* param, char* cmd, char* user, int* pw, int* cw,
                                         bool bCleanEnv, const std::string& errFile) {
  constexpr const char* tag = "MySqlChildProcess::SetPostForkParam";
  *param = MySqlChildParam();
  copyBounded(param->cmd, sizeof(param->cmd), cmd);
  copyBounded(param->user, sizeof(param->user), user);
  std::copy_n(pw, 2, param->pw);
  std::copy_n(cw, 2, param->cw);
  param->errFile = errFile;
  param->bCleanEnv = bCleanEnv;

  auto plan = std::make_shared<orrery::mysql::ChildPlan>();
  plan->arguments = orrery::mysql::splitArguments(param->cmd);
  for (std::string& argument : plan->arguments) plan->argv.push_back(argument.data());
  plan->argv.push_back(nullptr);
  plan->errFile.reserve(errFile.size());
  if (param->user[0] != '\0') {
    const auto lookup = orrery::mysql::findAccount(param->user, plan->account);
    if (lookup == orrery::mysql::AccountLookup::failed) {
      refuse(tag, errno, std::string("the account [") + param->user + "] could not be looked up");
      return;
    }
    if (lookup == orrery::mysql::AccountLookup::unknown) {
      m_pEvent->Error(tag, "the account [%s] does not exist: the command runs as the agent's own account", param->user);
    } else {
      // An agent that is no superuser cannot change accounts, and need not when it is the account already.
      plan->takesAccount = geteuid() == 0 || plan->account.uid != geteuid();
    }
  }
  param->plan = std::move(plan);
}

int MySqlChildProcess::WriteBuf(char* buf, long len) {
  constexpr const char* tag = "MySqlChildProcess::WriteBuf";
  while (len > 0) {
    const ssize_t written = write(m_filedesPW[1], buf, static_cast<std::size_t>(len));
    if (written >= 0) {
      m_pEvent->DebugLvl(tag, 8, "wrote %d bytes", static_cast<int>(written));
      buf += written;
      len -= written;
      continue;
    }
    if (errno == EINTR) continue;
    const int error = errno;
    m_pEvent->Debug(tag, "write failed: errno=%d", error);
    std::array<char, 1025> errors{};
    long room = errors.size();
    ReadErrBuf(errors.data(), &room);
    m_pEvent->Debug(tag, "Error Stream: %s", errors.data());
    m_lastErr = error;
    return -1;
  }
  return 0;
}

int MySqlChildProcess::ReadBuf(char* buf, long* len) {
  constexpr const char* tag = "MySqlChildProcess::ReadBuf";
  std::memset(buf, 0, static_cast<std::size_t>(*len));
  ssize_t count = 0;
  do {
    count = read(m_filedesCW[0], buf, static_cast<std::size_t>(*len - 1));
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    m_lastErr = errno;
    m_pEvent->Debug(tag, "read failed: errno=%d", m_lastErr);
    return -1;
  }
  if (count == 0) m_pEvent->Debug(tag, "no data left to read");
  *len = count;
  return 0;
}

int MySqlChildProcess::ReadErrBuf(char* buf, long* len) {
  constexpr const char* tag = "MySqlChildProcess::ReadErrBuf";
  std::memset(buf, 0, static_cast<std::size_t>(*len));
  m_pEvent->Debug(tag, "Previous errno = [%d].", GetLastErr());
  errno = 0;
  // The folder is writable for the server's account: a link of
  // either kind or a pipe that it planted there is not read.
  const OwnFd file(open(m_errFile.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat info {};
  if (!file.valid() || fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_nlink != 1) {
    m_pEvent->Debug(tag, "failed to open the file [%s] errno [%d]", m_errFile.c_str(), errno);
    return -1;
  }
  const ssize_t count = read(file.get(), buf, static_cast<std::size_t>(*len - 1));
  if (count == 0) return 0;
  const int error = GetLastErr();
  m_pEvent->Debug(tag, "ReadFile: LastError=%d", error);
  m_pEvent->Debug(tag, "Got Error %s", buf);
  if (error == brokenPipeElsewhere) {
    m_pEvent->Debug(tag, "Received broken pipe");
    return -1;
  }
  if (error != 0 && error != EAGAIN) {
    m_pEvent->Debug(tag, "ReadFile() failed: lastErr=%d\n", error);
    return -1;
  }
  return 0;
}

int MySqlChildProcess::Wait(unsigned int) {
  constexpr const char* tag = "MySqlChildProcess::Wait";
  m_lastErr = 0;
  if (m_dzProcess == nullptr) {
    m_pEvent->Debug(tag, "m_dzProcess is null, Child Process may not be Created....");
    return -1;
  }
  m_pEvent->Debug(tag, "Waititng for Child process...");
  int status = 0;
  std::array<char, 50> errorText{};
  if (m_dzProcess->WaitForProcessToEnd(status, errorText.data(), static_cast<int>(errorText.size()), -1) != 1) {
    m_pEvent->Debug(tag, "WaitForProcessToEnd failed,errorMsg=%s", errorText.data());
    return -1;
  }
  return decodeStatus(status);
}

int MySqlChildProcess::decodeStatus(int status) {
  constexpr const char* tag = "MySqlChildProcess::Wait";
  if (WIFEXITED(status)) {
    const int code = WEXITSTATUS(status);
    if (code == 0) {
      m_pEvent->Debug(tag, "Child OK");
      return 0;
    }
    m_pEvent->Debug(tag, "Exit status 0x%X (return %d 0x%X)", static_cast<unsigned>(status), code,
                    static_cast<unsigned>(code));
    m_lastErr = -1;
    switch (code) {
      case exitCode::environmentFailed:
        m_pEvent->Debug(tag, "Env failed");
        break;
      case exitCode::redirectionFailed:
        m_pEvent->Debug(tag, "Dup failed");
        break;
      case exitCode::execFailed:
        m_pEvent->Debug(tag, "Exec failed");
        break;
      default:
        m_lastErr = code;
        m_pEvent->Debug(tag, "Child exited with error: %d", code);
    }
  } else if (WIFSIGNALED(status)) {
    m_pEvent->Debug(tag, "Child died after receiving signal %d%s", WTERMSIG(status),
                    WCOREDUMP(status) ? " (core file generated)" : "");
  } else if (WIFSTOPPED(status)) {
    m_pEvent->Debug(tag, "Child stopped with signal %d", WSTOPSIG(status));
  } else {
    m_pEvent->Debug(tag, "Child unknown error");
  }
  return -1;
}

int MySqlChildProcess::Terminate() {
  if (m_dzProcess == nullptr) {
    errno = ESRCH;
    return -1;
  }
  return m_dzProcess->Kill(SIGKILL);
}

int MySqlChildProcess::Finalize() {
  m_pEvent->Debug("MySqlChildProcess::Finalize", "start");
  closeEnd(m_filedesPW[1]);
  closeEnd(m_filedesCW[0]);
  return 0;
}

int MySqlChildProcess::GetLastErr() {
  m_lastErr = errno;
  return m_lastErr;
}
