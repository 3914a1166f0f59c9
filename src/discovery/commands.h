#pragma once

#include <string>

/// The commands of discovery. `pid` is a process id in digits, see isProcessId().
namespace orrery::mysql::discovery {

inline constexpr const char* listServersCommand =
    R"(ps -eo user,pid,command | grep -e mysqld -e mariadbd | awk '{n=split($3,a," --"); print $1,$2,a[1]}')";

inline constexpr const char* whoAmICommand = "echo $(whoami)";

inline constexpr const char* findClientCommand = "which mysql";

inline std::string findSocketCommand(const std::string& pid) {
  return "ss -lnp | grep LISTEN | grep " + pid +
         R"( | awk '/mysql(.*)?\.sock/ && !/mysqlx(.*)?\.sock/' | grep -oE '\S*(mysql(.*)?\.sock)')";
}

inline std::string findPortCommand(const std::string& pid) {
  return "ssOut=$(ss -tlnp | grep LISTEN | grep " + pid +
         R"x(); if [ -n "$ssOut" ]; then echo "$ssOut" | )x"
         R"x(awk 'BEGIN{x=65536}; {n=split($(NF-2),a,":")}; a[n]<x{x=a[n]}; END{print x}';fi)x";
}

inline std::string findProgramCommand(const std::string& pid) {
  return "readlink -f /proc/" + pid + "/exe";
}

/// A folder can come from a command line that anybody wrote: what is alive between double quotes gets a backslash.
inline std::string versionCommand(const std::string& bindir) {
  std::string command = "\"";
  for (const char letter : bindir + "/mysqld") {
    if (letter == '"' || letter == '$' || letter == '`' || letter == '\\') command += '\\';
    command += letter;
  }
  return command + "\" --version";
}

}  // namespace orrery::mysql::discovery
