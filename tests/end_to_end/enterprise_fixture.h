#pragma once

#include <filesystem>
#include <memory>
#include <utility>

#include "orrery/platform/home.h"
#include "orrery/platform/instance_properties.h"

#include "command_fixture.h"

namespace orrery::test {

/// One server for each test: it is stopped, emptied and filled again.
class EnterpriseTest : public CommandTest {
 protected:
  void SetUp() override {
    CommandTest::SetUp();
    addServer("db", server_, {"--meb", "on", "--meb-bin", ORRERY_MYSQLBACKUP_FOLDER});
    set("sServerStartCmd", server_.startCommand());
    set("nStartServerWaitTime", "3");
    server_.execute("create database shop; create table shop.t (id int primary key auto_increment, text varchar(200))");
    write(100);
  }
  void TearDown() override {
    EXPECT_THAT(namesIn(home() + "/tmp"), testing::IsEmpty());
    for (const std::string& name : namesIn(home() + "/media"))
      EXPECT_THAT(name, testing::Not(testing::HasSubstr(".new-")));
  }

  void set(const std::string& key, const std::string& value) const {
    ASSERT_EQ(run({"setting", "set", "MySQL." + key, value}).exitStatus, 0);
  }
  void write(int rows) {
    server_.execute("insert into shop.t (text) select repeat(char(65 + seq % 26), 150) from shop.seq_1_to_" +
                    std::to_string(rows));
  }
  /// Data that take a while to move.
  void writeMuch() { write(200000); }
  std::string checksum() const { return server_.execute("checksum table shop.t"); }
  Json backup(const std::string& level = "full") const { return runJson({"backup", "db", "--level", level}); }
  static std::string timeOf(const Json& backup) { return backup["image"]["created"]; }
  Json restoreTo(const std::string& time, std::vector<std::string> more = {}) const {
    more.insert(more.begin(), {"restore", "db", "--yes", "--to-time", time});
    return runJson(more);
  }
  std::vector<std::string> images() const { return namesIn(home() + "/media"); }
  Json job(int id) const { return runJson({"job", "show", std::to_string(id)}); }
  Json lastJob() const { return job(runJson({"job", "list"})["jobs"][0]["id"]); }
  /// The command, with a fault of the backup program, in the background.
  RunningProgram start(const std::vector<std::string>& arguments, const std::string& fault) const {
    return RunningProgram(commandLine(home(), arguments), {.environment = {"ORRERY_MYSQLBACKUP_FAULT=" + fault}});
  }
  ProgramResult runWith(const std::string& fault, const std::vector<std::string>& arguments) const {
    return run(arguments, {.environment = {"ORRERY_MYSQLBACKUP_FAULT=" + fault}});
  }
  std::shared_ptr<const platform::Services> store() const {
    std::shared_ptr<const platform::Services> services;
    EXPECT_TRUE(platform::openHome(home(), services).ok());
    return services;
  }
  platform::ArchiveFile recordOf(const std::string& image) const {
    std::vector<platform::ArchiveFile> records;
    EXPECT_TRUE(store()->archive->findFiles(platform::property::applicationTypeMySql, image, records).ok());
    return records.at(0);
  }
  void enter(const platform::ArchiveFile& record) const {
    platform::Id id = 0;
    ASSERT_TRUE(store()->archive->addFile(record, id).ok());
  }
  /// More than a list of jobs shows at once.
  void startJobsOfOthers() const {
    const auto services = store();
    platform::JobRecord job;
    job.instanceId = 99;
    long long id = 0;
    for (int i = 0; i < 120; ++i) ASSERT_TRUE(services->jobs->start(job, id).ok());
  }
  ProgramResult restore(const std::string& time, std::vector<std::string> more = {}) const {
    more.insert(more.begin(), {"restore", "db", "--yes", "--to-time", time});
    return run(more);
  }
  /// Waits until a job has moved something.
  bool moves(int id) const {
    return waitUntil([&] {
      const ProgramResult shown = run({"--format", "json", "job", "show", std::to_string(id)});
      return shown.exitStatus == 0 && Json::parse(shown.output)["bytes"] > 0;
    });
  }

  MariaDbSandbox server_{MariaDbSandbox::Options{.logBin = true}};
};

}  // namespace orrery::test
