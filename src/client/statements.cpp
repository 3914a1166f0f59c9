// Statements and rows over the one connection.

#include <iterator>
#include <string_view>
#include <utility>

#include "orrery/mysql/MySqlInterface.h"
#include "orrery/platform/EvEvent.h"

#include "access/dialect.h"
#include "access/identifiers.h"
#include "client/library.h"
#include "client/log_target.h"
#include "session/guarded.h"

using orrery::mysql::Carrier;
using orrery::mysql::guarded;
using orrery::mysql::Quoting;

int MySqlInterface::RunQuery(std::string query, QueryResult* result) {
  constexpr const char* tag = "MySqlInterface::RunQuery";
  return guarded(EvEvent(), tag, [&] {
    m_log->look();
    m_errNo = 0;
    if (result != nullptr) releaseRows(*result);
    if (GetConnection() != 0) {
      m_log->line("[ %s ] Connection creation failed:%s", tag, m_errStr.c_str());
      return -1;
    }
    m_log->line("[ %s ] Query:  %s\n", tag, query.c_str());
    if (m_library->call.mysql_real_query(m_pMySql, query.data(), query.size()) != 0) {
      keepClientError();
      m_log->line("[ %s ] Query Execution Failed.ErrorCode [%d], ErrorStr [%s].Reattempt with new connection", tag,
                  getLastError(), m_errStr.c_str());
      return -1;
    }
    if (result != nullptr) return storeResult(tag, *result);
    // Rows that nobody wants have to be taken all the same: a connection with rows on the way takes no other request.
    const auto& call = m_library->call;
    if (call.mysql_field_count(m_pMySql) == 0) return 0;
    if (orrery::mysql::ResultHandle* const rows = call.mysql_store_result(m_pMySql)) call.mysql_free_result(rows);
    return 0;
  });
}

int MySqlInterface::storeResult(const char* tag, QueryResult& result) {
  const auto& call = m_library->call;
  m_log->line("[ %s ] Retrieving Result Set....", tag);
  result.result = call.mysql_store_result(m_pMySql);
  if (result.result != nullptr) {
    result.fields = call.mysql_num_fields(result.result);
    result.rows = call.mysql_num_rows(result.result);
    m_log->line("[ %s ] Got %lu fields %lu rows...", tag, static_cast<unsigned long>(result.fields),
                static_cast<unsigned long>(result.rows));
    return 0;
  }
  if (call.mysql_field_count(m_pMySql) != 0) {
    keepClientError();
    m_log->line("[ %s ] mysql_store_result failed :%s ", tag, m_errStr.c_str());
    return -1;
  }
  result.fields = 0;
  result.rows = call.mysql_affected_rows(m_pMySql);
  m_log->line("[ %s ] zero rows returned...", tag);
  return 0;
}

void MySqlInterface::releaseRows(QueryResult& result) {
  if (result.result != nullptr && m_library != nullptr) {
    m_library->attachThread();
    m_library->call.mysql_free_result(result.result);
  }
  result = QueryResult();
}

int MySqlInterface::FreeResultSet(QueryResult*& result) {
  if (result == nullptr) return 0;
  return guarded(EvEvent(), "MySqlInterface::FreeResultSet", [&] {
    releaseRows(*result);
    delete std::exchange(result, nullptr);
    return 0;
  });
}

int MySqlInterface::FetchNextRow(QueryResult* result, std::list<std::string>& row) {
  constexpr const char* tag = "MySqlInterace::FetchRows";
  return guarded(EvEvent(), tag, [&] {
    m_log->lookAtRow();
    if (result == nullptr || result->result == nullptr || m_library == nullptr) {
      m_log->look();
      m_log->line("[%s] QueryResult is NULL.", tag);
      return fail(-1, "MYSQL_RES set is NULL");
    }
    ResetErrors();
    m_library->attachThread();
    const auto& call = m_library->call;
    char** const columns = call.mysql_fetch_row(result->result);
    if (columns == nullptr) {
      if (m_pMySql == nullptr || call.mysql_errno(m_pMySql) == 0) return 0;
      keepClientError();
      m_log->line("[%s] mysql_fetch_row failed:%s", tag, m_errStr.c_str());
      return -1;
    }
    // Where the library tells lengths, a column with a null byte in it comes whole.
    const auto lengthsOf = m_library->optional.mysql_fetch_lengths;
    const unsigned long* const lengths = lengthsOf == nullptr ? nullptr : lengthsOf(result->result);
    const bool isLogged = m_log->isWanted();
    if (isLogged) m_log->line("[%s] found a row.", tag);
    std::list<std::string> found;
    for (std::uint32_t i = 0; i < result->fields; ++i) {
      const char* const text = columns[i];
      // Kept: NULL reads as a text; callers compare with it. A stored text "NULL" cannot be told from it.
      if (text == nullptr) {
        found.emplace_back("NULL");
      } else if (lengths != nullptr) {
        found.emplace_back(text, lengths[i]);
      } else {
        found.emplace_back(text);
      }
      if (isLogged) m_log->line("[%s] row[%d]=[%s]", tag, static_cast<int>(i), found.back().c_str());
    }
    row.splice(row.end(), found);
    return 0;
  });
}

/// Runs a statement that later servers know by another text.
int MySqlInterface::runKnown(const std::string& statement, QueryResult* result) {
  for (;;) {
    if (RunQuery(m_dialect->statement(statement), result) == 0) return 0;
    const orrery::mysql::Dialect::Rejection rejection{{}, {}, statement, false, getLastError(), m_errStr};
    if (!m_dialect->learn(rejection, EvEvent(), "MySqlInterface::RunQuery")) return -1;
  }
}

int MySqlInterface::UseDatabase(std::string db) {
  constexpr const char* tag = "MySqlInterface::UseDatabase";
  return guarded(EvEvent(), tag, [&] {
    m_log->look();
    // The library takes a text that ends at its first null, which would be the name of another database.
    const auto reason = orrery::mysql::reasonToRefuse("database name", db, Quoting::none, Carrier::connection);
    if (reason) return refuse(tag, *reason);
    if (GetConnection() != 0) {
      m_log->line("[ %s ] connection creation failed:%s", tag, m_errStr.c_str());
      return -1;
    }
    if (m_library->call.mysql_select_db(m_pMySql, db.c_str()) != 0) {
      keepClientError();
      m_log->line("[ %s ] mysql_select_db failed : ErrorCode [%d], ErrorStr [%s]. Reattempt with new connection", tag,
                  getLastError(), m_errStr.c_str());
      return -1;
    }
    m_database = db;
    return 0;
  });
}

int MySqlInterface::PingServer() {
  constexpr const char* tag = "MySqlInterface::PingServer";
  return guarded(EvEvent(), tag, [&] {
    m_log->look();
    bool answers = GetConnection() == 0;
    if (answers && m_library->call.mysql_ping(m_pMySql) != 0) {
      keepClientError();
      answers = false;
    }
    if (answers) {
      m_log->line(" [ %s ] Ping Server Succeeded... ", tag);
      return 0;
    }
    m_log->line("[ %s ] Ping Server Failed : Check Connection to Server... ErrorCode [%ld],ErrorStr [%s]", tag,
                static_cast<long>(getLastError()), m_errStr.c_str());
    return -1;
  });
}

int MySqlInterface::GetServerVersion(std::string& version) {
  constexpr const char* tag = "MySqlInterface::GetServerVersion";
  return guarded(EvEvent(), tag, [&] {
    m_log->look();
    const char* told = GetConnection() == 0 ? m_library->call.mysql_get_server_info(m_pMySql) : nullptr;
    if (told == nullptr) {
      if (m_errNo == 0) fail(-1, "the server told no version");
      m_log->line("[ %s ] mysql_get_server_info failed:%s", tag, m_errStr.c_str());
      return -1;
    }
    // MariaDB servers before 11 put it first for the sake of old replicas, and one family of libraries leaves it there.
    constexpr std::string_view forReplicas = "5.5.5-";
    std::string_view text = told;
    const bool isPrefixed = text.substr(0, forReplicas.size()) == forReplicas && text.size() > forReplicas.size() &&
                            text[forReplicas.size()] >= '0' && text[forReplicas.size()] <= '9';
    if (isPrefixed) text.remove_prefix(forReplicas.size());
    version = text;
    m_log->line("[ %s ] Got Server Version as : %s", tag, version.c_str());
    return 0;
  });
}
