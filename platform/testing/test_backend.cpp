#include "orrery/platform/testing/test_backend.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "orrery/platform/instance_properties.h"

#include "memory.h"

namespace orrery::platform::testing {
namespace {

void makeFolder(const std::string& path) {
  if (::mkdir(path.c_str(), 0711) != 0 || ::chmod(path.c_str(), 0711) != 0)
    throw std::system_error(errno, std::generic_category(), path);
}

std::string makeDirectory() {
  const char* parent = ::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe): nobody here changes the environment
  std::string path = std::string(parent != nullptr && *parent != '\0' ? parent : "/tmp") + "/orrery-test-XXXXXX";
  if (::mkdtemp(path.data()) == nullptr) throw std::system_error(errno, std::generic_category(), path);
  if (::chmod(path.c_str(), 0711) != 0) throw std::system_error(errno, std::generic_category(), path);
  makeFolder(path + "/tmp");
  makeFolder(path + "/results");
  return path;
}

SharedMemory makeMemory(const std::string& directory, const std::string& clientName) {
  auto memory = std::make_shared<Memory>();
  memory->home = directory;
  memory->temporary = directory + "/tmp";
  memory->jobResults = directory + "/results";
  memory->ownClient = ++memory->lastId;
  memory->clients[memory->ownClient] = {memory->ownClient, clientName, 0};
  return memory;
}

std::shared_ptr<const Services> makeServices(const SharedMemory& memory) {
  auto services = std::make_shared<Services>();
  services->log = makeLog(memory);
  services->events = makeEventSink(memory);
  services->settings = makeSettings(memory);
  services->directories = makeDirectories(memory);
  services->vault = makeVault(memory);
  services->inventory = makeInventory(memory);
  services->jobs = makeJobManager(memory);
  services->index = makeIndex(memory);
  services->archive = makeArchive(memory);
  services->proxies = makeProxies(memory);
  services->holders = makeHolders(memory);
  services->clock = makeClock(memory);
  return services;
}

}  // namespace

TestBackend::TestBackend(const std::string& clientName)
    : directory_(makeDirectory()), memory_(makeMemory(directory_, clientName)), services_(makeServices(memory_)) {}

TestBackend::~TestBackend() {
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

Failures& TestBackend::failures() {
  return memory_->failures;
}

LogCapture& TestBackend::log() {
  return memory_->log;
}

void TestBackend::setTemporary(std::optional<std::string> path) {
  const std::lock_guard lock(memory_->mutex);
  memory_->temporary = std::move(path);
}

void TestBackend::setHome(std::optional<std::string> path) {
  const std::lock_guard lock(memory_->mutex);
  memory_->home = std::move(path);
}

void TestBackend::setJobResults(std::optional<std::string> path) {
  const std::lock_guard lock(memory_->mutex);
  memory_->jobResults = std::move(path);
}

std::vector<std::string> TestBackend::leftovers() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(temporary()))
    names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

void TestBackend::setSetting(const std::string& section, const std::string& key, const std::string& value) {
  const std::lock_guard lock(memory_->mutex);
  memory_->settings[section][key] = value;
}

void TestBackend::setProxyDirectory(Id clientId, int applicationType, const std::string& version,
                                    const std::string& directory) {
  std::string key = std::to_string(clientId) + "/" + std::to_string(applicationType);
  if (!version.empty()) key += "/" + version;
  setSetting("Proxy", key, directory);
}

Id TestBackend::addInstance(const std::string& name, const std::map<std::string, std::string>& properties) {
  return addInstance(memory_->ownClient, name, properties);
}

Id TestBackend::addInstance(Id clientId, const std::string& name,
                            const std::map<std::string, std::string>& properties) {
  InstanceRecord record;
  record.clientId = clientId;
  record.applicationType = property::applicationTypeMySql;
  record.name = name;
  record.properties = properties;
  Id id = 0;
  if (const Status status = services_->inventory->addInstance(record, id); !status.ok())
    throw std::logic_error(status.text);
  return id;
}

Id TestBackend::defaultSubclient(Id instanceId) const {
  const std::lock_guard lock(memory_->mutex);
  for (const auto& [id, subclient] : memory_->subclients)
    if (subclient.isDefault && memory_->backupSets.at(subclient.backupSetId).instanceId == instanceId) return id;
  return 0;
}

std::vector<Event> TestBackend::events() const {
  const std::lock_guard lock(memory_->mutex);
  return memory_->events;
}

std::vector<Completion> TestBackend::completions() const {
  const std::lock_guard lock(memory_->mutex);
  return memory_->completions;
}

std::vector<std::int64_t> TestBackend::sleeps() const {
  const std::lock_guard lock(memory_->mutex);
  return memory_->sleeps;
}

void TestBackend::advance(std::int64_t milliseconds) {
  memory_->now += milliseconds * 1000;
}

}  // namespace orrery::platform::testing
