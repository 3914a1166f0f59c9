#pragma once

/// What the schemas of a server hold, as values.

#include <map>
#include <string>
#include <vector>

#include "orrery/platform/CNMessageBase.h"

struct TblInfo {
  std::string name;
  std::string engine;
};

struct ClMySqlDbInfo {
  std::string name;  ///< empty where the server's catalogue was the source, see CollectMetadata
  std::map<std::string, TblInfo> tables;
};

struct ClMySqlMetaData {
  std::map<std::string, ClMySqlDbInfo> databases;
  std::map<std::string, std::string> configuration;  ///< the server's variables
};

/// By parent database and parent table, the tables that reference it.
using MySqlChildTables = std::map<std::string, std::map<std::string, IdxMetadata::MySqlChildTableList>>;

namespace orrery::mysql {

/// One foreign key as the server's catalogue has it.
struct ForeignKey {
  std::string database;
  std::string table;
  std::string name;
  std::vector<std::string> columns;
  std::string referencedDatabase;
  std::string referencedTable;
  std::vector<std::string> referencedColumns;  ///< as many as `columns`
  std::string onUpdate;                        ///< "RESTRICT", "CASCADE", "SET NULL", "NO ACTION", ...; empty: unknown
  std::string onDelete;
};

}  // namespace orrery::mysql
