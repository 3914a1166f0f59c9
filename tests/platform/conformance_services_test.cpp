#include <sys/stat.h>

#include <chrono>

#include <gmock/gmock.h>

#include "fixtures.h"

namespace orrery::test {
namespace {

using namespace platform;
using ::testing::ElementsAre;
using ::testing::FieldsAre;

class ServiceConformance : public Conformance {
 protected:
  std::optional<std::string> setting(const std::string& section, const std::string& key) {
    using Value = std::optional<std::string>;
    return got<Value>([&](Value& out) { return services_->settings->read(section, key, out); });
  }
  std::vector<BrowsePath> paths(Id instance, long long job) {
    using List = std::vector<BrowsePath>;
    return got<List>([&](List& out) { return services_->index->listPaths(instance, job, out); });
  }
  std::vector<ArchiveFile> files(int type, std::int64_t from, std::int64_t to) {
    using List = std::vector<ArchiveFile>;
    return got<List>([&](List& out) { return services_->archive->listFiles(1, type, from, to, out); });
  }
  std::vector<ReplicaHolder> holders(Id instance) {
    using List = std::vector<ReplicaHolder>;
    return got<List>([&](List& out) { return services_->holders->list(instance, out); });
  }
};

INSTANTIATE_TEST_SUITE_P(Backends, ServiceConformance, ::testing::ValuesIn(bothBackends()), nameOfBackend);

TEST_P(ServiceConformance, SettingsReadBackExactly) {
  EXPECT_EQ(setting("MySQL", "sServerStartCmd"), std::nullopt);
  EXPECT_EQ(setting("no such section", "key"), std::nullopt);
  const char* values[] = {"",   "1", "systemctl start mysqld", "a = b: c", "\"quoted\" 'text'", "#x", "caf\xc3\xa9",
                          "a;b"};
  for (const char* value : values) {
    ASSERT_TRUE(succeeded(services_->settings->write("MySQL", "sServerStartCmd", value)));
    EXPECT_EQ(setting("MySQL", "sServerStartCmd"), value);
  }
  ASSERT_TRUE(succeeded(services_->settings->write("MySQL", "sserverstartcmd", "other")));
  EXPECT_EQ(setting("MySQL", "sServerStartCmd"), "a;b");
  EXPECT_EQ(setting("mysql", "sServerStartCmd"), std::nullopt);
}

TEST_P(ServiceConformance, SettingsListASection) {
  ASSERT_TRUE(succeeded(services_->settings->write("A", "y", "2")));
  ASSERT_TRUE(succeeded(services_->settings->write("B", "z", "3")));
  ASSERT_TRUE(succeeded(services_->settings->write("A", "x", "1")));
  std::map<std::string, std::string> values{{"old", "value"}};
  ASSERT_TRUE(succeeded(services_->settings->list("A", values)));
  EXPECT_EQ(values, (std::map<std::string, std::string>{{"x", "1"}, {"y", "2"}}));
  ASSERT_TRUE(succeeded(services_->settings->list("C", values)));
  EXPECT_TRUE(values.empty());
}

TEST_P(ServiceConformance, SettingsThatNoFileCanHoldAreRefused) {
  const struct {
    const char* name;
    std::string section, key, value;
  } cases[] = {
      {"no section", "", "key", "value"},
      {"no key", "Section", "", "value"},
      {"section with bracket", "a]b", "key", "value"},
      {"section with line break", "a\nb", "key", "value"},
      {"key with equals sign", "Section", "a=b", "value"},
      {"key with colon", "Section", "a:b", "value"},
      {"key like a section", "Section", "[key", "value"},
      {"key like a comment", "Section", ";key", "value"},
      {"key like another comment", "Section", "#key", "value"},
      {"key with line break", "Section", "a\nb", "value"},
      {"key with blank before", "Section", " key", "value"},
      {"key with blank behind", "Section", "key ", "value"},
      {"value with line break", "Section", "key", "a\nb"},
      {"value with carriage return", "Section", "key", "a\rb"},
      {"value with null", "Section", "key", std::string("a\0b", 3)},
      {"value with blank before", "Section", "key", " a"},
      {"value with blank behind", "Section", "key", "a\t"},
  };
  for (const auto& bad : cases) {
    SCOPED_TRACE(bad.name);
    EXPECT_TRUE(failed(services_->settings->write(bad.section, bad.key, bad.value), statusInvalid));
    std::map<std::string, std::string> values;
    ASSERT_TRUE(succeeded(services_->settings->list("Section", values)));
    EXPECT_TRUE(values.empty());
  }
}

TEST_P(ServiceConformance, DirectoriesExistAndLetOthersPass) {
  std::string temporary, home, baseHome, results;
  Directories& directories = *services_->directories;
  ASSERT_TRUE(succeeded(directories.temporary(temporary)));
  ASSERT_TRUE(succeeded(directories.home(home)));
  ASSERT_TRUE(succeeded(directories.baseHome(baseHome)));
  ASSERT_TRUE(succeeded(directories.jobResults("", results)));
  for (const std::string& path : {temporary, home, baseHome, results}) {
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0) << path;
    EXPECT_EQ(status.st_mode & 07777, 0711U) << path;
    EXPECT_NE(path.back(), '/');
  }
  EXPECT_EQ(temporary, home + "/tmp");
}

TEST_P(ServiceConformance, JobResultsOfKnownClients) {
  Id id = 0;
  ASSERT_TRUE(succeeded(services_->inventory->putClient("other", 0, id)));
  std::string own, other, unknown = "before";
  ASSERT_TRUE(succeeded(services_->directories->jobResults("thisclient", own)));
  ASSERT_TRUE(succeeded(services_->directories->jobResults("other", other)));
  EXPECT_EQ(own, other);
  EXPECT_TRUE(failed(services_->directories->jobResults("nobody", unknown), statusNotFound));
  EXPECT_EQ(unknown, "before");
}

TEST_P(ServiceConformance, VaultOpensWhatItSealed) {
  for (const std::string& plain :
       {std::string(), std::string("secret"), std::string("a\0\n'\xff", 5), std::string(5000, 'x')}) {
    std::string sealed, opened = "before";
    ASSERT_TRUE(succeeded(services_->vault->seal(plain, sealed)));
    EXPECT_FALSE(sealed.empty());
    EXPECT_NE(sealed, plain);
    ASSERT_TRUE(succeeded(services_->vault->open(sealed, opened)));
    EXPECT_EQ(opened, plain);
  }
  std::string opened = "before";
  ASSERT_TRUE(succeeded(services_->vault->open("", opened)));
  EXPECT_EQ(opened, "");
  opened = "before";
  EXPECT_TRUE(failed(services_->vault->open("plain text", opened), statusFailed));
  EXPECT_EQ(opened, "before");
}

TEST_P(ServiceConformance, ProxyDirectoryPrefersTheVersion) {
  ASSERT_TRUE(succeeded(services_->settings->write("Proxy", "12/104", "/opt/any")));
  ASSERT_TRUE(succeeded(services_->settings->write("Proxy", "12/104/8.0", "/opt/8.0")));
  ASSERT_TRUE(succeeded(services_->settings->write("Proxy", "12/104/8.4", "")));
  const struct {
    ProxyRequest request;
    std::optional<std::string> directory;
  } cases[] = {{{12, 104, "8.0", 0}, "/opt/8.0"},
               {{12, 104, "5.7", 0}, "/opt/any"},
               {{12, 104, "8.4", 0}, "/opt/any"},
               {{13, 104, "8.0", 0}, std::nullopt},
               {{12, 10, "8.0", 0}, std::nullopt}};
  for (const auto& test : cases) {
    std::optional<std::string> directory = "before";
    ASSERT_TRUE(succeeded(services_->proxies->installDirectory(test.request, directory)));
    EXPECT_EQ(directory, test.directory) << test.request.clientId << " " << test.request.version;
  }
}

TEST_P(ServiceConformance, IndexKeepsPathsInOrder) {
  Index& index = *services_->index;
  const IndexKey first{1, 5, 6, 1, "image1"};
  const IndexKey second{2, 5, 6, 2, "image2"};
  ASSERT_TRUE(succeeded(index.addPaths(first, {{"/b", "b", 10, 20, 3}, {"/a", "a", 0, 0, 0}})));
  ASSERT_TRUE(succeeded(index.addPaths(second, {{"/c", "c", 1, 2, 4294967295U}})));
  ASSERT_TRUE(succeeded(index.addPaths({3, 9, 6, 1, ""}, {{"/d", "d", 0, 0, 0}})));
  const auto b = FieldsAre("/b", "b", 10, 20, 3U), a = FieldsAre("/a", "a", 0, 0, 0U);
  EXPECT_THAT(paths(5, 1), ElementsAre(b, a));
  EXPECT_THAT(paths(5, 0), ElementsAre(b, a, FieldsAre("/c", "c", 1, 2, 4294967295U)));
  EXPECT_TRUE(paths(5, 3).empty());
}

TEST_P(ServiceConformance, IndexKeepsRecordsAsTheyAre) {
  Index& index = *services_->index;
  const std::string bytes("\x08\x96\x01\0\xff", 5);
  ASSERT_TRUE(succeeded(index.addRecord({1, 5, 6, 1, "image"}, "Image", "two", bytes)));
  ASSERT_TRUE(succeeded(index.addRecord({1, 5, 6, 1, "image"}, "Image", "one", "")));
  ASSERT_TRUE(succeeded(index.addRecord({1, 5, 6, 1, "image"}, "Other", "one", "x")));
  std::vector<std::pair<std::string, std::string>> records;
  ASSERT_TRUE(succeeded(index.listRecords(1, "Image", records)));
  EXPECT_EQ(records, (std::vector<std::pair<std::string, std::string>>{{"two", bytes}, {"one", ""}}));
  ASSERT_TRUE(succeeded(index.listRecords(2, "Image", records)));
  EXPECT_TRUE(records.empty());
}

TEST_P(ServiceConformance, IndexTakesManyRecordsAtOnceAndGivesThemOneByOne) {
  Index& index = *services_->index;
  const std::string bytes("\0\xff", 2);
  ASSERT_TRUE(
      succeeded(index.addRecords({7, 5, 6, 1, ""}, {{"Db", "a", "1"}, {"Table", "b", bytes}, {"Db", "c", ""}})));
  ASSERT_TRUE(succeeded(index.addRecord({8, 5, 6, 1, ""}, "Db", "other job", "")));
  ASSERT_TRUE(succeeded(index.addRecords({7, 5, 6, 1, ""}, {})));
  std::string seen;
  const auto take = [&](const IndexRecord& record) {
    seen += record.kind + " " + record.name + " " + record.bytes + ";";
    return record.name != "b";
  };
  ASSERT_TRUE(succeeded(index.eachRecord(7, take)));
  EXPECT_EQ(seen, "Db a 1;Table b " + bytes + ";");
  seen.clear();
  ASSERT_TRUE(succeeded(index.eachRecord(9, take)));
  EXPECT_EQ(seen, "");
}

TEST_P(ServiceConformance, IndexRemovesRecordsOfOneJobAndKindByTheBeginOfTheirNames) {
  Index& index = *services_->index;
  const std::vector<IndexRecord> records{
      {"T", "`a%`.x", ""}, {"T", "`a%`.\xc3\xa9", ""}, {"T", "`ab`.x", ""}, {"D", "`a%`.x", ""}};
  for (const long long job : {7, 8}) ASSERT_TRUE(succeeded(index.addRecords({job, 5, 6, 1, ""}, records)));
  ASSERT_TRUE(succeeded(index.removeRecords(7, "T", "`a%`.")));
  ASSERT_TRUE(succeeded(index.removeRecords(7, "T", "none")));
  std::string seen;
  const auto take = [&](const IndexRecord& record) {
    seen += record.kind + record.name + ";";
    return true;
  };
  ASSERT_TRUE(succeeded(index.eachRecord(7, take)));
  EXPECT_EQ(seen, "T`ab`.x;D`a%`.x;");
  ASSERT_TRUE(succeeded(index.removeRecords(8, "T", "")));
  seen.clear();
  ASSERT_TRUE(succeeded(index.eachRecord(8, take)));
  EXPECT_EQ(seen, "D`a%`.x;");
}

TEST_P(ServiceConformance, ArchiveListsARangeOldestFirst) {
  ArchiveManager& archive = *services_->archive;
  Id ids[4];
  const std::int64_t created[4] = {300, 100, 200, 400};
  for (int i = 0; i < 4; ++i)
    ASSERT_TRUE(
        succeeded(archive.addFile({999, 1, 2, 3, 104, 1, "file" + std::to_string(i), created[i], 1LL << 40}, ids[i])));
  Id other = 0;
  ASSERT_TRUE(succeeded(archive.addFile({0, 2, 2, 3, 104, 1, "other set", 200, 0}, other)));
  const auto isFile = [&](int i) {
    return FieldsAre(ids[i], 1U, 2U, 3, 104, 1, "file" + std::to_string(i), created[i], 1LL << 40);
  };
  EXPECT_THAT(files(104, 100, 300), ElementsAre(isFile(1), isFile(2), isFile(0)));
  std::vector<ArchiveFile> named;
  ASSERT_TRUE(succeeded(archive.findFiles(104, "file2", named)));
  EXPECT_THAT(named, ElementsAre(isFile(2)));
  ASSERT_TRUE(succeeded(archive.findFiles(1, "file2", named)));
  EXPECT_TRUE(named.empty());
  ASSERT_TRUE(succeeded(archive.removeFile(ids[2])));
  EXPECT_TRUE(failed(archive.removeFile(ids[2]), statusNotFound));
  EXPECT_EQ(files(104, 0, 1000).size(), 3U);
  EXPECT_TRUE(files(1, 0, 1000).empty());
}

TEST_P(ServiceConformance, HoldersOfAReplicaAreKeptUntilTheyAreRemoved) {
  ReplicaHolders& port = *services_->holders;
  Id first = 0, second = 0, other = 0;
  ASSERT_TRUE(succeeded(port.add({999, 5, {101, "boot:1"}, {}, "tar -c \"a  b\"", 7}, first)));
  ASSERT_TRUE(succeeded(port.add({0, 5, {102, "boot:2"}, {103, "boot:3"}, "", 1LL << 50}, second)));
  ASSERT_TRUE(succeeded(port.add({0, 6, {104, ""}, {}, "x", 0}, other)));
  EXPECT_NE(first, second);
  ASSERT_TRUE(succeeded(port.setCommand(first, {105, "boot:5"})));
  EXPECT_THAT(
      holders(5),
      ElementsAre(FieldsAre(first, 5U, FieldsAre(101, "boot:1"), FieldsAre(105, "boot:5"), "tar -c \"a  b\"", 7),
                  FieldsAre(second, 5U, FieldsAre(102, "boot:2"), FieldsAre(103, "boot:3"), "", 1LL << 50)));
  ASSERT_TRUE(succeeded(port.remove(first)));
  EXPECT_TRUE(failed(port.remove(first), statusNotFound));
  EXPECT_TRUE(failed(port.setCommand(first, {1, ""}), statusNotFound));
  EXPECT_EQ(holders(5).size(), 1U);
  EXPECT_TRUE(holders(7).empty());
}

TEST_P(ServiceConformance, SleepTakesItsTimeOnTheClock) {
  const std::int64_t before = services_->clock->now();
  services_->clock->sleep(2);
  EXPECT_GE(services_->clock->now(), before + 2000);
  services_->clock->sleep(0);
  services_->clock->sleep(-1000000);  // must not wait
}

}  // namespace
}  // namespace orrery::test
