// Whatever a process list, a command line, an option file, a socket list or a version output holds: what discovery
// reads out of it is part of it, an id that goes into a command is one, and a folder stays one word of the shell. The
// first byte chooses what the rest is.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>

#include "discovery/command_line.h"
#include "discovery/commands.h"
#include "discovery/option_file.h"
#include "discovery/process_list.h"
#include "discovery/sockets.h"
#include "discovery/version.h"

namespace {

using namespace orrery::mysql::discovery;

void require(bool holds) {
  if (!holds) std::abort();
}

void processList(const std::string& text) {
  std::vector<ListedProcess> others;
  for (const ListedProcess& process : serversIn(text, &others)) {
    require(isProcessId(process.pid) && process.pid.find_first_not_of("0123456789") == std::string::npos);
    require(text.find(process.pid) != std::string::npos);
  }
  for (const ListedProcess& process : others) require(isProcessId(process.pid));
  require(firstLine(text).find('\n') == std::string::npos);
}

void commandLine(const std::string& text) {
  const WorkingTexts read = optionsIn(text);
  for (const std::string* value : {&read.dataDirectory, &read.logDirectory, &read.socket, &read.port}) {
    require(value->find_first_of(std::string(" \n\0", 3)) == std::string::npos);
    require(text.find(*value) != std::string::npos);
  }
  const WorkingTexts given = optionsAsGiven(text);
  require(text.find(given.socket) != std::string::npos && given.socket.find('\0') == std::string::npos);
  const std::string option = text.substr(0, text.find('='));
  if (const auto value = parameterIn(text, option)) require(text.find(*value) != std::string::npos);
}

void optionFile(const std::string& text) {
  const ServerSection section = readServerSection(text);
  require(!section.port || section.port->find('\n') == std::string::npos);
  const std::size_t half = text.size() / 2;
  int reads = 0;
  const OptionFileReader reader{[&](const std::string&, std::string& included) {
                                  included = text.substr(half);
                                  return ++reads < 1000;
                                },
                                [](const std::string& folder) { return std::vector<std::string>(3, folder); }};
  const FurtherOptions further = readFurther("f", text, reader);
  require(!further.port || further.port->place.find('[') != std::string::npos);
  require(reads <= 200);
}

void socketList(const std::string& text) {
  SocketTable table;
  addUnixSockets(text, table);
  addTcpSockets(text, table);
  const ListeningSockets found = listeningAmong(table, {0, 1, socketInode(text)});
  require(std::is_sorted(found.ports.begin(), found.ports.end()));
}

/// Reads the first word as a shell does between double quotes; anything alive in it is a fault.
void version(const std::string& text) {
  if (const auto found = versionIn(text)) static_cast<void>(verdictOn(*found));
  const std::string command = versionCommand(text);
  std::string word;
  std::size_t at = 1;
  for (; at < command.size() && command[at] != '"'; ++at) {
    require(command[at] != '$' && command[at] != '`');
    if (command[at] == '\\') ++at;
    word += command.at(at);
  }
  require(word == text + "/mysqld" && command.substr(at) == "\" --version");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0]) {
    case 'p':
      processList(text);
      break;
    case 'c':
      commandLine(text);
      break;
    case 'o':
      optionFile(text);
      break;
    case 's':
      socketList(text);
      break;
    default:
      version(text);
  }
  return 0;
}
