#pragma once

#include <functional>
#include <memory>
#include <string>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/services.h"

#include "context.h"

class GetMySqlInfoExt;

namespace orrery::tool {

class Progress;

/// A session with the server of an instance, for the time of one command, in the access mode that the command line asks
/// for. Operations throw Failure.
class ServerSession {
 public:
  ServerSession(Context& context, const std::string& nameOrId);
  /// In library mode, whatever the command line and the version of the server say: for what only that mode can do.
  struct LibraryMode {};
  ServerSession(Context& context, const std::string& nameOrId, LibraryMode);

  const std::string& instance() const noexcept { return record_.name; }
  const platform::InstanceRecord& record() const noexcept { return record_; }
  bool isInCommandMode() const noexcept { return commandMode_; }
  GetMySqlInfo& operator*() noexcept { return *session_; }

  using Operation = std::function<int(GetMySqlInfo&)>;
  /// Runs one operation with a sign of life and gives its result. Throws Interrupted when the user asked for the end.
  int attempt(const Operation& operation);
  /// The same, and throws Failure for a result other than 0. `what` says what failed, in front of the instance's name.
  void run(const std::string& what, const Operation& operation);
  /// The same for an operation that asks the server once per table: shows how far it is, and ends it between two
  /// tables when the user asked for the end or `mayGoOn` says no. Library mode only.
  int attemptTables(const Operation& operation, const std::function<bool()>& mayGoOn = {});
  void runTables(const std::string& what, const Operation& operation);
  /// The session in library mode. In command mode, which offers only part of the operations, throws Failure; `what`
  /// says what there is not, in front of the instance's name.
  GetMySqlInfoExt& library(const std::string& what);
  /// Has the server print statements, and read the library's, without any mode of its own: some modes leave out keys
  /// and options, others exchange the quotes that the library looks for. Library mode only. `what` as in `run`.
  void usePlainStatements(const std::string& what);
  /// Throws Failure when that holds no longer: a connection that was lost and made again has the server's mode.
  void requirePlainStatements(const std::string& what);
  /// Reads a variable by its name. False when the server has none of that name.
  bool readVariable(const std::string& name, std::string& value);
  /// Throws Failure with what the session knows of its last failure and the table at hand, or Interrupted. `what` says
  /// what failed.
  [[noreturn]] void fail(const std::string& what) const;

 private:
  void open(bool commandMode);

  Context& context_;
  platform::InstanceRecord record_;
  bool commandMode_ = true;
  std::unique_ptr<GetMySqlInfo> session_;
  Progress* progress_ = nullptr;  ///< of the operation that runs
  std::string atHand_;            ///< the table that the operation asked for last
};

/// The sql_mode under which statements are printed.
inline constexpr const char* plainMode = "";

/// A number of the client library's own (errmsg.h): the server was not reached.
constexpr bool isClientError(int number) {
  return number >= 2000 && number < 3000;
}

/// How an agent would reach an instance, whatever the command line asks for.
struct AccessChoice {
  std::string instance;
  bool commandMode = false;
  std::string reason;   ///< in words
  std::string library;  ///< client library that library mode loads
};
AccessChoice chooseAccess(Context& context, const std::string& nameOrId);

}  // namespace orrery::tool
