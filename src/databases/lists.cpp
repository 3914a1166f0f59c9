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
  // Behind the LIKE of SHOW stands nothing but a text between quotes. It compares bytes, and so does this.
  if (holdsPlainBackslash(pattern)) {
    return "SHOW DATABASES WHERE CAST(`Database` AS BINARY) LIKE " + quotePattern(pattern);
  }
  return behind("SHOW DATABASES LIKE '", quotePattern(pattern));
}

std::string tablesOf(std::string_view pattern) {
  return behind("select TABLE_NAME from INFORMATION_SCHEMA.TABLES WHERE table_schema LIKE '", quotePattern(pattern));
}

std::string sizeOf(std::string_view pattern) {
  return behind(
      "SELECT SUM(data_length+index_length),min(create_time) FROM INFORMATION_SCHEMA.TABLES WHERE table_schema LIKE '",
      quotePattern(pattern));
}

std::string enginesOf(std::string_view name) {
  return behind("SELECT `ENGINE` FROM `information_schema`.`TABLES` WHERE `TABLE_SCHEMA`='", quoteText(name));
}

}  // namespace orrery::mysql::databases
