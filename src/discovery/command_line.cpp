#include "discovery/command_line.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "orrery/platform/FXString.h"

#include "discovery/pieces.h"

namespace orrery::mysql::discovery {
namespace {

constexpr const char* valueEnds = " \t\r\n";
constexpr std::size_t longestName = 40;

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
std::size_t endOfName(std::string_view argument) {
  if (argument.substr(0, 2) != "--") return std::min<std::size_t>(argument.size(), 2);
  return std::min(argument.find('='), argument.size());
}

}  // namespace

WorkingTexts optionsIn(const std::string& bytes) {
  WorkingTexts texts;
  // Kept: blanks inside an argument split it like those between arguments.
  forEachPiece(asOneLine(bytes), ' ', [&](std::string_view token) {
    if (token.substr(0, 2) != "--") return;
    const std::size_t equals = token.find('=');
    // Kept: "--key value" is not read, nor a value that holds a "=" itself.
    if (equals == std::string_view::npos || token.find('=', equals + 1) != std::string_view::npos) return;
    // Kept: of several occurrences the last counts, as it does for the server.
    take(texts, FXString::Trim(std::string(token.substr(0, equals))),
         FXString::Trim(std::string(token.substr(equals + 1)), valueEnds));
  });
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
  std::string* waiting = nullptr;  // an option whose value is the next argument
  bool isProgram = true;
  forEachPiece(bytes, '\0', [&](std::string_view argument) {
    if (std::exchange(isProgram, false)) return;
    if (waiting != nullptr) {
      *std::exchange(waiting, nullptr) = argument;
      return;
    }
    const std::size_t end = endOfName(argument);
    if (end < 2 || end > longestName) return;
    std::string name(argument.substr(0, end));
    const bool isLong = name.rfind("--", 0) == 0;
    if (isLong) std::replace(name.begin(), name.end(), '_', '-');
    std::string* const field = fieldOf(texts, name);
    if (field == nullptr) return;
    if (end < argument.size()) {
      *field = argument.substr(isLong ? end + 1 : end);
    } else if (name != "--log-bin") {  // its value is optional and never stands apart
      waiting = field;
    }
  });
  return texts;
}

}  // namespace orrery::mysql::discovery
