// What command mode costs beside the client that it starts. Both ways run in turn against the same private server:
//   session  GetMySqlInfo::executeMySqlCommand, from building the command line to the reaped client
//   direct   the same client program with the same arguments, started with posix_spawn and read through a pipe
// usage: orrery-bench-command-mode [PAIRS]        prints a table; the ratios are medians of the pairs' ratios

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/DzProcess.h"
#include "orrery/platform/home.h"
#include "orrery/platform/services.h"

#include "bench/direct_client.h"
#include "bench/home_with_server.h"
#include "bench/pairs.h"

namespace {

using orrery::bench::compare;
using orrery::bench::directArguments;
using orrery::bench::median;
using orrery::bench::milliseconds;
using orrery::bench::require;
using orrery::bench::runDirectly;

void compareStatements(const char* name, GetMySqlInfo& session, int pairs) {
  const std::string statement = "SHOW VARIABLES LIKE 'port'";
  std::string output;
  compare(
      name, pairs, [&] { require(session.executeMySqlCommand(statement, output, false) == 0, "a statement failed"); },
      [&] { require(!runDirectly(directArguments(session, statement)).empty(), "no output"); });
  require(runDirectly(directArguments(session, statement)) == output, "outputs differ");
}

long peakKilobytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

/// In a process of its own, whose peak is its own.
int largeOutput(const std::string& home, long instance) {
  std::shared_ptr<const orrery::platform::Services> services;
  require(orrery::platform::openHome(home, services).ok(), "the home cannot be opened");
  const orrery::platform::ScopedServices installed(services);
  int rc = -1;
  GetMySqlInfo session(instance, rc);
  require(rc == 0, "the session cannot be opened");
  const long before = peakKilobytes();
  std::string output;
  require(session.executeMySqlCommand("SELECT REPEAT('x', 1000000) FROM mysql.seq_1_to_100", output, false) == 0,
          session.strErrorString);
  const double peak = static_cast<double>(peakKilobytes() - before) * 1024;
  std::printf("%-37s %8.1f MB %8.1f MB   %.3f\n", "peak memory of a 100 MB result", peak / 1e6,
              static_cast<double>(output.size()) / 1e6, peak / static_cast<double>(output.size()));
  return EXIT_SUCCESS;
}

/// What the start of a child alone costs in a large process, on borrowed memory and on a copy.
void compareStarts(int pairs) {
  const auto start = [](DzProcess::ChildMemory memory) {
    DzProcess child;
    char text[50] = "";
    int status = 0;
    require(child.Fork([](void*) { _exit(0); }, nullptr, text, sizeof(text), memory) == 1, text);
    require(child.WaitForProcessToEnd(status, text, sizeof(text), -1) == 1, text);
  };
  std::vector<double> borrowed;
  std::vector<double> copied;
  std::vector<double> ratios;
  for (int i = 0; i < pairs; ++i) {
    borrowed.push_back(milliseconds([&] { start(DzProcess::ChildMemory::borrowed); }));
    copied.push_back(milliseconds([&] { start(DzProcess::ChildMemory::copied); }));
    ratios.push_back(borrowed.back() / copied.back());
  }
  std::printf("%-37s %8.2f ms %8.2f ms   %.3f  (borrowed, copied)\n", "child alone, 1 GiB of touched memory",
              median(borrowed), median(copied), median(ratios));
}

int measure(int pairs) {
  const orrery::bench::HomeWithServer home;
  std::printf("%-37s %11s %11s   %s\n", "", "session", "direct", "ratio");
  std::printf("%s", runDirectly({"/proc/self/exe", "--large", home.path(), std::to_string(home.instance())}).c_str());
  GetMySqlInfo session;
  require(session.Init(home.instance()) == 0, "the session cannot be opened");
  compareStatements("statement, small process", session, pairs);
  std::vector<char> ballast(std::size_t{1} << 30);
  for (std::size_t at = 0; at < ballast.size(); at += 4096) ballast[at] = 1;
  compareStatements("statement, 1 GiB of touched memory", session, pairs);
  compareStarts(pairs);
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc == 4 && std::string(argv[1]) == "--large") return largeOutput(argv[2], std::atol(argv[3]));
    return measure(argc > 1 ? std::atoi(argv[1]) : 100);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return EXIT_FAILURE;
  }
}
