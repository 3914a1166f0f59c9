#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orrery::mysql::discovery {

/// What the section [mysqld] of an option file says; nothing of what it does not set.
struct ServerSection {
  std::optional<std::string> dataDirectory;
  std::optional<std::string> logDirectory;
  std::optional<std::string> port;
};

ServerSection readServerSection(const std::string& text);

/// What a server finds in an option file that readServerSection does not look at.
struct FurtherOptions {
  struct Value {
    std::string text;
    std::string place;  ///< file and section
  };
  std::optional<Value> dataDirectory;
  std::optional<Value> socket;
  std::optional<Value> port;
  std::optional<Value> logBin;
  bool isCutShort = false;  ///< more is included than is read for one process
};

/// How the files that a file includes are reached.
struct OptionFileReader {
  std::function<bool(const std::string& path, std::string& text)> read;
  std::function<std::vector<std::string>(const std::string& folder)> filesIn;
};

/// Reads the sections of servers in a file and in what it includes, later settings over earlier ones.
FurtherOptions readFurther(const std::string& path, const std::string& text, const OptionFileReader& reader);

}  // namespace orrery::mysql::discovery
