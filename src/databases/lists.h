#pragma once

#include <list>
#include <string>
#include <string_view>

/// What both modes say to the server about databases, and what they make of its list.
namespace orrery::mysql::databases {

// Lines that both modes write; people search logs for them.
inline constexpr char twoSchemasRemoved[] = "Removed perf and inf schemas...";
inline constexpr char listIsComplete[] = "Fetching Database List Succeeded";

/// Removes the two schemas that no server keeps in files of their own.
void removeVirtualSchemas(std::list<std::string>& names);
/// Puts the "/" before every name that it has in all lists outside of statements.
void prefix(std::list<std::string>& names);

// Statements about the databases that match a LIKE pattern, see quotePattern.
std::string presenceOf(std::string_view pattern);
std::string tablesOf(std::string_view pattern);
/// Size in bytes of their tables and the oldest creation time, as one row.
std::string sizeOf(std::string_view pattern);
/// The engines of the tables and views of one database, by its name.
std::string enginesOf(std::string_view name);

}  // namespace orrery::mysql::databases
