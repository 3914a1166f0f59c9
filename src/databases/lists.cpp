#include "databases/lists.h"

#include "access/identifiers.h"

namespace orrery::mysql::databases {

void removeVirtualSchemas(std::list<std::string>& names) {
  names.remove_if([](const std::string& name) { return name == "performance_schema" || name == "information_schema"; });
}

void prefix(std::list<std::string>& names) {
  for (std::string& name : names) name.insert(name.begin(), '/');
}

std::string presenceOf(std::string_view pattern) {
  return "SHOW DATABASES LIKE '" + escapePattern(pattern) + "'";
}

std::string tablesOf(std::string_view pattern) {
  return "select TABLE_NAME from INFORMATION_SCHEMA.TABLES WHERE table_schema LIKE '" + escapePattern(pattern) + "'";
}

std::string sizeOf(std::string_view pattern) {
  return "SELECT SUM(data_length+index_length),min(create_time) FROM INFORMATION_SCHEMA.TABLES WHERE table_schema "
         "LIKE '" +
         escapePattern(pattern) + "'";
}

}  // namespace orrery::mysql::databases
