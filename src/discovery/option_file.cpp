#include "discovery/option_file.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "orrery/platform/FXString.h"

#include "discovery/pieces.h"

namespace orrery::mysql::discovery {
namespace {

constexpr const char* blanks = " \t\r\n";
constexpr const char* valueEnds = " \t\r\n\"";
// For all that is read of one process's option files: a file can include itself and others as often as it likes.
constexpr int deepestInclude = 8;
constexpr int mostFiles = 200;
constexpr int mostFolders = 20;
constexpr std::size_t mostBytes = std::size_t{8} * 1024 * 1024;

bool isSection(const std::string& line) {
  return line.front() == '[' && line.back() == ']';
}

/// Up to the last "/" or "\", whichever comes later. Kept: a backslash ends a folder as well; option files travel
/// between systems. Kept: a name without either has no folder here, whatever the data directory.
std::string folderOfLog(const std::string& value) {
  const std::size_t end = value.find_last_of("/\\");
  return end == std::string::npos ? std::string() : value.substr(0, end + 1);
}

bool isServersSection(const std::string& name) {
  constexpr std::array<const char*, 4> whole{"server", "mysqld", "mariadb", "mariadbd"};
  constexpr std::array<const char*, 3> versioned{"mysqld-", "mariadb-", "mariadbd-"};
  const auto is = [&](const char* known) { return name == known; };
  // Sections such as [mariadb-client] or [mysqld_safe] belong to other programs.
  const auto isVersion = [&](const std::string& known) {
    return name.rfind(known, 0) == 0 && name.size() > known.size() &&
           name.find_first_not_of("0123456789.", known.size()) == std::string::npos;
  };
  return std::any_of(whole.begin(), whole.end(), is) || std::any_of(versioned.begin(), versioned.end(), isVersion);
}

std::string normalised(std::string key) {
  for (char& letter : key) {
    letter = letter == '_' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  }
  return key;
}

class FurtherReader {
 public:
  explicit FurtherReader(const OptionFileReader& reader) : reader_(reader) {}

  void read(const std::string& path, const std::string& text, int depth) {
    std::string section;
    forEachPiece(text, '\n', [&](std::string_view untrimmed) {
      const std::string line = FXString::Trim(std::string(untrimmed));
      if (line.empty() || line.front() == '#' || line.front() == ';') return;
      if (line.front() == '!') {
        include(line, depth);
      } else if (line.front() == '[') {
        section = line.substr(1, line.find(']') - 1);
      } else if (isServersSection(section)) {
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos) return;
        take(normalised(FXString::Trim(line.substr(0, equals))), FXString::Trim(line.substr(equals + 1), " \t\"'"),
             std::string(path).append(" [").append(section).append("]"));
      }
    });
  }

  FurtherOptions found() && { return std::move(found_); }

 private:
  void include(const std::string& line, int depth) {
    const std::size_t blank = line.find_first_of(blanks);
    if (blank == std::string::npos || found_.isCutShort) return;
    if (depth == deepestInclude) return stop();
    const std::string directive = line.substr(0, blank);
    const std::string target = FXString::Trim(line.substr(blank));
    if (directive == "!include") return includeFile(target, depth);
    if (directive != "!includedir") return;
    if (folders_++ == mostFolders) return stop();
    for (const std::string& file : reader_.filesIn(target)) includeFile(file, depth);
  }

  void includeFile(const std::string& file, int depth) {
    if (found_.isCutShort) return;
    if (files_ == mostFiles || bytes_ >= mostBytes) return stop();
    ++files_;
    std::string text;
    if (!reader_.read(file, text)) return;
    bytes_ += text.size();
    read(file, text, depth + 1);
  }

  void stop() { found_.isCutShort = true; }

  void take(const std::string& key, const std::string& value, const std::string& place) {
    if (key == "datadir") found_.dataDirectory = {value, place};
    if (key == "socket") found_.socket = {value, place};
    if (key == "port") found_.port = {value, place};
    if (key == "log-bin") found_.logBin = {value, place};
  }

  const OptionFileReader& reader_;
  FurtherOptions found_;
  int files_ = 0;
  int folders_ = 0;
  std::size_t bytes_ = 0;
};

}  // namespace

ServerSection readServerSection(const std::string& text) {
  ServerSection found;
  bool inside = false;
  forEachPiece(text, '\n', [&](std::string_view untrimmed) {
    const std::string line = FXString::Trim(std::string(untrimmed));
    if (line.empty() || line.front() == '#') return;
    if (isSection(line)) {
      // Kept: this spelling alone. Sections of a version or of MariaDB's own are not read.
      inside = line == "[mysqld]";
      return;
    }
    if (!inside) return;
    const std::vector<std::string> pieces = FXString::Split(line, '=');
    if (pieces.size() != 2) return;
    const std::string key = FXString::Trim(pieces[0]);
    const std::string value = FXString::Trim(pieces[1], valueEnds);
    if (FXString::EqualsIgnoreCase(key, "datadir")) found.dataDirectory = value;
    if (FXString::EqualsIgnoreCase(key, "log-bin")) found.logDirectory = folderOfLog(value);
    if (FXString::EqualsIgnoreCase(key, "port")) found.port = value;
  });
  return found;
}

FurtherOptions readFurther(const std::string& path, const std::string& text, const OptionFileReader& reader) {
  FurtherReader further(reader);
  further.read(path, text, 0);
  return std::move(further).found();
}

}  // namespace orrery::mysql::discovery
