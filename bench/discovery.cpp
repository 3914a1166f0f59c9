// A pass of discovery over a host with 20 servers, beside the commands that the pass runs, run alone one after the
// other with popen. The servers are idle stand-ins; others that the host runs take part on both sides. usage:
// orrery-bench-discovery [PAIRS]        prints both medians and the median of the pairs' ratios

#include <stdio.h>
#include <stdlib.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "orrery/mysql/MySqlAutoDiscoveryLinux.h"
#include "orrery/platform/testing/test_backend.h"

#include "bench/pairs.h"
#include "support/program.h"
#include "support/temporary_directory.h"

namespace {

using orrery::bench::require;

constexpr int serverCount = 20;

class IdleServers {
 public:
  IdleServers() {
    for (int i = 0; i < serverCount; ++i) {
      const std::string folder = place_ / std::to_string(i);
      std::filesystem::create_directory(folder);
      std::filesystem::copy_file(ORRERY_IDLE_SERVER, folder + "/mysqld");
      const std::vector<std::string> line{folder + "/mysqld", folder + "/mysql.sock"};
      servers_.push_back(std::make_unique<orrery::test::RunningProgram>(line));
      require(orrery::test::waitUntil([&] { return std::filesystem::exists(folder + "/mysql.sock"); }), "a server");
    }
  }

 private:
  orrery::test::TemporaryDirectory place_;
  std::vector<std::unique_ptr<orrery::test::RunningProgram>> servers_;
};

void pass() {
  MySqlAutoDiscoveryLinux discovery("host");
  require(!discovery.identifyMySqlInstanceInfo().isError(), "the pass");
  require(discovery.getInstances().size() >= serverCount, "a record for each server");
}

void runAlone(const std::vector<std::string>& commands) {
  std::array<char, 4096> buffer;
  for (const std::string& command : commands) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(("exec 2>/dev/null; " + command).c_str(), "re"), pclose);
    require(pipe != nullptr, "popen");
    while (fread(buffer.data(), 1, buffer.size(), pipe.get()) > 0) {
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  setenv("LC_ALL", "C", 1);  // as discovery runs its commands
  orrery::platform::testing::TestBackend backend;
  const orrery::platform::ScopedServices installed(backend.services());
  const IdleServers servers;
  pass();
  constexpr std::string_view before = "Executing command [";
  std::vector<std::string> commands;
  for (const std::string& text : backend.log().texts()) {
    if (text.rfind(before, 0) == 0) commands.push_back(text.substr(before.size(), text.size() - before.size() - 1));
  }
  std::printf("%zu commands in a pass\n", commands.size());
  backend.log().clear();
  backend.log().setThreshold(0);
  orrery::bench::compare("a pass over 20 servers", argc > 1 ? std::atoi(argv[1]) : 10, pass,
                         [&] { runAlone(commands); });
  return 0;
}
