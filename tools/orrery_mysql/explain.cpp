#include "explain.h"

#include <sys/statvfs.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <optional>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/home.h"
#include "orrery/platform/instance_properties.h"

#include "instance_checks.h"
#include "interrupt.h"
#include "posix.h"

namespace orrery::tool {
namespace {

namespace property = platform::property;

struct Reason {
  std::string text;
  std::string next;
};

/// What may keep the agent from making files in one of its folders.
std::optional<Reason> lookAtFolder(const std::string& folder) {
  if (kindOf(folder) != FileKind::directory) {
    return Reason{"the folder " + folder + " is missing", "orrery-mysql init makes it again"};
  }
  if (::access(folder.c_str(), W_OK | X_OK) != 0) {
    return Reason{"the folder " + folder + " cannot be written: " + errorText(errno), "run as the owner of the home"};
  }
  struct statvfs space {};
  if (::statvfs(folder.c_str(), &space) == 0 && (space.f_bavail == 0 || (space.f_files != 0 && space.f_favail == 0))) {
    return Reason{"the disk under " + folder + " is full", "make room there"};
  }
  return std::nullopt;
}

std::string propertyOf(const platform::InstanceRecord& instance, const char* key) {
  const auto found = instance.properties.find(key);
  return found == instance.properties.end() ? std::string() : found->second;
}

/// Looks at everything that a client needs before it can speak to the server.
std::optional<Reason> preflight(Context& context, const platform::InstanceRecord& instance) {
  for (const std::string& folder : {context.temporaryDirectory(), context.resultsDirectory()}) {
    if (auto reason = lookAtFolder(folder)) return reason;
  }
  const std::string set = "orrery-mysql instance set " + instance.name;
  const std::string binaries = propertyOf(instance, property::binaryPath);
  if (const std::string missing = missingClient(binaries); !missing.empty()) {
    return Reason{"there is no " + missing + " in " + binaries, set + " --bin DIR names their folder"};
  }
  const std::string socket = propertyOf(instance, property::socketFile);
  if (!socket.empty() && socket.front() == '/' && kindOf(socket) != FileKind::socket) {
    const bool missing = kindOf(socket) == FileKind::missing;
    return Reason{socket + (missing ? " does not exist" : " is no socket"),
                  "start the server, or " + set + " --socket PATH names its socket"};
  }
  const std::string account = propertyOf(instance, property::unixUser);
  if (!account.empty() && !accountExists(account)) {
    return Reason{"the Unix account " + account + " does not exist", set + " --unix-user USER names another"};
  }
  for (const char* key : {property::sslCa, property::sslKey, property::sslCert}) {
    const std::string file = propertyOf(instance, key);
    if (!file.empty() && ::access(file.c_str(), R_OK) != 0) {
      return Reason{"the TLS file " + file + " cannot be read: " + errorText(errno), set + " --help names the options"};
    }
  }
  return std::nullopt;
}

/// Text behind "ERROR nnnn (xxxxx) at line n: " at the start of a line; the whole text when it does not begin so.
std::string_view withoutNumber(std::string_view text) {
  if (!text.starts_with("ERROR ")) return text;
  const std::size_t colon = text.find(": ");
  return colon == std::string_view::npos ? text : text.substr(colon + 2);
}

std::size_t findErrorLine(std::string_view text) {
  if (text.starts_with("ERROR ")) return 0;
  const std::size_t found = text.find("\nERROR ");
  return found == std::string_view::npos ? found : found + 1;
}

}  // namespace

std::string essentialText(std::string_view clientErrors) {
  if (const std::size_t line = findErrorLine(clientErrors); line != std::string_view::npos) {
    return onOneLine(withoutNumber(clientErrors.substr(line)));
  }
  // mysqladmin: "... connect to server at 'localhost' failed", then "error: 'text'", then a hint of its own.
  constexpr std::string_view opening = "error: '";
  const std::size_t quoted = clientErrors.find(opening);
  if (quoted != std::string_view::npos) {
    std::string_view text = clientErrors.substr(quoted + opening.size());
    const std::size_t end = text.find("'\n");
    text = text.substr(0, end);
    if (end == std::string_view::npos && !text.empty() && text.back() == '\'') text.remove_suffix(1);
    return onOneLine(text);
  }
  return onOneLine(clientErrors);
}

std::string nextStepFor(long number, std::string_view text) {
  struct Step {
    std::array<long, 4> numbers;
    const char* sign;
    const char* next;
  };
  // mysqladmin gives no number, so the words that are the same in all clients count as well.
  static constexpr const char* kCredentials =
      "orrery-mysql instance set changes the account (--user) and the password (--password-file)";
  static constexpr const char* kLibrary =
      "orrery-mysql init --client-library FILE links a client library, such as that of the package libmariadb3";
  static constexpr std::array kSteps{
      Step{{1045, 1698, 1044, 0}, "Access denied", kCredentials},
      Step{{2002, 2003, 2005, 0},
           "Can't connect",
           "check that the server runs and that the instance's socket is its own"},
      Step{{1142, 1227, 1370, 0}, "command denied", "grant the account the privilege that is missing"},
      Step{{2026, 0, 0, 0}, "SSL", "check the instance's TLS files and the server's certificate"},
      Step{{1040, 1203, 1226, 0}, "Too many connections", "wait until the server has a connection free"},
      Step{{2013, 2006, 1053, 0}, "Lost connection", "check the server's own error log"},
      Step{{0, 0, 0, 0}, "cannot open shared object file", kLibrary},
      Step{{0, 0, 0, 0}, "could not locate symbol", kLibrary},
      Step{{0, 0, 0, 0}, "invalid ELF header", kLibrary},
      Step{{0, 0, 0, 0}, "file too short", kLibrary},
  };
  for (const Step& step : kSteps) {
    for (const long known : step.numbers) {
      if (known != 0 && known == number) return step.next;
    }
    if (number <= 0 && text.find(step.sign) != std::string_view::npos) return step.next;
  }
  return {};
}

void throwSessionFailure(Context& context, const platform::InstanceRecord& instance, const GetMySqlInfo& session,
                         std::string_view what) {
  if (interruptSignal() != 0) throw Interrupted();
  const std::string log = "see " + context.homePath() + "/log/orrery-mysql.log";
  if (session.strErrorString.empty() && session.iErrorCode > 0) {
    throw Failure(what, platform::messageText(static_cast<std::uint32_t>(session.iErrorCode), {}));
  }
  if (const std::string text = essentialText(session.strErrorString); !text.empty()) {
    const std::string next = nextStepFor(session.iErrorCode, text);
    const std::optional<long> number = session.iErrorCode > 0 ? std::optional<long>(session.iErrorCode) : std::nullopt;
    throw Failure(what, text, next.empty() ? log : next, number);
  }
  if (const auto reason = preflight(context, instance)) throw Failure(what, reason->text, reason->next);
  throw Failure(what, context.lastWords(), log);
}

}  // namespace orrery::tool
