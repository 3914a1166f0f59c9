#include "server_session.h"

#include "orrery/mysql/MySqlHelperClassesExt.h"

#include "explain.h"
#include "failure.h"
#include "instance_lookup.h"
#include "interrupt.h"
#include "printable.h"
#include "progress.h"

namespace orrery::tool {
namespace {

/// A session that cannot be opened for the choice will not open for the request either, and says why.
bool isForCommandMode(const std::string& access, long instance) {
  if (access != "auto") return access == "command";
  bool commandMode = false;
  return getGetMySqlInfoMode(instance, commandMode) != 0 || commandMode;
}

std::string settingOf(Context& context, const char* key) {
  std::optional<std::string> value;
  require(context.services().settings->read("MySQL", key, value), "the settings cannot be read");
  return value.value_or("");
}

class [[nodiscard]] Watched {
 public:
  using Watcher = std::function<bool(const std::string&, const std::string&, std::size_t)>;

  Watched(GetMySqlInfoExt& session, Watcher watcher) : session_(session) { session_.watchTables(std::move(watcher)); }
  ~Watched() { session_.watchTables({}); }
  Watched(const Watched&) = delete;
  Watched& operator=(const Watched&) = delete;

 private:
  GetMySqlInfoExt& session_;
};

}  // namespace

ServerSession::ServerSession(Context& context, const std::string& nameOrId)
    : context_(context), record_(findInstance(context, nameOrId)) {
  const Progress progress("waiting for " + record_.name, context_.wantsProgress());
  const bool commandMode = isForCommandMode(context.access(), static_cast<long>(record_.id));
  if (interruptSignal() != 0) throw Interrupted();
  open(commandMode);
}

ServerSession::ServerSession(Context& context, const std::string& nameOrId, LibraryMode)
    : context_(context), record_(findInstance(context, nameOrId)) {
  open(false);
}

void ServerSession::open(bool commandMode) {
  commandMode_ = commandMode;
  if (commandMode) {
    session_ = std::make_unique<GetMySqlInfo>();
  } else {
    session_ = std::make_unique<GetMySqlInfoExt>();
  }
  if (session_->Init(static_cast<long>(record_.id)) != 0) fail("no session with " + record_.name);
}

void ServerSession::fail(const std::string& what) const {
  throwSessionFailure(context_, record_, *session_, atHand_.empty() ? what : what + ", at the table " + atHand_);
}

int ServerSession::attempt(const Operation& operation) {
  int rc = 0;
  {
    Progress progress("waiting for " + record_.name, context_.wantsProgress());
    progress_ = &progress;
    atHand_.clear();
    session_->clearErrors();
    rc = operation(*session_);
    progress_ = nullptr;
  }
  if (interruptSignal() != 0) throw Interrupted();
  return rc;
}

int ServerSession::attemptTables(const Operation& operation, const std::function<bool()>& mayGoOn) {
  GetMySqlInfoExt& session = library("no tables of");
  const Watched whileItRuns(session, [&](const std::string& database, const std::string& table, std::size_t tables) {
    atHand_ = table.empty() ? table : database + "." + table;
    if (progress_ != nullptr) {
      progress_->change("reading " + printable(database) + ", table " + std::to_string(tables + 1) + ",");
    }
    return interruptSignal() == 0 && (!mayGoOn || mayGoOn());
  });
  return attempt(operation);
}

void ServerSession::runTables(const std::string& what, const Operation& operation) {
  if (attemptTables(operation) != 0) fail(what + " " + record_.name);
}

GetMySqlInfoExt& ServerSession::library(const std::string& what) {
  if (commandMode_) {
    throw Failure(what + " " + record_.name, "it is reached in command mode, which does not offer that",
                  "--access library asks over one connection; orrery-mysql mode " + record_.name + " tells more");
  }
  return static_cast<GetMySqlInfoExt&>(*session_);
}

void ServerSession::run(const std::string& what, const Operation& operation) {
  if (attempt(operation) != 0) fail(what + " " + record_.name);
}

void ServerSession::usePlainStatements(const std::string& what) {
  GetMySqlInfoExt& session = library(what);
  run(what,
      [&](GetMySqlInfo&) { return session.runExeQuery(std::string("SET SESSION sql_mode='") + plainMode + "'"); });
}

void ServerSession::requirePlainStatements(const std::string& what) {
  std::string mode;
  readVariable("sql_mode", mode);
  if (mode == plainMode) return;
  throw Failure(what + " " + record_.name, "the connection was lost meanwhile and made again in another sql_mode",
                "run the command again");
}

bool ServerSession::readVariable(const std::string& name, std::string& value) {
  const std::string what = "no variable from";
  // The library takes a pattern; here a name is meant as it stands.
  const std::string pattern = session_->SpecialCharactersCheck(name);
  bool exists = true;
  run(what, [&](GetMySqlInfo& session) {
    const int rc = session.QueryVariable(pattern, value);
    // Over a connection a missing row is an error of the library's own.
    exists = commandMode_ || rc == 0 || session.iErrorCode != -1;
    return exists ? rc : 0;
  });
  if (!commandMode_ || !value.empty()) return exists;
  // In command mode a variable that is empty and one that is not there read alike.
  std::string rows;
  run(what, [&](GetMySqlInfo& session) {
    return session.executeMySqlCommand("SHOW VARIABLES LIKE '" + pattern + "'", rows, false);
  });
  return !rows.empty();
}

AccessChoice chooseAccess(Context& context, const std::string& nameOrId) {
  const platform::InstanceRecord record = findInstance(context, nameOrId);
  const long id = static_cast<long>(record.id);
  AccessChoice choice;
  choice.instance = record.name;

  GetMySqlInfo session;
  const auto failure = [&] { throwSessionFailure(context, record, session, "no access mode for " + record.name); };
  std::string version;
  {
    const Progress progress("waiting for " + record.name, context.wantsProgress());
    if (getGetMySqlInfoMode(id, choice.commandMode) != 0) {
      // The choice says that it failed; the same question asked here says why.
      if (session.Init(id) == 0) session.getVersionFromServer(version);
      failure();
    }
  }
  const std::string libraryPath = settingOf(context, "sLibPath");
  if (!choice.commandMode) {
    int rc = 0;
    choice.library = libraryPath.empty() ? GetMySqlInfoExt(id, rc).GetLibraryPath() : libraryPath;
  }
  long forced = 0;
  DZPlatformInfo().getNumber("MySQL", "sCommandMode", forced);
  if (forced != 0) {
    choice.reason = "the setting sCommandMode is " + std::to_string(forced);
  } else if (!libraryPath.empty()) {
    choice.reason = "the setting sLibPath names a client library";
  } else {
    if (session.Init(id) != 0 || session.getVersionFromServer(version) != 0) failure();
    choice.reason = "the server is of version " + onOneLine(version);
  }
  return choice;
}

}  // namespace orrery::tool
