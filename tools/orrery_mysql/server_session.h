#pragma once

#include <functional>
#include <string>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/services.h"

#include "context.h"

namespace orrery::tool {

/// A session with the server of an instance, for the time of one command. The server need not run.
class ServerSession {
 public:
  /// Throws Failure when there is no such instance, or no session with it.
  ServerSession(Context& context, const std::string& nameOrId);

  const std::string& instance() const noexcept { return record_.name; }
  GetMySqlInfo& operator*() noexcept { return session_; }

  using Operation = std::function<int(GetMySqlInfo&)>;
  /// Runs one operation with a sign of life and gives its result. Throws Interrupted when the user asked for the end.
  int attempt(const Operation& operation);
  /// The same, and throws Failure for a result other than 0. `what` says what failed, in front of the instance's name.
  void run(const std::string& what, const Operation& operation) {
    if (attempt(operation) != 0) fail(what + " " + record_.name);
  }
  /// Throws Failure with what the session knows of its last failure, or Interrupted. `what` says what failed.
  [[noreturn]] void fail(const std::string& what) const;

 private:
  Context& context_;
  platform::InstanceRecord record_;
  int rc_ = -1;
  GetMySqlInfo session_;
};

}  // namespace orrery::tool
