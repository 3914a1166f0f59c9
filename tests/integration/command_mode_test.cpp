#include <pwd.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "integration/real_session.h"

namespace {

using orrery::test::MariaDbSandbox;

/// One server for all tests of this file, with its account's own databases kept apart by name.
class CommandMode : public orrery::test::ServerSuite<CommandMode> {
 public:
  static MariaDbSandbox::Options options() { return {.logBin = true}; }

 protected:
  CommandMode() { session_ = sessionFor(propertiesOf(*server_)); }

  std::unique_ptr<GetMySqlInfo> session_;
};

TEST_F(CommandMode, SendsCommandLinesThatEveryClientKnows) {
  std::string output;
  const std::string file = session_->strConfigPwdFile;
  const std::string connect = " -u agent --socket=" + server_->socket();
  session_->PingServer();
  EXPECT_THAT(backend_.log().texts(),
              testing::Contains("Command to run [/usr/bin/mysqladmin  --defaults-file=" + file + connect + " ping]"));
  session_->QueryVariable("port", output);
  EXPECT_THAT(
      backend_.log().texts(),
      testing::Contains("Command to run [/usr/bin/mysql  --defaults-file=" + file + " --default-character-set=utf8" +
                        connect + " -e \"SHOW VARIABLES LIKE 'port'\"  --batch --skip-column-names]"));
}

TEST_F(CommandMode, ClientsRunAsTheServersAccount) {
  std::string output;
  ASSERT_EQ(session_->executeMySqlCommand("system id -un", output, false), 0);
  EXPECT_EQ(output, server_->account() + "\n");
  struct stat info {};
  ASSERT_EQ(stat(session_->strConfigPwdFile.c_str(), &info), 0);
  EXPECT_EQ(info.st_uid, getpwnam(server_->account().c_str())->pw_uid) << "or they could not read the password";
  EXPECT_EQ(info.st_mode & 07777, 0600U);
}

TEST_F(CommandMode, ServerErrorsLeaveNumberAndTextWhateverTheClientPrintsBeforeThem) {
  const struct {
    const char* name;
    int number;
    std::function<int(GetMySqlInfo&)> request;
  } table[] = {
      {"drop of an unknown database", 1008, [](GetMySqlInfo& s) { return s.DropDB("no_such_db"); }},
      {"use of an unknown database", 1049, [](GetMySqlInfo& s) { return s.UseDatabase("no_such_db"); }},
      {"no replica", 1200, [](GetMySqlInfo& s) { return s.StartSlave(); }},
  };
  for (const auto& row : table) {
    session_->clearErrors();
    EXPECT_EQ(row.request(*session_), -1) << row.name;
    EXPECT_EQ(session_->iErrorCode, row.number) << row.name;
    EXPECT_THAT(session_->strErrorString, testing::HasSubstr("ERROR " + std::to_string(row.number))) << row.name;
  }
}

TEST_F(CommandMode, StopOfReplicationOnAServerThatIsNoReplicaIsASuccess) {
  EXPECT_EQ(session_->StopSlave(), 0);
}

TEST_F(CommandMode, ARequestsLinesCarryItsTag) {
  backend_.log().clear();
  session_->FlushLogs();
  session_->UseDatabase("mysql");
  const auto lines = backend_.log().lines();
  EXPECT_THAT(lines, testing::Contains(" <<FALLBACK>> GetMySqlInfo::FlushLogs: running [FLUSH LOGS]"));
  EXPECT_THAT(lines, testing::Contains("<<FALLBACK>> GetMySqlInfo::UseDatabase: running [use 'mysql']"))
      << "kept: this tag has no blank in front";
  EXPECT_THAT(
      lines, testing::Contains(" <<FALLBACK>> GetMySqlInfo::executeMySqlCommand: ---END OF CHILD OUTPUT REACHED---- "));
}

TEST_F(CommandMode, ASessionFromARecordRunsWithoutAnOptionFile) {
  MySqlServer record;
  record.SetSaUser("agent");
  record.SetSocketFile(server_->socket());
  record.SetBinaryPath("/usr/bin");
  record.SetUnixUser(server_->account());
  GetMySqlInfo session;
  ASSERT_EQ(session.Init(record), 0);
  EXPECT_EQ(session.FlushLogs(), -1);
  EXPECT_THAT(session.strErrorString, testing::HasSubstr("(using password: NO)"));
}

TEST_F(CommandMode, ARunnerThatCannotStartIsTold) {
  backend_.setJobResults("/dev/null");
  EXPECT_EQ(session_->FlushLogs(), -1);
  EXPECT_TRUE(logged("Initialize failed"));
  EXPECT_THAT(session_->strErrorString, testing::HasSubstr("the folder for error files cannot be created"));
}

// Kept: the check that the database can be reached and the statement run in different clients.
TEST_F(CommandMode, SchemasTablesAndTablespacesRunInClientsWithoutADefaultDatabase) {
  ASSERT_EQ(session_->createDatabaseUsingSchema("CREATE DATABASE shop\n  CHARACTER SET utf8mb4"), 0);
  ASSERT_EQ(session_->createTableUsingSchema(
                "shop", "CREATE TABLE shop.items (id INT PRIMARY KEY, name VARCHAR(20) DEFAULT 'a  b') ENGINE=InnoDB"),
            0)
      << session_->strErrorString;
  EXPECT_EQ(
      server_->execute(
          "SELECT column_default FROM information_schema.columns WHERE table_schema='shop' AND column_name='name'"),
      "'a  b'\n")
      << "two blanks survive the command line";
  EXPECT_EQ(session_->importTableSpace("no_such_db", "items"), -1);
  EXPECT_TRUE(logged(" Failed to create the database [no_such_db]"));
  ASSERT_EQ(session_->DropDB("shop"), 0);
}

TEST_F(CommandMode, LongOutputComesWhole) {
  std::string output;
  ASSERT_EQ(session_->executeMySqlCommand("SELECT REPEAT('x', 1000000) FROM mysql.seq_1_to_20", output, false), 0);
  EXPECT_EQ(output.size(), 20U * 1000001U);
}

TEST_F(CommandMode, MissingClientProgramFailsAndASuccessorServes) {
  auto properties = propertiesOf(*server_);
  const orrery::test::TemporaryDirectory bin;
  properties["binary_path"] = bin.path();
  auto session = sessionFor(properties);
  EXPECT_EQ(session->PingServer(), -1);
  EXPECT_TRUE(logged("Exec failed"));
  EXPECT_EQ(session->iErrorCode, -1);

  std::filesystem::create_symlink("/usr/bin/mariadb", bin / "mariadb");
  std::filesystem::create_symlink("/usr/bin/mariadb-admin", bin / "mariadb-admin");
  session->iErrorCode = 0;
  EXPECT_EQ(session->PingServer(), 0);
  EXPECT_EQ(session->FlushLogs(), 0);
  EXPECT_EQ(session->iErrorCode, 0) << "a first try that taught the client's name is no failure";
  backend_.log().clear();
  EXPECT_EQ(session->FlushLogs(), 0);
  EXPECT_FALSE(backend_.log().contains("Exec failed")) << "learned for the rest of the session";
}

}  // namespace
