// The parent's side of a run, up to the started child.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "orrery/mysql/MySqlChildProcess.h"
#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/CKyDirectory.h"
#include "orrery/platform/DZPlatformInfo.h"
#include "orrery/platform/arguments.h"
#include "orrery/platform/posix.h"
#include "orrery/platform/services.h"

#include "process/child_plan.h"
#include "process/job_folder.h"
#include "session/guarded.h"

using orrery::mysql::guarded;
using orrery::platform::aboveStandardStreams;

namespace {

constexpr const char* initializeTag = "MySqlChildProcess::Initialize";

bool makePipe(int (&ends)[2]) {
  int made[2];
  if (pipe2(made, O_CLOEXEC) != 0) return false;
  ends[0] = aboveStandardStreams(made[0]);
  ends[1] = aboveStandardStreams(made[1]);
  return ends[0] >= 0 && ends[1] >= 0;
}

int openNull(int mode) {
  return aboveStandardStreams(open("/dev/null", mode | O_CLOEXEC));
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

int MySqlChildProcess::Initialize(std::string cmd, GetMySqlInfo* info) {
  m_cmd = std::move(cmd);
  m_ownEvent = EvEvent();  // the job may have changed since the object was made
  return guarded(*m_pEvent, initializeTag, [&] {
    m_startMicros = uniqueMicros();
    return checkCommand() == 0 && takeUser(info) == 0 ? prepareErrorFile() : -1;
  });
}

int MySqlChildProcess::checkCommand() {
  if (m_cmd.size() > kMaxCommandLength) {
    return refuse(initializeTag, E2BIG,
                  "the command line has " + std::to_string(m_cmd.size()) + " characters, more than the " +
                      std::to_string(kMaxCommandLength) + " that a client can be given");
  }
  if (m_cmd.find('\0') != std::string::npos) {
    return refuse(initializeTag, EINVAL, "the command line holds a null character");
  }
  const std::size_t arguments = orrery::platform::splitArguments(m_cmd).size();
  if (arguments == 0) return refuse(initializeTag, EINVAL, "the command line is empty");
  if (arguments > kMaxArguments) {
    return refuse(initializeTag, E2BIG,
                  "the command line has " + std::to_string(arguments) + " arguments, more than the " +
                      std::to_string(kMaxArguments) + " that a client can be given");
  }
  return 0;
}

int MySqlChildProcess::takeUser(const GetMySqlInfo* info) {
  if (info == nullptr) {
    m_pEvent->Debug(initializeTag, "No Impersonation for this Child Process");
    return 0;
  }
  if (info->strUnixUser.size() > kMaxUserLength) {
    return refuse(initializeTag, ENAMETOOLONG,
                  "the Unix user's name is longer than " + std::to_string(kMaxUserLength) + " characters");
  }
  copyBounded(m_impUser, sizeof(m_impUser), info->strUnixUser.c_str());
  m_pEvent->Debug(initializeTag, "Impersonating User [ %s ]", m_impUser);
  return 0;
}

int MySqlChildProcess::prepareErrorFile() {
  const DZPI_CommClient client;
  std::string results;
  if (client.getJobResultsDirectory(client.getFocusClientName(true), results) != 0) {
    return refuse(initializeTag, ENOENT, "the agent has no directory for job results");
  }
  m_jobFolder = results + "/DZ_JobResults/2/0/" + std::to_string(m_pEvent->getJobId());
  const CKyError error = CKyDirectory::Create(m_jobFolder);
  if (error.isError()) {
    m_pEvent->Debug(initializeTag, "Unable to create log folder [%s], error=[%s]", m_jobFolder.c_str(),
                    error.text().c_str());
    m_lastErr = error.code();
    m_lastErrText = "the folder for error files cannot be created: " + error.text();
    return -1;
  }
  m_errFile = m_jobFolder + "/MySqlErrors_" + std::to_string(m_startMicros) + ".txt";
  m_pEvent->Debug(initializeTag, "Error file [%s]", m_errFile.c_str());
  return 0;
}

int MySqlChildProcess::makePipes() {
  constexpr const char* tag = "MySqlChildProcess::DZ_CreateProcess";
  if (signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
    m_lastErr = errno;
    m_pEvent->Debug(tag, "signal failed: errno=%d", m_lastErr);
    return -1;
  }
  if (m_withoutPipes) return openNullStreams();
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

int MySqlChildProcess::openNullStreams() {
  m_filedesPW[0] = openNull(O_RDONLY);
  m_filedesCW[1] = m_filedesPW[0] < 0 ? -1 : openNull(O_WRONLY);
  if (m_filedesCW[1] >= 0) return 0;
  const int error = errno;
  return refuse("MySqlChildProcess::DZ_CreateProcess", error,
                "/dev/null cannot be opened: " + orrery::platform::errorText(error));
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
    close(std::exchange(m_filedesPW[0], -1));
    close(std::exchange(m_filedesCW[1], -1));
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
  plan->arguments = orrery::platform::splitArguments(param->cmd);
  for (std::string& argument : plan->arguments) plan->argv.push_back(argument.data());
  plan->argv.push_back(nullptr);
  plan->errFile.reserve(errFile.size());
  if (param->user[0] != '\0') {
    const auto lookup = orrery::platform::findAccount(param->user, plan->account);
    if (lookup == orrery::platform::AccountLookup::failed) {
      refuse(tag, errno, std::string("the account [") + param->user + "] could not be looked up");
      return;
    }
    if (lookup == orrery::platform::AccountLookup::unknown) {
      m_pEvent->Error(tag, "the account [%s] does not exist: the command runs as the agent's own account", param->user);
    } else {
      // An agent that is no superuser cannot change accounts, and need not when it is the account already.
      plan->takesAccount = geteuid() == 0 || plan->account.uid != geteuid();
    }
  }
  param->plan = std::move(plan);
}
