#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "context.h"
#include "output_file.h"

namespace orrery::tool {

class ServerSession;

/// Kinds of index records, which are the names of their messages.
inline constexpr const char* databaseRecordKind = "MySqlDbInfo";
inline constexpr const char* tableRecordKind = "MySqlMetaData";

struct DatabaseRecord {
  std::string name;
  std::string statement;
  std::string defaultEngine;
};
struct TableRecord {
  std::string name;
  std::string engine;
  std::optional<std::string> encodedStatement;
};
/// What a record says; Failure for bytes that are none.
DatabaseRecord databaseRecordOf(std::string_view bytes);
TableRecord tableRecordOf(std::string_view bytes);
/// The creation statement of a table; nothing where the record holds none.
std::optional<std::string> statementOf(const TableRecord& record);

/// A database that was asked for and is not in the result, and why.
struct LeftOutDatabase {
  std::string name;
  std::string reason;
};
using LeftOutDatabases = std::vector<LeftOutDatabase>;
Json toJson(const LeftOutDatabases& leftOut);

/// Takes the records of schemas one by one: each database, then its tables.
class RecordTaker {
 public:
  RecordTaker() = default;
  virtual ~RecordTaker() = default;
  RecordTaker(const RecordTaker&) = delete;
  RecordTaker& operator=(const RecordTaker&) = delete;
  virtual void database(const std::string& name, const std::string& bytes) = 0;
  virtual void table(const std::string& database, const std::string& bytes) = 0;
  /// Undoes the last `database` with its tables: they are not whole.
  virtual void drop() = 0;
};

/// Reads the records of one database from the server, none of them kept. The result of the session's operation that
/// failed or was ended by `mayGoOn`, else 0; what failed is dropped from `taker` again. The session must use plain
/// statements. Throws what `taker` throws.
int readRecords(ServerSession& server, const std::string& database, RecordTaker& taker,
                const std::function<bool()>& mayGoOn = {});

/// The records that a job's backup put into the index, of these databases or, for an empty list, of all. Databases
/// whose recording did not come to its end are left out and returned. Throws Failure, also when one of the databases
/// that were asked for is not among them.
LeftOutDatabases readRecords(Context& context, long long job, const std::list<std::string>& databases,
                             RecordTaker& taker);

/// The name of a table's record in the index: both names between back-ticks, those inside doubled, a dot between.
std::string recordName(const std::string& database, const std::string& table);
/// What the names of the records of a database's tables begin with, and no others.
std::string recordNameBegin(const std::string& database);

struct SchemaTotals {
  std::size_t databases = 0;
  std::size_t tables = 0;
  std::map<std::string, std::size_t> engines;  ///< tables by engine

  void addTable(const std::string& engine);
};
Json toJson(const SchemaTotals& totals);

/// What people look at: counts by database and engine, and the names of the tables.
class SchemaSummary final : public RecordTaker {
 public:
  void database(const std::string& name, const std::string& bytes) override;
  void table(const std::string& database, const std::string& bytes) override;
  void drop() override;
  void addDatabase(const std::string& name, const std::string& defaultEngine);
  void addTable(const std::string& database, const std::string& name, const std::string& engine);

  /// A line for each table when `withTables`, else for each database.
  Table toTable(bool withTables) const;

 private:
  struct Schema {
    std::string defaultEngine;
    std::map<std::string, std::string> tables;  // engine by name
  };
  std::map<std::string, Schema> schemas_;
  std::string last_;
};

/// Writes one JSON document piece by piece: a line for each table.
class JsonSchema final : public RecordTaker {
 public:
  /// `head` holds the keys that stand before the databases.
  JsonSchema(Destination& destination, const Json& head);
  void database(const std::string& name, const std::string& bytes) override;
  void table(const std::string& database, const std::string& bytes) override;
  void drop() override;
  void finish(const LeftOutDatabases& leftOut);

 private:
  struct State {
    SchemaTotals totals;
    bool isFirstTable = true;
  };
  void closeDatabase();

  Destination& destination_;
  State state_;
  State before_;  // the last database
  std::int64_t placeBefore_ = 0;
};

/// Writes records behind each other, see docs/file-formats.md, and counts them.
class RecordFile final : public RecordTaker {
 public:
  explicit RecordFile(Destination& destination) : destination_(destination) {}
  void database(const std::string& name, const std::string& bytes) override;
  void table(const std::string& database, const std::string& bytes) override;
  void drop() override;
  const SchemaTotals& totals() const noexcept { return totals_; }

 private:
  void write(std::uint32_t field, const std::string& bytes);

  Destination& destination_;
  SchemaTotals totals_;
  SchemaTotals before_;  // the last database
  std::int64_t placeBefore_ = 0;
};

}  // namespace orrery::tool
