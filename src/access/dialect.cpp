#include "access/dialect.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>

namespace orrery::mysql {
namespace {

/// Server error for a statement it cannot parse (ER_PARSE_ERROR in the servers' lists of error messages).
constexpr int parseError = 1064;
/// Server error for a column that is not there (ER_BAD_FIELD_ERROR).
constexpr int unknownColumn = 1054;

struct Pair {
  std::string_view known;
  std::string_view successor;
};

constexpr std::array statements = {
    Pair{"START SLAVE", "START REPLICA"},
    Pair{"STOP SLAVE", "STOP REPLICA"},
    Pair{"RESET MASTER", "RESET BINARY LOGS AND GTIDS"},
    Pair{"SHOW MASTER STATUS", "SHOW BINARY LOG STATUS"},
    Pair{"SHOW MASTER LOGS", "SHOW BINARY LOGS"},
    Pair{"SHOW SLAVE STATUS", "SHOW REPLICA STATUS"},
};

/// Under the sql_mode ANSI_QUOTES, what stands between double quotes is a name: of a column, here.
constexpr std::array quotedTexts = {
    Pair{"SELECT  TABLE_SCHEMA ,TABLE_NAME ,ENGINE FROM TABLES WHERE TABLE_TYPE=\"BASE TABLE\"",
         "SELECT  TABLE_SCHEMA ,TABLE_NAME ,ENGINE FROM TABLES WHERE TABLE_TYPE='BASE TABLE'"},
};

constexpr std::array programs = {
    Pair{"mysql", "mariadb"},
    Pair{"mysqladmin", "mariadb-admin"},
};

constexpr Pair tlsOptions{"--ssl", "--ssl-mode=REQUIRED"};

/// The client's command that ends a statement and asks for one column per line. Later clients take no commands in a
/// statement given on their command line.
constexpr Pair verticalLayout{"\\G", "--vertical"};

bool isVertical(std::string_view text) {
  constexpr std::size_t size = verticalLayout.known.size();
  return text.size() > size && text.substr(text.size() - size) == verticalLayout.known;
}

/// The statement that reaches the server.
std::string_view withoutLayout(std::string_view text) {
  if (isVertical(text)) text.remove_suffix(verticalLayout.known.size());
  return text;
}

/// Clients that do not treat "use" as a command of their own send it to the server, which takes a name between
/// back-ticks only.
constexpr std::string_view useQuoted = "use '";

bool isUseQuoted(std::string_view text) {
  return text.size() > useQuoted.size() && text.substr(0, useQuoted.size()) == useQuoted && text.back() == '\'';
}

std::string useInBackTicks(std::string_view text) {
  const std::string_view name = text.substr(useQuoted.size(), text.size() - useQuoted.size() - 1);
  return "use `" + std::string(name) + "`";
}

template <class Pairs>
const Pair* findPair(const Pairs& pairs, std::string_view known) {
  const auto found = std::find_if(pairs.begin(), pairs.end(), [&](const Pair& pair) { return pair.known == known; });
  return found == pairs.end() ? nullptr : &*found;
}

bool isPlain(std::string_view name) {
  return std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; });
}

/// Key under which a rejection is remembered. Every "use" is one text with another name; but a name with other signs
/// may itself be what the client stumbled over, and then tells nothing of the others.
std::string_view statementKey(std::string_view text) {
  if (!isUseQuoted(text)) return text;
  return isPlain(text.substr(useQuoted.size(), text.size() - useQuoted.size() - 1)) ? useQuoted : text;
}

std::string successorOf(std::string_view text) {
  if (isUseQuoted(text)) return useInBackTicks(text);
  const Pair* pair = findPair(quotedTexts, text);
  if (pair == nullptr) pair = findPair(statements, text);
  return pair == nullptr ? std::string() : std::string(pair->successor);
}

bool exists(std::string_view directory, std::string_view file) {
  return access((std::string(directory) + "/" + std::string(file)).c_str(), X_OK) == 0;
}

void tell(const EvDebug& log, const char* tag, std::string_view known, std::string_view successor) {
  log.Debug(tag, "[%.*s] is not known here, using [%.*s] from now on", static_cast<int>(known.size()), known.data(),
            static_cast<int>(successor.size()), successor.data());
}

}  // namespace

std::string Dialect::statement(const std::string& text) const {
  if (isVertical(text)) {
    const bool known = rejected_.count(verticalLayout.known) == 0;
    return statement(std::string(withoutLayout(text))) + std::string(known ? verticalLayout.known : "");
  }
  const bool rejected = rejected_.count(text) != 0 || (isUseQuoted(text) && rejected_.count(useQuoted) != 0);
  return rejected ? successorOf(text) : text;
}

std::string Dialect::layoutOption(const std::string& text) const {
  const bool rejected = isVertical(text) && rejected_.count(verticalLayout.known) != 0;
  return rejected ? " " + std::string(verticalLayout.successor) : std::string();
}

std::string Dialect::program(const std::string& name) const {
  return rejected_.count(name) != 0 ? std::string(findPair(programs, name)->successor) : name;
}

std::string Dialect::tlsOption() const {
  const bool old = rejected_.count(tlsOptions.known) == 0;
  return " " + std::string(old ? tlsOptions.known : tlsOptions.successor);
}

bool Dialect::learn(const Rejection& rejection, const EvDebug& log, const char* tag) {
  return learnProgram(rejection, log, tag) || learnTlsOption(rejection, log, tag) || learnLayout(rejection, log, tag) ||
         learnStatement(rejection, log, tag);
}

bool Dialect::learnProgram(const Rejection& rejection, const EvDebug& log, const char* tag) {
  const Pair* pair = findPair(programs, rejection.program);
  if (pair == nullptr || rejected_.count(pair->known) != 0) return false;
  if (exists(rejection.binaryPath, pair->known) || !exists(rejection.binaryPath, pair->successor)) return false;
  tell(log, tag, pair->known, pair->successor);
  rejected_.emplace(pair->known);
  return true;
}

bool Dialect::learnTlsOption(const Rejection& rejection, const EvDebug& log, const char* tag) {
  if (!rejection.usedTls || rejected_.count(tlsOptions.known) != 0) return false;
  if (rejection.errorText.find("unknown option '--ssl'") == std::string_view::npos) return false;
  tell(log, tag, tlsOptions.known, tlsOptions.successor);
  rejected_.emplace(tlsOptions.known);
  return true;
}

bool Dialect::learnLayout(const Rejection& rejection, const EvDebug& log, const char* tag) {
  if (!isVertical(rejection.statement) || rejected_.count(verticalLayout.known) != 0) return false;
  if (rejection.errorText.find("Unknown command '\\G'") == std::string_view::npos) return false;
  tell(log, tag, verticalLayout.known, verticalLayout.successor);
  rejected_.emplace(verticalLayout.known);
  return true;
}

bool Dialect::learnStatement(const Rejection& rejection, const EvDebug& log, const char* tag) {
  const std::string_view statement = withoutLayout(rejection.statement);
  const std::string_view key = statementKey(statement);
  const int sign = findPair(quotedTexts, statement) == nullptr ? parseError : unknownColumn;
  if (rejection.errorNumber != sign || rejected_.count(key) != 0) return false;
  if (isUseQuoted(statement) && rejected_.count(useQuoted) != 0) return false;
  const std::string successor = successorOf(statement);
  if (successor.empty()) return false;
  tell(log, tag, statement, successor);
  rejected_.emplace(key);
  return true;
}

bool Dialect::saysAlive(std::string_view answer) {
  // Later clients of one family name the server's program as it is called today.
  return answer == "mysqld is alive" || answer == "mariadbd is alive";
}

}  // namespace orrery::mysql
