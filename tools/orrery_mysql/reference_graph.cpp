#include "reference_graph.h"

#include <cstddef>
#include <map>
#include <string_view>

#include "printable.h"

namespace orrery::tool {
namespace {

/// In a quoted string of a label a backslash begins an escape, "&" a character by name, and only the quote ends it.
std::string dotString(std::string_view text) {
  std::string result = "\"";
  for (const char c : printable(text)) {
    if (c == '"' || c == '\\') result += '\\';
    result += c == '&' ? "&amp;" : std::string(1, c);
  }
  return result + "\"";
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

/// Names of the graph's own: those of the server are shown, never used as names.
using Nodes = std::map<std::string, std::map<std::string, std::size_t>>;

Nodes nodesOf(const std::vector<mysql::ForeignKey>& keys) {
  Nodes nodes;
  for (const mysql::ForeignKey& key : keys) {
    nodes[key.database][key.table];
    nodes[key.referencedDatabase][key.referencedTable];
  }
  std::size_t number = 0;
  for (auto& [database, tables] : nodes) {
    for (auto& [table, node] : tables) node = ++number;
  }
  return nodes;
}

}  // namespace

std::string dotText(const std::vector<mysql::ForeignKey>& keys) {
  std::string text = "digraph references {\n  rankdir=RL;\n  charset=\"UTF-8\";\n  node [shape=box];\n";
  const Nodes nodes = nodesOf(keys);
  std::size_t cluster = 0;
  for (const auto& [database, tables] : nodes) {
    text += "  subgraph cluster_" + std::to_string(++cluster) + " {\n    label=" + dotString(database) + ";\n";
    for (const auto& [table, node] : tables) {
      text += "    t" + std::to_string(node) + " [label=" + dotString(table) + "];\n";
    }
    text += "  }\n";
  }
  for (const mysql::ForeignKey& key : keys) {
    text += "  t" + std::to_string(nodes.at(key.database).at(key.table)) + " -> t" +
            std::to_string(nodes.at(key.referencedDatabase).at(key.referencedTable));
    if (!key.name.empty()) {
      text += " [label=" +
              dotString(key.name + ": (" + joined(key.columns) + ") -> (" + joined(key.referencedColumns) + ")") + "]";
    }
    text += ";\n";
  }
  return text + "}\n";
}

}  // namespace orrery::tool
