#include "unavailable.h"

#include <time.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace orrery::platform {
namespace {

/// Errors only, straight to standard error: there is no log to hold debug lines.
class StandardErrorLog final : public LogSink {
 public:
  bool wants(int) const noexcept override { return false; }
  void write(const LogLine& line) noexcept override {
    std::fprintf(stderr, "%.*s: %.*s\n", static_cast<int>(line.tag.size()), line.tag.data(),
                 static_cast<int>(line.text.size()), line.text.data());
  }
  void writeInChild(const LogLine& line) noexcept override {
    for (std::string_view piece : std::array<std::string_view, 4>{line.tag, ": ", line.text, "\n"}) {
      if (::write(STDERR_FILENO, piece.data(), piece.size()) < 0) return;
    }
  }
};

class SystemClock final : public Clock {
 public:
  std::int64_t now() noexcept override {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return std::int64_t{time.tv_sec} * 1000000 + time.tv_nsec / 1000;
  }
  void sleep(std::int64_t milliseconds) noexcept override {
    timespec left{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000};
    while (nanosleep(&left, &left) != 0) {
    }
  }
};

/// One answer to everything.
class Unavailable {
 protected:
  explicit Unavailable(std::string reason) : reason_(std::move(reason)) {}
  Status no() const { return Status::unavailable(reason_); }

 private:
  std::string reason_;
};

#define ORRERY_UNAVAILABLE(Class) \
 public:                          \
  explicit Class(std::string reason) : Unavailable(std::move(reason)) {}

class NoEvents final : public EventSink, private Unavailable {
  ORRERY_UNAVAILABLE(NoEvents)
  Status raise(const Event&) override { return no(); }
};

class NoSettings final : public Settings, private Unavailable {
  ORRERY_UNAVAILABLE(NoSettings)
  Status read(const std::string&, const std::string&, std::optional<std::string>&) override { return no(); }
  Status write(const std::string&, const std::string&, const std::string&) override { return no(); }
  Status list(const std::string&, std::map<std::string, std::string>&) override { return no(); }
};

class NoDirectories final : public Directories, private Unavailable {
  ORRERY_UNAVAILABLE(NoDirectories)
  Status temporary(std::string&) override { return no(); }
  Status home(std::string&) override { return no(); }
  Status baseHome(std::string&) override { return no(); }
  Status jobResults(const std::string&, std::string&) override { return no(); }
};

class NoVault final : public PasswordVault, private Unavailable {
  ORRERY_UNAVAILABLE(NoVault)
  Status seal(const std::string&, std::string&) override { return no(); }
  Status open(const std::string&, std::string&) override { return no(); }
};

class NoInventory final : public Inventory, private Unavailable {
  ORRERY_UNAVAILABLE(NoInventory)
  Status ownClient(Client&) override { return no(); }
  Status putClient(const std::string&, int, Id&) override { return no(); }
  Status findClient(Id, Client&) override { return no(); }
  Status findClient(const std::string&, Client&) override { return no(); }
  Status addInstance(const InstanceRecord&, Id&) override { return no(); }
  Status findInstance(Id, InstanceRecord&) override { return no(); }
  Status findInstance(Id, int, const std::string&, InstanceRecord&) override { return no(); }
  Status listInstances(std::vector<InstanceRecord>&) override { return no(); }
  Status writeProperties(Id, const std::map<std::string, std::string>&) override { return no(); }
  Status readProperty(Id, const std::string&, std::optional<std::string>&) override { return no(); }
  Status removeInstance(Id) override { return no(); }
  Status listBackupSets(Id, std::vector<BackupSet>&) override { return no(); }
  Status addSubclient(Id, const std::string&, Id&) override { return no(); }
  Status removeSubclient(Id) override { return no(); }
  Status listSubclients(Id, std::vector<SubclientRecord>&) override { return no(); }
  Status findSubclient(Id, SubclientRecord&) override { return no(); }
  Status setForceFull(Id, bool) override { return no(); }
  Status listContent(Id, std::vector<ContentEntry>&) override { return no(); }
  Status putContent(Id, const std::vector<ContentEntry>&) override { return no(); }
  Status removeContent(Id, int, const std::vector<std::string>&) override { return no(); }
};

class NoJobs final : public JobManager, private Unavailable {
  ORRERY_UNAVAILABLE(NoJobs)
  Status start(const JobRecord&, long long&) override { return no(); }
  Status find(long long, JobRecord&) override { return no(); }
  Status list(std::size_t, std::vector<JobRecord>&) override { return no(); }
  Status addCause(long long, const PendingCause&) override { return no(); }
  Status listCauses(long long, std::vector<PendingCause>&) override { return no(); }
  Status listEvents(long long, std::vector<Event>&) override { return no(); }
  Status addCounters(long long, const JobCounters&) override { return no(); }
  Status setProgress(long long, int) override { return no(); }
  Status complete(long long, JobState, bool, int) override { return no(); }
  Status requestQuit(long long) override { return no(); }
  Status quitRequested(long long, bool&) override { return no(); }
  Status writeTaskOption(long long, std::uint32_t, const std::string&) override { return no(); }
  Status readTaskOption(long long, std::uint32_t, std::optional<std::string>&) override { return no(); }
};

class NoIndex final : public Index, private Unavailable {
  ORRERY_UNAVAILABLE(NoIndex)
  Status addPaths(const IndexKey&, const std::vector<BrowsePath>&) override { return no(); }
  Status listPaths(Id, long long, std::vector<BrowsePath>&) override { return no(); }
  Status addRecord(const IndexKey&, const std::string&, const std::string&, const std::string&) override {
    return no();
  }
  Status addRecords(const IndexKey&, const std::vector<IndexRecord>&) override { return no(); }
  Status listRecords(long long, const std::string&, std::vector<std::pair<std::string, std::string>>&) override {
    return no();
  }
  Status eachRecord(long long, const std::function<bool(const IndexRecord&)>&) override { return no(); }
  Status removeRecords(long long, const std::string&, const std::string&) override { return no(); }
};

class NoArchive final : public ArchiveManager, private Unavailable {
  ORRERY_UNAVAILABLE(NoArchive)
  Status addFile(const ArchiveFile&, Id&) override { return no(); }
  Status listFiles(Id, int, std::int64_t, std::int64_t, std::vector<ArchiveFile>&) override { return no(); }
  Status restoreChain(const ChainQuery&, std::vector<ArchiveFile>&) override { return no(); }
  Status findFiles(int, const std::string&, std::vector<ArchiveFile>&) override { return no(); }
  Status removeFile(Id) override { return no(); }
};

class NoProxies final : public ProxyDirectory, private Unavailable {
  ORRERY_UNAVAILABLE(NoProxies)
  Status installDirectory(const ProxyRequest&, std::optional<std::string>&) override { return no(); }
};

class NoHolders final : public ReplicaHolders, private Unavailable {
  ORRERY_UNAVAILABLE(NoHolders)
  Status add(const ReplicaHolder&, Id&) override { return no(); }
  Status setCommand(Id, const ProcessMark&) override { return no(); }
  Status remove(Id) override { return no(); }
  Status list(Id, std::vector<ReplicaHolder>&) override { return no(); }
};

#undef ORRERY_UNAVAILABLE

}  // namespace

std::shared_ptr<const Services> unavailableServices(const std::string& reason) {
  auto services = std::make_shared<Services>();
  services->log = std::make_shared<StandardErrorLog>();
  services->events = std::make_shared<NoEvents>(reason);
  services->settings = std::make_shared<NoSettings>(reason);
  services->directories = std::make_shared<NoDirectories>(reason);
  services->vault = std::make_shared<NoVault>(reason);
  services->inventory = std::make_shared<NoInventory>(reason);
  services->jobs = std::make_shared<NoJobs>(reason);
  services->index = std::make_shared<NoIndex>(reason);
  services->archive = std::make_shared<NoArchive>(reason);
  services->proxies = std::make_shared<NoProxies>(reason);
  services->holders = std::make_shared<NoHolders>(reason);
  services->clock = std::make_shared<SystemClock>();
  return services;
}

}  // namespace orrery::platform
