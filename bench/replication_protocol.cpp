// What a round of the protocol of parallel backups costs beside its file work. Both ways run in turn:
//   session  GetMySqlInfoExt::StopSlave and StartSlave on a server that answers at once, in a home on disk
//   bare     the same files with system calls alone: open and lock the one, read the other, write its successor aside,
//            rename it, unlock; the first one's deletion of the lock file included
// usage: orrery-bench-replication-protocol [PAIRS]        prints a table; the ratios are medians of the pairs' ratios

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/platform/instance_properties.h"

#include "bench/home_with_server.h"

namespace {

namespace property = orrery::platform::property;
using orrery::bench::median;
using orrery::bench::require;
using Clock = std::chrono::steady_clock;

constexpr int roundsPerPair = 100;

double microsecondsEach(const std::function<void()>& work) {
  const auto start = Clock::now();
  for (int i = 0; i < roundsPerPair; ++i) work();
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count() / roundsPerPair;
}

int openFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  require(fd >= 0, path);
  return fd;
}

void setLock(int fd, short type) {
  struct flock range {};
  range.l_type = type;
  require(fcntl(fd, F_OFD_SETLK, &range) == 0, "lock");
}

struct BareFiles {
  std::string lock, counter;

  void change(int by, bool deletesLock) const {
    const int held = openFile(lock);
    setLock(held, F_WRLCK);
    int file = openFile(counter);
    std::array<char, 5> text{};
    require(read(file, text.data(), 4) >= 0, "read");
    close(file);
    const std::string digits = std::to_string(std::atoi(text.data()) + by);
    file = openFile(counter + ".new");
    require(write(file, digits.data(), digits.size()) == static_cast<ssize_t>(digits.size()), "write");
    close(file);
    require(std::rename((counter + ".new").c_str(), counter.c_str()) == 0, "rename");
    if (deletesLock) unlink(lock.c_str());
    setLock(held, F_UNLCK);
    close(held);
  }
};

void compare(const char* name, int pairs, const std::function<void()>& ours, const std::function<void()>& bare) {
  std::vector<double> oursEach;
  std::vector<double> bareEach;
  std::vector<double> ratios;
  for (int i = -3; i < pairs; ++i) {  // the first three warm up
    const double a = microsecondsEach(ours);
    const double b = microsecondsEach(bare);
    if (i < 0) continue;
    oursEach.push_back(a);
    bareEach.push_back(b);
    ratios.push_back(a / b);
  }
  std::printf("%-45s %8.1f us %8.1f us   %.2f\n", name, median(oursEach), median(bareEach), median(ratios));
}

int measure(int pairs) {
  const orrery::bench::HomeWithInstance home({{property::saUser, "agent"}, {property::socketFile, "memory"}});
  home.set("sLibPath", ORRERY_STAND_IN_REPLICA);
  GetMySqlInfoExt session;
  GetMySqlInfoExt holder;
  require(session.Init(home.instance()) == 0 && holder.Init(home.instance()) == 0, "no session");
  const BareFiles bare{home.path() + "/tmp/bare_lock", home.path() + "/tmp/bare_counter"};
  const auto round = [&] { require(session.StopSlave() == 0 && session.StartSlave() == 0, "a round failed"); };
  std::printf("%-45s %11s %11s   %s\n", "", "session", "bare", "ratio");
  compare("stop and start, alone", pairs, round, [&] {
    bare.change(1, true);
    bare.change(-1, false);
  });
  require(holder.StopSlave() == 0, "the holder");
  compare("stop and start while another holds the replica", pairs, round, [&] {
    bare.change(1, false);
    bare.change(-1, false);
  });
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return measure(argc > 1 ? std::atoi(argv[1]) : 100);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return EXIT_FAILURE;
  }
}
