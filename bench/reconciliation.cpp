// How the reconciliation of databases with the content of subclients grows, and what listing 10,000 databases costs:
//   reconcile    n databases of a server with n entries of content, on plain lists: time, the exponent fitted to it,
//   and
//                the memory that it takes at its peak beside what it was given, per entry
//   plan         the same from the session on, the content read from an inventory in memory
//   FetchDBList  of a private server with 10,000 databases; raw: the binding's RunQuery and FetchNextRow in a loop for
//                library mode, the bare client with the same arguments for command mode
// usage: orrery-bench-reconciliation [PAIRS]        prints two tables; the ratios are medians of the pairs' ratios

#include "databases/reconciliation.h"

#include <malloc.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <list>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/mysql/MySqlInterface.h"
#include "orrery/platform/testing/test_backend.h"

#include "bench/direct_client.h"
#include "bench/home_with_server.h"
#include "bench/pairs.h"

namespace {

std::atomic<std::size_t> liveBytes{0};
std::atomic<std::size_t> peakBytes{0};

}  // namespace

// Every byte of this process is counted. Inlined, compilers take the two for a mismatched pair.
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  const std::size_t live = liveBytes += malloc_usable_size(memory);
  if (live > peakBytes) peakBytes = live;
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  if (memory != nullptr) liveBytes -= malloc_usable_size(memory);
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  operator delete(memory);
}

namespace {

using orrery::bench::compare;
using orrery::bench::median;
using orrery::bench::require;
using orrery::mysql::DatabaseContent;
using orrery::mysql::DatabasePlan;
using Names = std::list<std::string>;

constexpr int databasesOfServer = 10000;
constexpr int repetitions = 9;

std::string numbered(const char* kind, int number) {
  char name[48];
  std::snprintf(name, sizeof(name), "/%s_%07d", kind, number);
  return name;
}

/// Of n databases and n entries a tenth is on one side alone.
Names serverOf(int n) {
  Names names;
  for (int i = 0; i < n; ++i) names.push_back(numbered(i % 10 == 0 ? "new" : "shop", i * 7919 % n));
  return names;
}
DatabaseContent contentOf(int n) {
  DatabaseContent content;
  for (int i = 0; i < n; ++i) {
    content.own.push_back(numbered(i % 10 == 0 ? "gone" : "shop", i * 104729 % n));
    content.all.emplace_back(content.own.back(), i % 20 == 0 ? 1 : 0);
  }
  return content;
}

/// A session whose server is a list.
class ListedSession : public GetMySqlInfo {
 public:
  explicit ListedSession(Names server) : server_(std::move(server)) { iDbAutoDiscovery = 1; }
  int FetchDBList(Names& databases) override {
    databases.insert(databases.end(), server_.begin(), server_.end());
    return 0;
  }

 private:
  Names server_;
};

struct Growth {
  std::vector<double> sizes, times;
  void add(int n, double time) {
    sizes.push_back(std::log(n));
    times.push_back(std::log(time));
  }
  /// Slope of the least-squares line through the logarithms: the exponent of n.
  double exponent() const {
    const auto count = static_cast<double>(sizes.size());
    double x = 0, y = 0, xx = 0, xy = 0;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
      x += sizes[i];
      y += times[i];
      xx += sizes[i] * sizes[i];
      xy += sizes[i] * times[i];
    }
    return (count * xy - x * y) / (count * xx - x * x);
  }
};

/// Of this thread alone: what else runs on the machine does not bend the curve.
double processorMilliseconds(const std::function<void()>& work) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
  };
  const double start = now();
  work();
  return now() - start;
}

double medianOf(const std::function<double()>& measure) {
  std::vector<double> times;
  for (int i = 0; i < repetitions; ++i) times.push_back(measure());
  return median(times);
}

double reconcileOnce(const Names& server, const DatabaseContent& content, std::size_t& peak) {
  Names names = server;
  const std::size_t before = liveBytes;
  peakBytes = before;
  const double time = processorMilliseconds([&] {
    const DatabasePlan plan = orrery::mysql::reconcile(std::move(names), content, true);
    require(!plan.discovered.empty() && !plan.vanished.empty() && !plan.missing.empty(), "nothing to reconcile");
  });
  peak = peakBytes - before;
  return time;
}

double planOnce(orrery::platform::testing::TestBackend& backend, ApplicationId& application, ListedSession& session) {
  backend.log().clear();
  DatabasePlan plan;
  const double time =
      processorMilliseconds([&] { require(session.planDatabasesForBackup(&application, plan) == 0, "no plan"); });
  require(!plan.discovered.empty() && !plan.vanished.empty() && !plan.missing.empty(), "nothing to plan");
  return time;
}

void measureGrowth() {
  std::printf("%-10s %14s %20s %14s\n", "n", "reconcile", "peak per entry", "plan");
  Growth reconcile, plan;
  for (const int n : {1000, 3162, 10000, 31623, 100000}) {
    const Names server = serverOf(n);
    const DatabaseContent content = contentOf(n);
    std::size_t peak = 0;
    const double pure = medianOf([&] { return reconcileOnce(server, content, peak); });

    orrery::platform::testing::TestBackend backend;
    const orrery::platform::ScopedServices installed(backend.services());
    backend.log().setThreshold(0);
    const orrery::platform::Id instance = backend.addInstance("bench");
    std::vector<orrery::platform::ContentEntry> entries;
    for (const auto& [name, isDiscovered] : content.all) entries.push_back({120, name, 0, 0, isDiscovered != 0});
    require(backend.services()->inventory->putContent(backend.defaultSubclient(instance), entries).ok(), "no content");
    ApplicationId application(instance, backend.defaultSubclient(instance));
    ListedSession session(server);
    const double whole = medianOf([&] { return planOnce(backend, application, session); });

    std::printf("%-10d %11.2f ms %14.1f bytes %11.2f ms\n", n, pure, static_cast<double>(peak) / n, whole);
    reconcile.add(n, pure);
    plan.add(n, whole);
  }
  std::printf("%-10s %14.2f %20s %14.2f\n\n", "exponent", reconcile.exponent(), "", plan.exponent());
}

/// A directory below the data directory is a database.
void makeDatabases(const std::string& dataDirectory) {
  for (int i = 0; i < databasesOfServer; ++i) {
    const std::string path = dataDirectory + numbered("shop", i);
    require(mkdir(path.c_str(), 0755) == 0, path);
  }
}

std::size_t rawRows(MySqlInterface& connection) {
  auto* result = new QueryResult;
  require(connection.RunQuery("SHOW DATABASES", result) == 0, connection.getLastErrorStr());
  Names names;
  for (;;) {
    const std::size_t before = names.size();
    require(connection.FetchNextRow(result, names) == 0, connection.getLastErrorStr());
    if (names.size() == before) break;
  }
  connection.FreeResultSet(result);
  return names.size();
}

void listAll(GetMySqlInfo& session) {
  Names names;
  require(session.FetchDBList(names) == 0 && names.size() > databasesOfServer, session.strErrorString);
}

void measureLists(int pairs) {
  const orrery::bench::HomeWithServer home;
  makeDatabases(home.server().dataDirectory());
  home.set("sLibPath", "libmariadb.so.3");
  std::printf("%-37s %11s %11s   %s\n", "", "ours", "raw", "ratio");
  GetMySqlInfoExt library;
  require(library.Init(home.instance()) == 0, library.strErrorString);
  MySqlInterface connection("agent", home.server().agentPassword(), home.server().socket(), 0);
  require(connection.LoadAndInitialize("libmariadb.so.3") == 0, connection.getLastErrorStr());
  compare(
      "FetchDBList, library mode", pairs, [&] { listAll(library); },
      [&] { require(rawRows(connection) > databasesOfServer, "raw rows"); });
  GetMySqlInfo command;
  require(command.Init(home.instance()) == 0, command.strErrorString);
  const auto arguments = orrery::bench::directArguments(command, "SHOW DATABASES");
  compare(
      "FetchDBList, command mode", pairs, [&] { listAll(command); },
      [&] { require(!orrery::bench::runDirectly(arguments).empty(), "no output"); });
}

}  // namespace

int main(int argc, char** argv) {
  try {
    measureGrowth();
    measureLists(argc > 1 ? std::atoi(argv[1]) : 30);
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return EXIT_FAILURE;
  }
}
