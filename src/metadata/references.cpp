// The tables that reference others, as their creation statements say it.

#include <string>
#include <utility>

#include "access/identifiers.h"
#include "access/library_forward.h"
#include "metadata/answer.h"
#include "metadata/reference.h"
#include "metadata/watch.h"

namespace metadata = orrery::mysql::metadata;
using metadata::Answer;
using metadata::Found;
using metadata::Request;
using metadata::Texts;
using orrery::mysql::guarded;
using orrery::mysql::noConnection;

namespace {

bool isPassedOver(const std::string& schema) {
  // Kept: misspelt, so the tables of performance_schema are read like any other schema's.
  return schema == "information_schema" || schema == "performance_schmea";
}

int fetchCreationStatement(const Request& request, const std::string& db, const std::string& table, std::string& text) {
  Answer answer(request, metadata::noMemoryBrief);
  // Unqualified: the listing of the tables made their database the current one.
  if (answer.run("show create table " + orrery::mysql::quoteIdentifier(table) + ";") != 0) return -1;
  Texts row;
  if (answer.rows() != 0 && answer.next(row, 2) != 0) return -1;
  if (row.empty()) {
    request.log().Debug(request.tag,
                        "no fields returned for table [%s] in db [%s] , each table must have create table statement",
                        table.c_str(), db.c_str());
    return request.fail("the server has no creation statement for a table");
  }
  text = std::move(metadata::column(row, 1));
  request.log().DebugLvl(request.tag, 3, "Table %s create table =[%s]", table.c_str(), text.c_str());
  return 0;
}

bool findParent(const Request& request, const std::string& statement, std::string& name) {
  const auto say = [&](const char* text) { request.log().DebugLvl(request.tag, 3, "%s", text); };
  std::string_view found;
  switch (metadata::findReference(statement, found)) {
    case Found::name:
      name = found;
      request.log().DebugLvl(request.tag, 3, "references table=[%s]", name.c_str());
      if (!name.empty()) return true;
      break;
    case Found::otherEngine:
      break;
    case Found::noForeignKey:
      say("no FOREIGN KEY string found");
      break;
    case Found::noReferences:
      say("no REFERENCES string found");
      break;
    case Found::noName:
      say("Not start of refering table name found");
      break;
  }
  say("no reference table found");
  return false;
}

int addTable(const Request& request, const std::string& db, const std::string& table, MySqlChildTables& children) {
  std::string statement;
  if (fetchCreationStatement(request, db, table, statement) != 0) return -1;
  std::string name;
  if (!findParent(request, statement, name)) return 0;
  const metadata::Parent parent = metadata::parentOf(name, db);
  IdxMetadata::MySqlChildTable child;
  child.setstring(1, table);
  child.setstring(2, db);
  children[parent.database][parent.table].addlistobject(1, std::move(child));
  return 0;
}

void print(const Request& request, const MySqlChildTables& children) {
  const auto& [log, tag] = std::pair<const EvEvent&, const char*>(request.log(), request.tag);
  log.DebugLvl(tag, 3, "Printing child table details of all tables:");
  for (const auto& [db, tables] : children) {
    for (const auto& [table, list] : tables) {
      log.DebugLvl(tag, 3, "[%s.%s] is referenced in :", db.c_str(), table.c_str());
      for (const CNMessageBase& child : list.list(1)) {
        log.DebugLvl(tag, 3, "->[%s.%s]", child.getstring(2).c_str(), child.getstring(1).c_str());
      }
    }
  }
}

}  // namespace

int GetMySqlInfoExt::CollectChildTableData(MySqlChildTables& children) {
  constexpr const char* tag = "GetMySqlInfoExt::CollectChildTableData";
  return guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    const Request request{*this, *m_Conn, tag};
    Texts schemas;
    if (m_Conn->FetchDBList(schemas) != 0) {
      evEvent.Debug(tag, "querying db list failed");
      return request.keepError();
    }
    metadata::Watch watch(request, m_tableWatcher);
    for (const std::string& schema : schemas) {
      if (isPassedOver(schema)) {
        evEvent.DebugLvl(tag, 5, "ignoring information_schema/performance_schema");
        continue;
      }
      Texts tables;
      if (FetchTableList(schema, tables) != 0) {
        evEvent.Debug(tag, "Fetching table list failed");
        return -1;
      }
      for (const std::string& table : tables) {
        if (const int result = watch.beforeTable(schema, table); result != 0) return result;
        if (addTable(request, schema, table, children) != 0) return -1;
        watch.done();
      }
    }
    print(request, children);
    return 0;
  });
}
