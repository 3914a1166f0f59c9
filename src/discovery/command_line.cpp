#include "discovery/command_line.h"

#include <algorithm>
#include <array>
#include <utility>

#include "orrery/platform/FXString.h"

namespace orrery::mysql::discovery {
namespace {

constexpr const char* valueEnds = " \t\r\n";

/// Kept: the first line alone. A line break inside an argument hides what stands behind it.
std::string asOneLine(const std::string& bytes) {
  std::string line = bytes.substr(0, bytes.find('\n'));
  std::replace(line.begin(), line.end(), '\0', ' ');
  line += '\n';
  return line;
}

/// Kept: a name without a folder means the data directory as far as it is known when the option comes by, so
/// --log-bin before --datadir finds none.
std::string logDirectoryOf(const std::string& value, const std::string& dataDirectory) {
  const std::size_t slash = value.rfind('/');
  return slash == std::string::npos ? dataDirectory : value.substr(0, slash + 1);
}

void take(WorkingTexts& texts, const std::string& key, const std::string& value) {
  const auto is = [&](const char* name) { return FXString::EqualsIgnoreCase(key, name); };
  if (is("--datadir")) {
    texts.dataDirectory = value;
  } else if (is("--log-bin")) {
    texts.logDirectory = logDirectoryOf(value, texts.dataDirectory);
  } else if (is("--socket")) {
    texts.socket = value;
  } else if (is("--defaults-file")) {
    texts.configFile = value;
  } else if (is("--basedir")) {
    texts.baseDirectory = value;
  } else if (is("--port")) {
    texts.port = value;
  }
}

std::string* fieldOf(WorkingTexts& texts, const std::string& name) {
  const std::array<std::pair<const char*, std::string*>, 10> names{{{"--datadir", &texts.dataDirectory},
                                                                    {"-h", &texts.dataDirectory},
                                                                    {"--log-bin", &texts.logDirectory},
                                                                    {"--socket", &texts.socket},
                                                                    {"-S", &texts.socket},
                                                                    {"--defaults-file", &texts.configFile},
                                                                    {"--basedir", &texts.baseDirectory},
                                                                    {"-b", &texts.baseDirectory},
                                                                    {"--port", &texts.port},
                                                                    {"-P", &texts.port}}};
  for (const auto& [known, field] : names) {
    if (name == known) return field;
  }
  return nullptr;
}

/// Where the name of a long option ends; of a short one its letter.
std::size_t endOfName(const std::string& argument) {
  if (argument.rfind("--", 0) != 0) return std::min<std::size_t>(argument.size(), 2);
  return std::min(argument.find('='), argument.size());
}

}  // namespace

WorkingTexts optionsIn(const std::string& bytes) {
  WorkingTexts texts;
  // Kept: blanks inside an argument split it like those between arguments.
  for (const std::string& token : FXString::Split(asOneLine(bytes), ' ')) {
    if (token.rfind("--", 0) != 0) continue;
    const std::vector<std::string> pieces = FXString::Split(token, '=');
    // Kept: "--key value" is not read, nor a value that holds a "=" itself.
    if (pieces.size() != 2) continue;
    // Kept: of several occurrences the last counts, as it does for the server.
    take(texts, FXString::Trim(pieces[0]), FXString::Trim(pieces[1], valueEnds));
  }
  return texts;
}

std::optional<std::string> parameterIn(const std::string& commandLine, const std::string& option) {
  const std::size_t start = commandLine.find(option);
  if (start == std::string::npos) return std::nullopt;
  // Kept: the first "=" behind the option, be it another's.
  const std::size_t equals = commandLine.find('=', start);
  if (equals == std::string::npos) return std::nullopt;
  std::size_t from = equals + 1;
  char closing = ' ';
  if (from < commandLine.size() && commandLine[from] == '"') {
    closing = '"';
    ++from;
  } else if (start > 0 && commandLine[start - 1] == '"') {
    closing = '"';
  }
  const std::size_t to = commandLine.find(closing, from);
  // Kept: not even the last option of a line counts as closed by its end.
  if (to == std::string::npos) return commandLine.substr(start);
  return commandLine.substr(from, to - from);
}

WorkingTexts optionsAsGiven(const std::string& bytes) {
  WorkingTexts texts;
  const std::vector<std::string> arguments = FXString::Split(bytes, '\0');
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    const std::size_t end = endOfName(argument);
    std::string name = argument.substr(0, end);
    const bool isLong = name.rfind("--", 0) == 0;
    if (isLong) std::replace(name.begin(), name.end(), '_', '-');
    std::string* const field = fieldOf(texts, name);
    if (field == nullptr) continue;
    if (end < argument.size()) {
      *field = argument.substr(isLong ? end + 1 : end);
    } else if (name != "--log-bin" && i + 1 < arguments.size()) {  // its value is optional and never stands apart
      *field = arguments[++i];
    }
  }
  return texts;
}

}  // namespace orrery::mysql::discovery
