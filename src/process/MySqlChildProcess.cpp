// The parent's side of a run, from the started child to its end.

#include "orrery/mysql/MySqlChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "orrery/platform/posix.h"

#include "process/exit_codes.h"

using orrery::platform::OwnFd;
namespace exitCode = orrery::mysql::exitCode;

namespace {

constexpr int brokenPipeElsewhere = 109;  // the number for it on another system, kept for callers that test for it

void closeEnd(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
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
