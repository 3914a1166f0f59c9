#include <unistd.h>

#include <filesystem>
#include <thread>

#include "orrery/platform/instance_properties.h"
#include "orrery/platform/testing/test_backend.h"

#include "fixtures.h"

namespace orrery::test {
namespace {

using namespace platform;
using platform::testing::TestBackend;

TEST(TestBackendFailures, NthCallFailsAndLeavesItsOutput) {
  TestBackend backend;
  const Id id = backend.addInstance("db1", {{"a", "1"}});
  Inventory& inventory = *backend.services()->inventory;
  std::optional<std::string> value;
  ASSERT_TRUE(succeeded(inventory.readProperty(id, "a", value)));
  backend.failures().failNth("Inventory::readProperty", 2, Status::unavailable("gone"));
  EXPECT_TRUE(succeeded(inventory.readProperty(id, "a", value)));
  value = "before";
  EXPECT_TRUE(failed(inventory.readProperty(id, "a", value), statusUnavailable, "gone"));
  EXPECT_EQ(value, "before");
  EXPECT_TRUE(succeeded(inventory.readProperty(id, "a", value)));
  EXPECT_EQ(backend.failures().calls("Inventory::readProperty"), 4U);
  EXPECT_EQ(backend.failures().calls("Inventory::listInstances"), 0U);
}

TEST(TestBackendFailures, FilterLooksAtTheArgument) {
  TestBackend backend;
  const Id id = backend.addInstance("db1", {{property::socketFile, "/s"}, {property::saUser, "root"}});
  backend.failures().failWhen("Inventory::readProperty", property::socketFile, Status::failure("no"));
  std::optional<std::string> value;
  EXPECT_TRUE(succeeded(backend.services()->inventory->readProperty(id, property::saUser, value)));
  EXPECT_TRUE(failed(backend.services()->inventory->readProperty(id, property::socketFile, value), statusFailed, "no"));
  backend.failures().clear();
  EXPECT_TRUE(succeeded(backend.services()->inventory->readProperty(id, property::socketFile, value)));
}

/// Every operation that returns a Status, by the name that its failure goes by.
TEST(TestBackendFailures, EveryOperationCanFail) {
  TestBackend backend;
  const auto s = backend.services();
  Id id = 0;
  long long job = 0;
  bool flag = false;
  std::string text;
  std::optional<std::string> value;
  std::map<std::string, std::string> values;
  Client client;
  InstanceRecord instance;
  std::vector<InstanceRecord> instances;
  std::vector<BackupSet> sets;
  SubclientRecord subclient;
  std::vector<SubclientRecord> subclients;
  std::vector<ContentEntry> content;
  JobRecord record;
  std::vector<JobRecord> records;
  std::vector<PendingCause> causes;
  std::vector<Event> events;
  std::vector<BrowsePath> paths;
  std::vector<std::pair<std::string, std::string>> pairs;
  std::vector<ArchiveFile> files;
  std::vector<ReplicaHolder> holders;
  const std::pair<const char*, std::function<Status()>> operations[] = {
      {"EventSink::raise", [&] { return s->events->raise({}); }},
      {"Settings::read", [&] { return s->settings->read("a", "b", value); }},
      {"Settings::write", [&] { return s->settings->write("a", "b", "c"); }},
      {"Settings::list", [&] { return s->settings->list("a", values); }},
      {"Directories::temporary", [&] { return s->directories->temporary(text); }},
      {"Directories::home", [&] { return s->directories->home(text); }},
      {"Directories::baseHome", [&] { return s->directories->baseHome(text); }},
      {"Directories::jobResults", [&] { return s->directories->jobResults("", text); }},
      {"PasswordVault::seal", [&] { return s->vault->seal("a", text); }},
      {"PasswordVault::open", [&] { return s->vault->open("", text); }},
      {"Inventory::ownClient", [&] { return s->inventory->ownClient(client); }},
      {"Inventory::putClient", [&] { return s->inventory->putClient("a", 0, id); }},
      {"Inventory::findClient", [&] { return s->inventory->findClient(1, client); }},
      {"Inventory::findClient", [&] { return s->inventory->findClient("a", client); }},
      {"Inventory::addInstance", [&] { return s->inventory->addInstance({}, id); }},
      {"Inventory::findInstance", [&] { return s->inventory->findInstance(1, instance); }},
      {"Inventory::findInstance", [&] { return s->inventory->findInstance(1, 1, "a", instance); }},
      {"Inventory::listInstances", [&] { return s->inventory->listInstances(instances); }},
      {"Inventory::writeProperties", [&] { return s->inventory->writeProperties(1, {}); }},
      {"Inventory::readProperty", [&] { return s->inventory->readProperty(1, "a", value); }},
      {"Inventory::removeInstance", [&] { return s->inventory->removeInstance(1); }},
      {"Inventory::listBackupSets", [&] { return s->inventory->listBackupSets(1, sets); }},
      {"Inventory::addSubclient", [&] { return s->inventory->addSubclient(1, "a", id); }},
      {"Inventory::listSubclients", [&] { return s->inventory->listSubclients(1, subclients); }},
      {"Inventory::findSubclient", [&] { return s->inventory->findSubclient(1, subclient); }},
      {"Inventory::listContent", [&] { return s->inventory->listContent(1, content); }},
      {"Inventory::putContent", [&] { return s->inventory->putContent(1, {}); }},
      {"Inventory::removeContent", [&] { return s->inventory->removeContent(1, 1, {}); }},
      {"JobManager::start", [&] { return s->jobs->start({}, job); }},
      {"JobManager::find", [&] { return s->jobs->find(1, record); }},
      {"JobManager::list", [&] { return s->jobs->list(1, records); }},
      {"JobManager::addCause", [&] { return s->jobs->addCause(1, {}); }},
      {"JobManager::listCauses", [&] { return s->jobs->listCauses(1, causes); }},
      {"JobManager::listEvents", [&] { return s->jobs->listEvents(1, events); }},
      {"JobManager::addCounters", [&] { return s->jobs->addCounters(1, {}); }},
      {"JobManager::setProgress", [&] { return s->jobs->setProgress(1, 1); }},
      {"JobManager::complete", [&] { return s->jobs->complete(1, JobState::failed, true, 0); }},
      {"JobManager::requestQuit", [&] { return s->jobs->requestQuit(1); }},
      {"JobManager::quitRequested", [&] { return s->jobs->quitRequested(1, flag); }},
      {"JobManager::writeTaskOption", [&] { return s->jobs->writeTaskOption(1, 1, "a"); }},
      {"JobManager::readTaskOption", [&] { return s->jobs->readTaskOption(1, 1, value); }},
      {"Index::addPaths", [&] { return s->index->addPaths({}, {}); }},
      {"Index::listPaths", [&] { return s->index->listPaths(1, 1, paths); }},
      {"Index::addRecord", [&] { return s->index->addRecord({}, "a", "b", "c"); }},
      {"Index::listRecords", [&] { return s->index->listRecords(1, "a", pairs); }},
      {"ArchiveManager::addFile", [&] { return s->archive->addFile({}, id); }},
      {"ArchiveManager::listFiles", [&] { return s->archive->listFiles(1, 1, 0, 1, files); }},
      {"ArchiveManager::removeFile", [&] { return s->archive->removeFile(1); }},
      {"ProxyDirectory::installDirectory", [&] { return s->proxies->installDirectory({}, value); }},
      {"ReplicaHolders::add", [&] { return s->holders->add({}, id); }},
      {"ReplicaHolders::setCommand", [&] { return s->holders->setCommand(1, {}); }},
      {"ReplicaHolders::remove", [&] { return s->holders->remove(1); }},
      {"ReplicaHolders::list", [&] { return s->holders->list(1, holders); }},
  };
  for (const auto& [name, call] : operations) {
    backend.failures().failAlways(name, Status::unavailable(name));
    EXPECT_TRUE(failed(call(), statusUnavailable, name));
    backend.failures().clear();
    EXPECT_NE(call().code, statusUnavailable) << name;
  }
}

TEST(TestBackendLog, KeepsLinesInOrder) {
  TestBackend backend;
  LogSink& sink = *backend.services()->log;
  sink.write({LogKind::debug, 4, 7, "A::b", "first\nline"});
  sink.write({LogKind::error, 0, 0, "C", "second"});
  EXPECT_EQ(backend.log().lines(), (std::vector<std::string>{"A::b: first\nline", "C: second"}));
  EXPECT_EQ(backend.log().texts(), (std::vector<std::string>{"first\nline", "second"}));
  EXPECT_EQ(backend.log().entries()[0].level, 4);
  EXPECT_EQ(backend.log().entries()[0].jobId, 7);
  EXPECT_EQ(backend.log().entries()[1].kind, LogKind::error);
  EXPECT_TRUE(backend.log().contains("econ"));
  EXPECT_FALSE(backend.log().contains("third"));
  backend.log().clear();
  EXPECT_TRUE(backend.log().lines().empty());
}

TEST(TestBackendLog, WantsEverythingUntilTold) {
  TestBackend backend;
  EXPECT_TRUE(backend.services()->log->wants(10));
  backend.log().setThreshold(3);
  EXPECT_TRUE(backend.services()->log->wants(3));
  EXPECT_FALSE(backend.services()->log->wants(4));
}

TEST(TestBackendLog, FailingLogLosesTheLine) {
  TestBackend backend;
  backend.failures().failNth("LogSink::write", 1, Status::failure("full"));
  backend.services()->log->write({LogKind::debug, 0, 0, "t", "lost"});
  backend.services()->log->write({LogKind::debug, 0, 0, "t", "kept"});
  EXPECT_EQ(backend.log().texts(), std::vector<std::string>{"kept"});
}

TEST(TestBackendLog, TakesLinesFromManyThreads) {
  TestBackend backend;
  std::vector<std::thread> writers;
  writers.reserve(4);
  for (int thread = 0; thread < 4; ++thread)
    writers.emplace_back([&] {
      for (int i = 0; i < 100; ++i) backend.services()->log->write({LogKind::debug, 0, 0, "t", "x"});
    });
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(backend.log().lines().size(), 400U);
}

TEST(TestBackendLog, LinesOfChildrenGoToTheDescriptor) {
  TestBackend backend;
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  backend.log().forwardChildLines(ends[1]);
  const int result = inChild([&] {
    backend.services()->log->writeInChild({LogKind::debug, 0, 0, "Child::run", "hello"});
    backend.services()->log->writeInChild({LogKind::debug, 0, 0, "t", std::string(9000, 'x')});
    return 0;
  });
  EXPECT_EQ(result, 0);
  ::close(ends[1]);
  std::string text(16384, '\0');
  std::size_t size = 0;
  for (ssize_t got = 0; (got = ::read(ends[0], text.data() + size, text.size() - size)) > 0;)
    size += static_cast<std::size_t>(got);
  ::close(ends[0]);
  text.resize(size);
  EXPECT_EQ(text.substr(0, 18), "Child::run: hello\n");
  EXPECT_EQ(text.size(), 18U + 4096U);
  EXPECT_EQ(text.back(), '\n');
  EXPECT_TRUE(backend.log().lines().empty());
}

TEST(TestBackendClock, SleepsReturnAtOnceAndAreKept) {
  TestBackend backend;
  Clock& clock = *backend.services()->clock;
  EXPECT_EQ(clock.now(), TestBackend::firstTime);
  clock.sleep(600000);
  clock.sleep(1);
  backend.advance(1000);
  EXPECT_EQ(clock.now(), TestBackend::firstTime + 601001 * 1000LL);
  EXPECT_EQ(backend.sleeps(), (std::vector<std::int64_t>{600000, 1}));
}

TEST(TestBackendDirectories, AreRealAndGoWithTheBackend) {
  std::string directory;
  {
    TestBackend backend;
    directory = backend.directory();
    EXPECT_TRUE(backend.leftovers().empty());
    writeFile(backend.temporary() + "/b", "x");
    writeFile(backend.temporary() + "/a", "x");
    EXPECT_EQ(backend.leftovers(), (std::vector<std::string>{"a", "b"}));
    std::string path = "before";
    backend.setTemporary(std::nullopt);
    ASSERT_TRUE(succeeded(backend.services()->directories->temporary(path)));
    EXPECT_EQ(path, "");
    backend.setTemporary("/elsewhere");
    ASSERT_TRUE(succeeded(backend.services()->directories->temporary(path)));
    EXPECT_EQ(path, "/elsewhere");
  }
  EXPECT_FALSE(std::filesystem::exists(directory));
}

TEST(TestBackendRecords, TellWhatHappened) {
  TestBackend backend("me");
  const Id id = backend.addInstance("db1");
  EXPECT_THROW(backend.addInstance("db1"), std::logic_error);
  SubclientRecord subclient;
  ASSERT_TRUE(succeeded(backend.services()->inventory->findSubclient(backend.defaultSubclient(id), subclient)));
  EXPECT_EQ(subclient.name, "default");
  EXPECT_EQ(backend.defaultSubclient(4711), 0U);

  long long job = 0;
  ASSERT_TRUE(succeeded(backend.services()->jobs->start({}, job)));
  ASSERT_TRUE(succeeded(backend.services()->jobs->complete(job, JobState::failed, true, 2)));
  ASSERT_EQ(backend.completions().size(), 1U);
  EXPECT_EQ(backend.completions()[0].jobId, job);
  EXPECT_EQ(backend.completions()[0].code, 2);
  ASSERT_TRUE(succeeded(backend.services()->events->raise({Severity::major, 1, job, {"x"}})));
  ASSERT_EQ(backend.events().size(), 1U);
  EXPECT_EQ(backend.events()[0].arguments, std::vector<std::string>{"x"});

  backend.setSetting("MySQL", "nWait", "3");
  backend.setProxyDirectory(9, 104, "", "/opt/any");
  std::optional<std::string> value;
  ASSERT_TRUE(succeeded(backend.services()->settings->read("MySQL", "nWait", value)));
  EXPECT_EQ(value, "3");
  ASSERT_TRUE(succeeded(backend.services()->proxies->installDirectory({9, 104, "8", 0}, value)));
  EXPECT_EQ(value, "/opt/any");
}

}  // namespace
}  // namespace orrery::test
