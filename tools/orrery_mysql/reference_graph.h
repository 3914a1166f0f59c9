#pragma once

#include <string>
#include <vector>

#include "orrery/mysql/MySqlMetaData.h"

namespace orrery::tool {

/// A Graphviz digraph of tables in a cluster per database, with an edge from each child to its parent. Keys without a
/// name of their own give edges without a label. Whatever names hold, the text is one that Graphviz reads.
std::string dotText(const std::vector<mysql::ForeignKey>& keys);

}  // namespace orrery::tool
