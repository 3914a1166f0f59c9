#include "process_mark.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <system_error>

namespace orrery::tool {
namespace {

std::string contentOf(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Start in clock ticks since boot; empty when there is no such process or it has ended.
std::string startTicks(long long process) {
  const std::string text = contentOf("/proc/" + std::to_string(process) + "/stat");
  const std::size_t name = text.rfind(')');  // the name may hold anything, a parenthesis too
  if (name == std::string::npos) return {};
  std::istringstream fields(text.substr(name + 1));
  std::string field;
  if (!(fields >> field) || field == "Z" || field == "X") return {};
  constexpr int fieldsToTheStart = 19;
  for (int i = 0; i < fieldsToTheStart; ++i) fields >> field;
  return fields ? field : std::string();
}

std::string startOf(long long process) {
  const std::string ticks = startTicks(process);
  if (ticks.empty()) return {};
  std::string boot = contentOf("/proc/sys/kernel/random/boot_id");
  boot.resize(std::min(boot.size(), boot.find('\n')));
  return boot + "/" + ticks;
}

std::string programOf(const std::string& process) {
  std::error_code ignored;
  return std::filesystem::read_symlink("/proc/" + process + "/exe", ignored).string();
}

}  // namespace

platform::ProcessMark markOf(pid_t process) {
  return {process, startOf(process)};
}

bool isAlive(const platform::ProcessMark& mark) {
  return mark.id > 0 && !mark.start.empty() && startOf(mark.id) == mark.start;
}

bool isOfThisProgram(pid_t process) {
  return programOf(std::to_string(process)) == programOf("self");
}

}  // namespace orrery::tool
