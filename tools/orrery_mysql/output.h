#pragma once

/// What commands print on standard output: a table for people or one JSON document for programs.

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace orrery::tool {

using Json = nlohmann::ordered_json;

enum class Format { table, json };

/// Rows of text under a header. Columns are as wide as their widest text; control characters are shown escaped.
class Table {
 public:
  /// Without a header the rows are printed alone, as names and values are.
  explicit Table(std::vector<std::string> header = {}) : header_(std::move(header)) {}
  void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  std::string text() const;

 private:
  std::vector<std::string> header_;
  std::vector<std::vector<std::string>> rows_;
};

/// Prints one of the two, whole; throws Failure when standard output does not take it.
void print(Format format, const Json& document, const Table& table);

/// While one lives, what is written to standard output goes to the terminal behind standard error, or nowhere: drivers
/// tell people what they do, and the command's own result, or its one line of failure, shall stand alone.
class [[nodiscard]] OutputAside {
 public:
  OutputAside();
  ~OutputAside();
  OutputAside(const OutputAside&) = delete;
  OutputAside& operator=(const OutputAside&) = delete;

 private:
  int kept_;
};

}  // namespace orrery::tool
