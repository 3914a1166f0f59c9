// Every foreign key, as the server's catalogue has it.

#include <algorithm>
#include <cstdlib>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "access/library_forward.h"
#include "metadata/answer.h"

namespace metadata = orrery::mysql::metadata;
using metadata::Answer;
using metadata::column;
using metadata::Texts;
using orrery::mysql::ForeignKey;
using orrery::mysql::guarded;
using orrery::mysql::noConnection;

namespace {

/// Columns of keys and rules of keys, told apart by the first column, one below the other. A join of the two views
/// compares each row with each on MariaDB: half a minute for 10,000 tables, where this takes two seconds.
constexpr const char* statement =
    "SELECT 'column', CONSTRAINT_SCHEMA, TABLE_NAME, CONSTRAINT_NAME, COLUMN_NAME, REFERENCED_TABLE_SCHEMA, "
    "REFERENCED_TABLE_NAME, REFERENCED_COLUMN_NAME, ORDINAL_POSITION FROM information_schema.KEY_COLUMN_USAGE "
    "WHERE REFERENCED_TABLE_NAME IS NOT NULL "
    "UNION ALL SELECT 'rule', CONSTRAINT_SCHEMA, TABLE_NAME, CONSTRAINT_NAME, UPDATE_RULE, DELETE_RULE, '', '', 0 "
    "FROM information_schema.REFERENTIAL_CONSTRAINTS";
constexpr std::size_t columnsOfRow = 9;

/// Database, table and name.
using KeyName = std::tuple<std::string, std::string, std::string>;

struct KeyColumn {
  KeyName key;
  unsigned long position;
  std::string name, referencedDatabase, referencedTable, referencedName;
};

struct KeyRule {
  KeyName key;
  std::string onUpdate, onDelete;
};

struct Rows {
  std::vector<KeyColumn> columns;
  std::vector<KeyRule> rules;

  void add(Texts& row) {
    const auto take = [&](std::size_t index) { return std::move(column(row, index)); };
    KeyName key(take(1), take(2), take(3));
    if (row.front() == "rule") {
      rules.push_back({std::move(key), take(4), take(5)});
    } else {
      columns.push_back(
          {std::move(key), std::strtoul(column(row, 8).c_str(), nullptr, 10), take(4), take(5), take(6), take(7)});
    }
  }
  void sort() {
    std::sort(columns.begin(), columns.end(), [](const KeyColumn& one, const KeyColumn& other) {
      return std::tie(one.key, one.position) < std::tie(other.key, other.position);
    });
    std::sort(rules.begin(), rules.end(), [](const KeyRule& one, const KeyRule& other) { return one.key < other.key; });
  }
};

/// Of rows that are sorted.
void merge(Rows& rows, std::vector<ForeignKey>& keys) {
  auto rule = rows.rules.begin();
  for (auto part = rows.columns.begin(); part != rows.columns.end();) {
    ForeignKey key;
    const KeyName name = part->key;
    std::tie(key.database, key.table, key.name) = name;
    key.referencedDatabase = std::move(part->referencedDatabase);
    key.referencedTable = std::move(part->referencedTable);
    for (; part != rows.columns.end() && part->key == name; ++part) {
      key.columns.push_back(std::move(part->name));
      key.referencedColumns.push_back(std::move(part->referencedName));
    }
    while (rule != rows.rules.end() && rule->key < name) ++rule;
    if (rule != rows.rules.end() && rule->key == name) {
      key.onUpdate = std::move(rule->onUpdate);
      key.onDelete = std::move(rule->onDelete);
    }
    keys.push_back(std::move(key));
  }
}

}  // namespace

int GetMySqlInfoExt::collectForeignKeys(std::vector<ForeignKey>& keys) {
  constexpr const char* tag = "GetMySqlInfoExt::collectForeignKeys";
  return guarded(evEvent, tag, [&] {
    if (m_Conn == nullptr) return withoutConnection(tag, noConnection);
    Rows rows;
    {
      Answer answer({*this, *m_Conn, tag}, metadata::noMemory);
      if (answer.run(statement) != 0) return -1;
      if (answer.forEachRow(columnsOfRow, [&](Texts& row) { rows.add(row); }) != 0) return -1;
    }
    rows.sort();
    merge(rows, keys);
    return 0;
  });
}
