#pragma once

#include <optional>
#include <string>
#include <vector>

namespace orrery::mysql::discovery {

/// What a pass works with for one process.
struct WorkingTexts {
  std::string dataDirectory;
  std::string logDirectory;
  std::string baseDirectory;
  std::string configFile;
  std::string socket;
  std::string port;
  std::string binaryDirectory;
};

/// The options of a server's command line, given as the bytes of its arguments with a null behind each.
WorkingTexts optionsIn(const std::string& bytes);

/// The value of an option in a command line; nothing when the option or its "=" is missing.
std::optional<std::string> parameterIn(const std::string& commandLine, const std::string& option);

/// The same options as the server itself reads them, for comparison: whole arguments, "--name=value" or "--name value",
/// "_" for "-", short options. A text without a value stays empty; `logDirectory` holds the value of --log-bin as
/// given.
WorkingTexts optionsAsGiven(const std::string& bytes);

}  // namespace orrery::mysql::discovery
