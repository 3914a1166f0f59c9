// Accounts, roles and their grants, as the server itself prints them.

#include <string>
#include <vector>

#include "access/identifiers.h"
#include "access/library_forward.h"
#include "metadata/answer.h"

using orrery::mysql::guarded;
using orrery::mysql::noConnection;
using orrery::mysql::metadata::Answer;
using orrery::mysql::metadata::column;
using orrery::mysql::metadata::noMemory;
using orrery::mysql::metadata::Request;
using orrery::mysql::metadata::Texts;

namespace {

// Servers' numbers (ER_PARSE_ERROR, ER_BAD_FIELD_ERROR in their lists of error messages).
constexpr int parseError = 1064;
constexpr int unknownColumn = 1054;

/// Sends a statement about accounts, `answer` being one of `request`.
int ask(const Request& request, Answer& answer, const std::string& statement) {
  request.log().DebugLvl(request.tag, 5, "Executing query [%s]", statement.c_str());
  if (answer.send(statement) == 0) return 0;
  if (answer.hasMemory()) {
    request.log().Debug(request.tag, "[%s] query execution failed Error: [%s]", statement.c_str(), request.error());
  }
  return request.keepError();
}

}  // namespace

int GetMySqlInfoExt::setIdentifiedWithAsHex(const std::string& value) {
  constexpr const char* tag = "GetMySqlInfoExt::setIdentifiedWithAsHex";
  return guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    // Kept: the value goes in as it is. The caller chooses it; it names no object of the server.
    if (m_Conn->RunQuery("SET print_identified_with_as_hex=" + value, nullptr) == 0) return 0;
    return keepConnectionError();
  });
}

int GetMySqlInfoExt::getUsers(std::vector<std::string>& accounts) {
  constexpr const char* tag = "GetMySqlInfoExt::getUsers";
  return guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    const Request request{*this, *m_Conn, tag};
    Answer answer(request, noMemory);
    // Kept: accounts of these two hosts belong to the machine that they are on; other local forms (::1) are listed.
    const char* const statement =
        "SELECT user, host FROM mysql.user where (host != 'localhost') and (host != '127.0.0.1')";
    if (ask(request, answer, statement) != 0) return -1;
    return answer.forEachRow(2, [&](Texts& row) {
      // Kept: a back-tick in a name stays single; callers take the text apart at "`@`". In the two requests below such
      // a text is a statement that the server cannot parse or, with a comment sign in the name, one about another
      // account. It only shows: a request is one statement, whose first words stand before the name.
      accounts.push_back("`" + row.front() + "`@`" + column(row, 1) + "`");
      evEvent.DebugLvl(tag, 5, "User - [%s]", accounts.back().c_str());
    });
  });
}

int GetMySqlInfoExt::getRoles(std::vector<std::string>& roles) {
  constexpr const char* tag = "GetMySqlInfoExt::getRoles";
  return guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    const Request request{*this, *m_Conn, tag};
    Answer answer(request, noMemory);
    const std::string statement = "SELECT user FROM mysql.user WHERE is_role='Y'";
    if (answer.send(statement) != 0) {
      // A server without the column knows no roles beside accounts.
      if (m_Conn->getLastError() == unknownColumn) return 0;
      if (answer.hasMemory()) {
        evEvent.Error(tag, "the roles cannot be listed: [%d:%s]", m_Conn->getLastError(), request.error());
      }
      return request.keepError();
    }
    return answer.forEachRow(1, [&](Texts& row) { roles.push_back(orrery::mysql::quoteIdentifier(row.front())); });
  });
}

int GetMySqlInfoExt::getCreateUserQuery(const std::string& account, std::string& statement) {
  constexpr const char* tag = "GetMySqlInfoExt::getCreateUserQuery";
  return guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    const Request request{*this, *m_Conn, tag};
    Answer answer(request, noMemory);
    if (ask(request, answer, "SHOW CREATE USER " + account) != 0) return -1;
    if (answer.rows() == 0) return 0;
    Texts row;
    if (answer.fetch(row) != 0) {
      // Kept: a syntax error that shows only here is passed over in silence, and the session's last error stays.
      if (m_Conn->getLastError() == parseError) return -1;
      evEvent.Debug(tag, "FetchNextRow failed:%s", request.error());
      return request.keepError();
    }
    if (row.empty()) return 0;
    statement = std::move(row.front());
    evEvent.DebugLvl(tag, 5, "Create user - [%s] Query - [%s]", account.c_str(), statement.c_str());
    return 0;
  });
}

int GetMySqlInfoExt::getGrantQueries(const std::string& account, std::vector<std::string>& statements) {
  constexpr const char* tag = "GetMySqlInfoExt::getGrantQueries";
  return guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    const Request request{*this, *m_Conn, tag};
    Answer answer(request, noMemory);
    if (ask(request, answer, "SHOW GRANTS FOR " + account) != 0) return -1;
    evEvent.DebugLvl(tag, 5, "Grants for user [%s]", account.c_str());
    return answer.forEachRow(1, [&](Texts& row) {
      statements.push_back(std::move(row.front()));
      evEvent.DebugLvl(tag, 5, "Grant query [%s]", statements.back().c_str());
    });
  });
}
