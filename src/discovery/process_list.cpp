#include "discovery/process_list.h"

#include <algorithm>
#include <sstream>
#include <string_view>

#include "orrery/platform/FXString.h"

#include "discovery/pieces.h"

namespace orrery::mysql::discovery {
namespace {

constexpr std::size_t fieldsOfALine = 3;
constexpr std::size_t longestId = 10;

std::string lastPart(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

bool isServerName(const std::string& name) {
  return name == "mysqld" || name == "mysqld_safe" || name == "mariadbd";
}

bool isProcessId(const std::string& text) {
  return !text.empty() && text.size() <= longestId &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::vector<ListedProcess> serversIn(const std::string& processList, std::vector<ListedProcess>* others) {
  std::vector<ListedProcess> servers;
  forEachPiece(processList, '\n', [&](std::string_view untrimmed) {
    const std::string line = FXString::Trim(std::string(untrimmed));
    if (line.empty()) return;
    const std::vector<std::string> fields = FXString::Split(line, ' ');
    // A process can write anything into its title, but its id, which goes into commands, has to be one.
    if (fields.size() != fieldsOfALine || !isProcessId(fields[1])) return;
    ListedProcess process{fields[1], FXString::Trim(fields[2], " \t\\")};
    if (isServerName(lastPart(process.program))) {
      servers.push_back(std::move(process));
    } else if (others != nullptr) {
      others->push_back(std::move(process));
    }
  });
  return servers;
}

std::string rootMountIn(const std::string& mounts) {
  std::string root;
  forEachPiece(mounts, '\n', [&](std::string_view line) {
    std::istringstream words{std::string(line)};
    std::string id, parent, device, folder, place;
    // What is mounted later lies above.
    if (words >> id >> parent >> device >> folder >> place && place == "/") root = device + " " + folder;
  });
  return root;
}

std::string firstLine(const std::string& output) {
  const std::string text = FXString::Trim(output);
  return FXString::Trim(text.substr(0, text.find('\n')));
}

}  // namespace orrery::mysql::discovery
