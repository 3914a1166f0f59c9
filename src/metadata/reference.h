#pragma once

#include <string>
#include <string_view>

namespace orrery::mysql::metadata {

/// How far the search for a table's first foreign key came.
enum class Found { otherEngine, noForeignKey, noReferences, noName, name };

/// The referenced table as the first foreign key in an InnoDB table's creation statement names it: without the outer
/// back-ticks, so a qualified one is "db`.`table". Only with `Found::name` does `name` hold something. It is a search
/// for words, so a comment or a name that holds them misleads it.
Found findReference(std::string_view statement, std::string_view& name);

struct Parent {
  std::string database;
  std::string table;
};

/// Takes such a name apart; unqualified it is a table of `database`.
Parent parentOf(std::string_view name, const std::string& database);

}  // namespace orrery::mysql::metadata
