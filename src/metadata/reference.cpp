#include "metadata/reference.h"

namespace orrery::mysql::metadata {

Found findReference(std::string_view statement, std::string_view& name) {
  constexpr auto none = std::string_view::npos;
  name = {};
  if (statement.find("ENGINE=InnoDB") == none) return Found::otherEngine;
  // Kept: the first foreign key alone. Agents restore a chain of tables one link at a time.
  const std::size_t key = statement.find("FOREIGN KEY");
  if (key == none) return Found::noForeignKey;
  const std::size_t references = statement.find("REFERENCES", key);
  if (references == none) return Found::noReferences;
  const std::size_t quote = statement.find('`', references);
  if (quote == none) return Found::noName;
  const std::size_t begin = quote + 1;
  const std::size_t open = statement.find('(', begin);
  // Kept: without a list of columns the rest of the statement is the name, and nothing is said of it.
  if (open == none) {
    name = statement.substr(begin);
    return Found::name;
  }
  constexpr std::size_t behindName = 2;  // the closing back-tick and the blank
  if (open < begin + behindName) return Found::noName;
  name = statement.substr(begin, open - behindName - begin);
  return Found::name;
}

Parent parentOf(std::string_view name, const std::string& database) {
  const std::size_t dot = name.find('.');
  if (dot == std::string_view::npos) return {database, std::string(name)};
  std::string_view parent = name.substr(0, dot);
  std::string_view table = name.substr(dot + 1);
  if (!parent.empty()) parent.remove_suffix(1);
  if (!table.empty()) table.remove_prefix(1);
  return {std::string(parent), std::string(table)};
}

}  // namespace orrery::mysql::metadata
