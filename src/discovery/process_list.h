#pragma once

#include <string>
#include <vector>

namespace orrery::mysql::discovery {

struct ListedProcess {
  std::string pid;
  std::string program;
};

/// The server processes of a process list, "user pid program" per line, and `others`: its remaining processes.
std::vector<ListedProcess> serversIn(const std::string& processList, std::vector<ListedProcess>* others = nullptr);

/// Whether a program of this name is a server, or starts one.
bool isServerName(const std::string& name);

/// Whether a text can stand in a command as a process id: digits, and no more of them than ids have.
bool isProcessId(const std::string& text);

/// The file system, and the folder of it, that is the root folder in a list of mounts as /proc/PID/mountinfo has it;
/// empty without one.
std::string rootMountIn(const std::string& mounts);

/// The first line of a command's output.
std::string firstLine(const std::string& output);

}  // namespace orrery::mysql::discovery
