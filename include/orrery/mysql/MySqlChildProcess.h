#pragma once

/// Runs one external program as a child: optionally as another Unix account, standard input and output over pipes,
/// standard error into a file of the job's results folder. The program is started without a shell.
///
/// Order of calls: construct, `Initialize`, `DZ_CreateProcess`, optionally `WriteBuf`, `ReadBuf` until it yields 0
/// bytes or fails, `Wait`, on failure `ReadErrBuf`, destroy. One object runs one command and belongs to one thread;
/// different objects may run at the same time on different threads.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "orrery/mysql/export.h"
#include "orrery/platform/DzProcess.h"
#include "orrery/platform/EvEvent.h"

class GetMySqlInfo;

namespace orrery::mysql {
struct ChildPlan;
}

/// Longest command line in characters, and room for it with its null.
inline constexpr int kMaxCommandLength = 2999;
/// Most arguments, the program included.
inline constexpr int kMaxArguments = 49;
/// Longest name of an account.
inline constexpr int kMaxUserLength = 103;

/// What the parent hands to the child through the fork.
struct MySqlChildParam {
  char cmd[kMaxCommandLength + 1] = {};
  int pw[2] = {-1, -1};  ///< parent to child
  int cw[2] = {-1, -1};  ///< child to parent
  char user[kMaxUserLength + 1] = {};
  std::string errFile;
  bool bCleanEnv = false;
  /// Everything the child needs that must not be worked out between fork and exec: arguments, environment, account.
  std::shared_ptr<orrery::mysql::ChildPlan> plan;
};

class ORRERY_MYSQL_EXPORT MySqlChildProcess {
 public:
  MySqlChildProcess() = default;
  /// Closes what is open. A child that was not waited for is ended with SIGKILL and reaped.
  ~MySqlChildProcess();
  MySqlChildProcess(const MySqlChildProcess&) = delete;
  MySqlChildProcess& operator=(const MySqlChildProcess&) = delete;

  /// Takes the command line and the account from the session (null: no switch of account), and makes sure that the
  /// job's folder for error files exists. -1, before anything is started, for a command line, a number of arguments or
  /// a user name above the limits, or when the folder cannot be made.
  int Initialize(std::string cmd, GetMySqlInfo* info);

  /// To be called before `DZ_CreateProcess`, for a command whose output nobody reads: its standard input and output are
  /// /dev/null then. A pipe that nobody empties would stop a chatty child for ever, one that is closed would kill it,
  /// and one that is kept open would let it wait for input. `WriteBuf` and `ReadBuf` fail.
  void WithoutPipes() noexcept { m_withoutPipes = true; }

  /// Starts the child. The first two flags are accepted for the callers' sake and have no meaning on Linux. `bCleanEnv`
  /// replaces the environment by LD_LIBRARY_PATH=/lib64:/lib:/usr/lib:/usr/lib64. From the first call on, SIGPIPE is
  /// ignored in this process, for good. An account that does not exist runs the child as the agent, which is logged
  /// as an error. -1 when pipes, folder or child cannot be made; GetLastErrNo() then tells errno. That a program
  /// cannot be executed shows only in `Wait`.
  int DZ_CreateProcess(bool, bool, bool bCleanEnv);

  /// Copies the fields into the parameter block and prepares the child's plan: splits the command line, looks the
  /// account up.
  void SetPostForkParam(MySqlChildParam* param, char* cmd, char* user, int* pw, int* cw, bool bCleanEnv,
                        const std::string& errFile);
  /// Copies them out again. `cmd` has room for kMaxCommandLength + 1 characters, `user` for kMaxUserLength + 1. Takes
  /// no heap when `errFile` has room for the path.
  static void GetPostForkParam(MySqlChildParam* param, char* cmd, char* user, int* pw, int* cw, EvEvent* event,
                               bool& bCleanEnv, std::string& errFile);
  /// The child's side, from fork to exec. `param` is a MySqlChildParam that SetPostForkParam filled. Ends in the
  /// program or in exit code 77 (a stream could not be redirected), 79 (exec failed) or 81 (the account could not be
  /// taken).
  [[noreturn]] static void PostFork(void* param);

  /// Writes all `len` bytes to the child's standard input. -1 when that fails; the child's error text is then logged.
  int WriteBuf(char* buf, long len);
  /// One read of the child's standard output. `len`: size of `buf` in, bytes read out, 0 at the end of the output.
  int ReadBuf(char* buf, long* len);
  /// Reads the child's error file into `buf`, at most `*len` - 1 bytes, ended by a null. `*len` is not changed.
  int ReadErrBuf(char* buf, long* len);
  /// Waits, without limit whatever the argument, for the child to end. 0 only for exit code 0; otherwise
  /// GetLastErrNo() is the exit code, or -1 for the runner's own codes.
  int Wait(unsigned int);
  /// Ends the child with SIGKILL. Result of the signal call: 0, or -1 with errno.
  int Terminate();
  /// Closes the parent's ends of both pipes.
  int Finalize();

  /// Takes errno over as the last error and returns it.
  int GetLastErr();
  /// The last error: errno, an exit code, or -1.
  int GetLastErrNo() const noexcept { return m_lastErr; }
  /// Why the last call was refused or failed, in words; empty when there is nothing to add to the error number.
  const std::string& GetLastErrText() const noexcept { return m_lastErrText; }

 private:
  ORRERY_MYSQL_HIDDEN int refuse(const char* tag, int error, std::string reason);
  ORRERY_MYSQL_HIDDEN int checkCommand();
  ORRERY_MYSQL_HIDDEN int takeUser(const GetMySqlInfo* info);
  ORRERY_MYSQL_HIDDEN int prepareErrorFile();
  ORRERY_MYSQL_HIDDEN int makePipes();
  ORRERY_MYSQL_HIDDEN int openNullStreams();
  ORRERY_MYSQL_HIDDEN void closePipes();
  ORRERY_MYSQL_HIDDEN int decodeStatus(int status);

  std::string m_cmd;
  std::vector<std::string> m_reserved1;  // kept empty
  std::vector<std::string> m_reserved2;  // kept empty
  int m_filedesPW[2] = {-1, -1};
  int m_filedesCW[2] = {-1, -1};
  std::string m_errFile;
  std::int64_t m_startMicros = 0;
  std::int32_t m_childPid = -1;
  std::unique_ptr<DzProcess> m_dzProcess;
  char m_impUser[kMaxUserLength + 1] = {};
  EvEvent* m_pEvent = &m_ownEvent;  // not deleted: the context belongs to the object and goes with it
  std::int32_t m_lastErr = 0;
  std::string m_lastErrText;
  std::string m_jobFolder;
  bool m_withoutPipes = false;
  EvEvent m_ownEvent;
};
