#include "schema_records.h"

#include <exception>
#include <iterator>
#include <set>
#include <utility>

#include <protozero/exception.hpp>
#include <protozero/pbf_reader.hpp>
#include <protozero/pbf_writer.hpp>
#include <protozero/varint.hpp>

#include "orrery/mysql/MySqlHelperClassesExt.h"

#include "ascii85.h"
#include "failure.h"
#include "interrupt.h"
#include "printable.h"
#include "progress.h"
#include "server_session.h"
#include "text_json.h"

namespace orrery::tool {
namespace {

/// The text fields of a record by their numbers.
std::map<std::uint32_t, std::string> fieldsOf(std::string_view bytes) {
  std::map<std::uint32_t, std::string> fields;
  try {
    protozero::pbf_reader reader(bytes.data(), bytes.size());
    while (reader.next()) {
      if (reader.wire_type() == protozero::pbf_wire_type::length_delimited) {
        const std::uint32_t field = reader.tag();
        const protozero::data_view text = reader.get_view();
        fields[field].assign(text.data(), text.size());
      } else {
        reader.skip();
      }
    }
  } catch (const protozero::exception& error) {
    throw Failure("a record of the metadata cannot be read", error.what());
  }
  return fields;
}

std::string quoted(const std::string& name) {
  std::string text = "`";
  for (const char c : name) text.append(c == '`' ? 2 : 1, c);
  return text + "`";
}

/// The database in the name of a table's record.
std::string databaseIn(const std::string& recordName) {
  std::string name;
  for (std::size_t i = 1; i < recordName.size(); ++i) {
    if (recordName[i] == '`' && (++i >= recordName.size() || recordName[i] != '`')) break;
    name += recordName[i];
  }
  return name;
}

std::string engineText(const std::string& engine) {
  return engine.empty() ? "-" : engine;
}

std::string joined(const std::map<std::string, std::size_t>& engines) {
  std::string text;
  for (const auto& [engine, count] : engines) {
    text += (text.empty() ? "" : ", ") + engineText(engine) + " " + std::to_string(count);
  }
  return text.empty() ? "-" : text;
}

}  // namespace

DatabaseRecord databaseRecordOf(std::string_view bytes) {
  std::map<std::uint32_t, std::string> fields = fieldsOf(bytes);
  return {fields[1], fields[2], fields[3]};
}

TableRecord tableRecordOf(std::string_view bytes) {
  std::map<std::uint32_t, std::string> fields = fieldsOf(bytes);
  TableRecord record{fields[4], fields[5], std::nullopt};
  if (const auto encoded = fields.find(1); encoded != fields.end()) {
    record.encodedStatement = std::move(encoded->second);
  }
  return record;
}

std::optional<std::string> statementOf(const TableRecord& record) {
  if (!record.encodedStatement) return std::nullopt;
  std::optional<std::string> statement = decodeAscii85(*record.encodedStatement);
  if (!statement) throw Failure("the statement of the table " + record.name + " cannot be decoded", "");
  return statement;
}

std::string recordName(const std::string& database, const std::string& table) {
  return recordNameBegin(database) + quoted(table);
}

std::string recordNameBegin(const std::string& database) {
  return quoted(database) + ".";
}

int readRecords(ServerSession& server, const std::string& database, RecordTaker& taker,
                const std::function<bool()>& mayGoOn) {
  GetMySqlInfoExt& session = server.library("no metadata from");
  IdxMetadata::MySqlDbInfo info;
  int rc = server.attempt([&](GetMySqlInfo&) { return session.fillDatabaseInfo(database, &info); });
  if (rc != 0) return rc;
  std::string bytes;
  info.serialize(bytes);
  taker.database(database, bytes);
  std::exception_ptr thrown;  // it must not pass through the library
  const auto take = [&](const std::string&, const std::string& record) {
    try {
      taker.table(database, record);
      return true;
    } catch (...) {
      thrown = std::current_exception();
      return false;
    }
  };
  rc = server.attemptTables([&](GetMySqlInfo&) { return session.forEachTableRecord(database, take); }, mayGoOn);
  if (thrown) std::rethrow_exception(thrown);
  if (rc != 0) taker.drop();
  if (rc == 0) server.requirePlainStatements("no metadata of the database " + database + " of");
  return rc;
}

namespace {

/// Hands a job's records to a taker. A database's own record is written behind those of its tables, so a database
/// without one was not read to its end.
class RecordedDatabases {
 public:
  RecordedDatabases(Context& context, long long job, const std::list<std::string>& asked, RecordTaker& taker)
      : asked_(asked.begin(), asked.end()), taker_(taker), progress_("reading the index", context.wantsProgress()) {
    std::vector<std::pair<std::string, std::string>> closed;
    require(context.services().index->listRecords(job, databaseRecordKind, closed), kUnreadable);
    for (auto& [name, bytes] : closed) whole_.emplace(std::move(name), std::move(bytes));
    require(context.services().index->eachRecord(job, [&](const auto& record) { return take(record); }), kUnreadable);
    if (thrown_) std::rethrow_exception(thrown_);
  }

  bool isEmpty() const noexcept { return whole_.empty() && halves_.empty(); }
  bool isWithoutWholeOne() const noexcept { return whole_.empty(); }
  bool holds(const std::string& database) const { return whole_.count(database) != 0; }
  const std::set<std::string>& halves() const noexcept { return halves_; }

 private:
  static constexpr const char* kUnreadable = "the metadata of the job cannot be read";

  /// No exception may pass through the port.
  bool take(const platform::IndexRecord& record) {
    try {
      if (interruptSignal() != 0) throw Interrupted();
      hand(record);
      return true;
    } catch (...) {
      thrown_ = std::current_exception();
      return false;
    }
  }
  void hand(const platform::IndexRecord& record) {
    const bool isDatabase = record.kind == databaseRecordKind;
    if (!isDatabase && record.kind != tableRecordKind) return;
    const std::string database = isDatabase ? record.name : databaseIn(record.name);
    if (!asked_.empty() && asked_.count(database) == 0) return;
    const auto closing = whole_.find(database);
    if (closing == whole_.end()) {
      halves_.insert(database);
      return;
    }
    if (begun_.insert(database).second) {
      taker_.database(database, closing->second);
      progress_.change("reading " + printable(database) + " from the index");
    }
    if (!isDatabase) taker_.table(database, record.bytes);
  }

  const std::set<std::string> asked_;
  RecordTaker& taker_;
  Progress progress_;
  std::map<std::string, std::string> whole_;  // the databases' own records
  std::set<std::string> begun_;
  std::set<std::string> halves_;
  std::exception_ptr thrown_;
};

}  // namespace

LeftOutDatabases readRecords(Context& context, long long job, const std::list<std::string>& databases,
                             RecordTaker& taker) {
  const RecordedDatabases recorded(context, job, databases, taker);
  const std::string id = std::to_string(job);
  const std::string next = "orrery-mysql job show " + id + " tells of the job";
  constexpr const char* half = "its backup ended, or failed, in the middle of it";
  for (const std::string& name : databases) {
    if (recorded.holds(name) || recorded.isEmpty()) continue;
    const bool isHalf = recorded.halves().count(name) != 0;
    throw Failure("there is no metadata of the database " + name + " of the job " + id,
                  isHalf ? half : "its backup recorded none",
                  isHalf ? next : "without --database the command shows what there is");
  }
  if (recorded.isEmpty()) throw Failure("there is no metadata of the job " + id, "its backup recorded none", next);
  if (recorded.isWithoutWholeOne()) {
    throw Failure("there is no metadata of the job " + id,
                  "its backup ended, or failed, in the middle of the database " + *recorded.halves().begin(), next);
  }
  LeftOutDatabases leftOut;
  for (const std::string& name : recorded.halves()) leftOut.push_back({name, half});
  return leftOut;
}

Json toJson(const LeftOutDatabases& leftOut) {
  Json list = Json::array();
  for (const LeftOutDatabase& one : leftOut) {
    Json& shown = list.emplace_back();
    addText(shown, "database", one.name);
    addText(shown, "reason", one.reason);
  }
  return list;
}

void SchemaTotals::addTable(const std::string& engine) {
  ++tables;
  ++engines[engine];
}

Json toJson(const SchemaTotals& totals) {
  Json engines = Json::object();
  for (const auto& [engine, count] : totals.engines) engines[engine] = count;
  return {{"databases", totals.databases}, {"tables", totals.tables}, {"engines", engines}};
}

void SchemaSummary::database(const std::string& name, const std::string& bytes) {
  addDatabase(name, databaseRecordOf(bytes).defaultEngine);
}

void SchemaSummary::table(const std::string& database, const std::string& bytes) {
  const TableRecord record = tableRecordOf(bytes);
  addTable(database, record.name, record.engine);
}

void SchemaSummary::addDatabase(const std::string& name, const std::string& defaultEngine) {
  schemas_[name].defaultEngine = defaultEngine;
  last_ = name;
}

void SchemaSummary::drop() {
  schemas_.erase(last_);
}

void SchemaSummary::addTable(const std::string& database, const std::string& name, const std::string& engine) {
  schemas_[database].tables[name] = engine;
}

Table SchemaSummary::toTable(bool withTables) const {
  Table table(withTables ? std::vector<std::string>{"DATABASE", "DEFAULT ENGINE", "TABLE", "ENGINE"}
                         : std::vector<std::string>{"DATABASE", "DEFAULT ENGINE", "TABLES", "ENGINES"});
  SchemaTotals all;
  for (const auto& [name, schema] : schemas_) {
    SchemaTotals own;
    for (const auto& [tableName, engine] : schema.tables) {
      own.addTable(engine);
      all.addTable(engine);
      if (withTables) table.add({name, engineText(schema.defaultEngine), tableName, engineText(engine)});
    }
    if (withTables && schema.tables.empty()) table.add({name, engineText(schema.defaultEngine), "-", "-"});
    if (!withTables) {
      table.add({name, engineText(schema.defaultEngine), std::to_string(own.tables), joined(own.engines)});
    }
  }
  table.add({"total " + std::to_string(schemas_.size()), "", std::to_string(all.tables), joined(all.engines)});
  return table;
}

JsonSchema::JsonSchema(Destination& destination, const Json& head) : destination_(destination) {
  std::string text = dumped(head, 2);
  text.resize(text.rfind('\n'));  // its closing brace comes last
  destination_.write(text + ",\n  \"databases\": [");
}

void JsonSchema::closeDatabase() {
  if (state_.totals.databases > 0) destination_.write(state_.isFirstTable ? "]}" : "\n    ]}");
}

void JsonSchema::drop() {
  destination_.cutBack(placeBefore_);
  state_ = before_;
}

void JsonSchema::database(const std::string& name, const std::string& bytes) {
  placeBefore_ = destination_.place();
  before_ = state_;
  closeDatabase();
  const DatabaseRecord record = databaseRecordOf(bytes);
  Json shown;
  addText(shown, "name", name);
  shown["default_engine"] = record.defaultEngine.empty() ? Json(nullptr) : Json(record.defaultEngine);
  addText(shown, "statement", record.statement);
  std::string text = dumped(shown);
  text.pop_back();
  destination_.write((state_.totals.databases++ == 0 ? "\n    " : ",\n    ") + text + ",\"tables\":[");
  state_.isFirstTable = true;
}

void JsonSchema::table(const std::string&, const std::string& bytes) {
  const TableRecord record = tableRecordOf(bytes);
  Json shown;
  addText(shown, "name", record.name);
  shown["engine"] = record.engine;
  if (const std::optional<std::string> statement = statementOf(record)) {
    addText(shown, "statement", *statement);
  } else {
    shown["statement"] = nullptr;
  }
  destination_.write((std::exchange(state_.isFirstTable, false) ? "\n      " : ",\n      ") + dumped(shown));
  state_.totals.addTable(record.engine);
}

void JsonSchema::finish(const LeftOutDatabases& leftOut) {
  closeDatabase();
  destination_.write(state_.totals.databases == 0 ? "]" : "\n  ]");
  destination_.write(",\n  \"left_out\": " + dumped(toJson(leftOut)) +
                     ",\n  \"totals\": " + dumped(toJson(state_.totals)) + "\n}\n");
}

void RecordFile::write(std::uint32_t field, const std::string& bytes) {
  std::string message;
  message.reserve(bytes.size() + 8);
  protozero::pbf_writer(message).add_message(field, bytes);
  std::string length;
  protozero::write_varint(std::back_inserter(length), message.size());
  destination_.write(length);
  destination_.write(message);
}

void RecordFile::database(const std::string&, const std::string& bytes) {
  placeBefore_ = destination_.place();
  before_ = totals_;
  write(1, bytes);
  ++totals_.databases;
}

void RecordFile::table(const std::string&, const std::string& bytes) {
  write(2, bytes);
  totals_.addTable(tableRecordOf(bytes).engine);
}

void RecordFile::drop() {
  destination_.cutBack(placeBefore_);
  totals_ = before_;
}

}  // namespace orrery::tool
