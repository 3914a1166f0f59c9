// Backups and their restore, compared by what a server finds in the restored data.

#include <unistd.h>

#include <filesystem>

#include <gmock/gmock.h>

#include "mysqlbackup_test.h"

namespace orrery::test {
namespace {

namespace fs = std::filesystem;

class MysqlbackupChain : public MysqlbackupTest {
 protected:
  /// Checksums of the tables as a server on data() sees them.
  std::string checksumsOfData() const;
};

const std::string checksums = "CHECKSUM TABLE shop.goods, shop.orders";

std::string MysqlbackupChain::checksumsOfData() const {
  std::vector<std::string> command;
  if (::geteuid() == 0) {
    EXPECT_EQ(runProgram({"chown", "-R", server_->account() + ":", data()}).exitStatus, 0);
    command = {"setpriv", "--reuid=" + server_->account(), "--regid=" + server_->account(), "--init-groups"};
  }
  for (const char* argument : {"mariadbd", "--no-defaults", "--skip-networking", "--innodb-buffer-pool-size=16M"})
    command.emplace_back(argument);
  command.insert(command.end(),
                 {"--datadir=" + data(), "--socket=" + data() + "/s.sock", "--pid-file=" + data() + "/pid"});
  RunningProgram server(command);
  // Its accounts are those of the server that was backed up.
  const std::vector<std::string> client{"mariadb",
                                        "--defaults-file=" + server_->directory() + "/agent.cnf",
                                        "--socket=" + data() + "/s.sock",
                                        "--batch",
                                        "--skip-column-names",
                                        "--execute=" + checksums};
  ProgramResult answer;
  EXPECT_TRUE(waitUntil([&] {
    return fs::exists(data() + "/s.sock") && (answer = runProgram(client)).exitStatus == 0;
  })) << answer.errors;
  server.signalGroup(SIGTERM);
  const ProgramResult ended = server.wait();
  EXPECT_EQ(ended.exitStatus, 0) << ended.errors;
  return answer.output;
}

TEST_F(MysqlbackupChain, AFullBackupAndItsIncrementsComeBackInTheirOrderOnly) {
  server_->execute("CREATE TABLE shop.orders (id INT PRIMARY KEY) ENGINE=InnoDB; INSERT INTO shop.orders VALUES (1);");
  ASSERT_TRUE(completed(backup("full")));
  server_->execute("INSERT INTO shop.goods (name) SELECT name FROM shop.goods; INSERT INTO shop.orders VALUES (2);");
  ASSERT_TRUE(completed(backupIncrement("one")));
  server_->execute("DELETE FROM shop.goods WHERE id % 3 = 0; INSERT INTO shop.orders VALUES (3);");
  ASSERT_TRUE(completed(
      backup("two", {"--incremental", "--incremental-base=history:last_backup", "--no-locking", "--skip-binlog"})));
  const std::string expected = server_->execute(checksums);
  server_->execute("DROP TABLE shop.orders");

  EXPECT_TRUE(failedWith(restore("one", {"--incremental"}), "holds no restored backup"));
  EXPECT_TRUE(failedWith(restore("full", {"--incremental"}), "is a full backup"));
  EXPECT_FALSE(fs::exists(data()));
  ASSERT_TRUE(completed(restore("full")));
  const std::string full = fingerprintOfData();
  EXPECT_TRUE(failedWith(restore("two", {"--incremental"}), "in the order in which they were taken"));
  EXPECT_TRUE(failedWith(restore("one"), "--incremental is missing"));
  EXPECT_TRUE(failedWith(restore("full"), "is not empty"));
  EXPECT_EQ(fingerprintOfData(), full);
  ASSERT_TRUE(completed(restore("one", {"--incremental"})));
  EXPECT_TRUE(failedWith(restore("one", {"--incremental"}), "in the order in which they were taken"));
  ASSERT_TRUE(completed(restore("two", {"--incremental"})));
  EXPECT_EQ(checksumsOfData(), expected);
}

TEST_F(MysqlbackupChain, WhatIsLeftInTheFoldersAndInTheHistory) {
  ASSERT_TRUE(completed(backup("full")));
  EXPECT_EQ(readFile(backupDirectory("full") + "/server-my.cnf"),
            "[mysqld]\ndatadir=" + server_->dataDirectory() + "\n");
  EXPECT_FALSE(fs::exists(backupDirectory("full") + "/work"));
  EXPECT_EQ(fs::status(backupDirectory("full")).permissions(), fs::perms::owner_all);
  EXPECT_EQ(server_->execute("SELECT backup_type, exit_state, backup_destination, end_lsn > 0, mysql_data_dir FROM "
                             "mysql.backup_history ORDER BY backup_id DESC LIMIT 1"),
            "FULL\tSUCCESS\tsbt:full\t1\t" + server_->dataDirectory() + "\n");
  EXPECT_TRUE(failedWith(backup("full"), "is not empty"));

  writeFile(folder_ / "server.cnf", "[client]\ndatadir=/nowhere\n[mysqld]\nport=1\ndatadir = " + data() + "\n");
  std::vector<std::string> command = restoreCommand("full");
  std::erase(command, "--datadir=" + data());
  command.insert(command.begin() + 1, "--defaults-file=" + (folder_ / "server.cnf"));
  ASSERT_TRUE(completed(runProgram(command)));
  EXPECT_TRUE(fs::exists(data() + "/ibdata1"));
  EXPECT_EQ(readFile(restoreDirectory("full") + "/server-my.cnf"), "[mysqld]\ndatadir=" + data() + "\n");
  EXPECT_FALSE(fs::exists(restoreDirectory("full") + "/image"));
}

TEST_F(MysqlbackupChain, OnlyABackupThatSucceededIsABase) {
  server_->execute("DROP TABLE IF EXISTS mysql.backup_history");
  EXPECT_TRUE(failedWith(backupIncrement("one"), "take a full one"));
  ASSERT_TRUE(completed(backup("full")));
  server_->execute("UPDATE mysql.backup_history SET exit_state='FAILURE'");
  EXPECT_TRUE(failedWith(backupIncrement("two"), "take a full one"));
  EXPECT_EQ(mediaFiles(), std::vector<std::string>{"full"});
}

TEST_F(MysqlbackupChain, ADamagedImageIsNotRestored) {
  ASSERT_TRUE(completed(backup("full")));
  std::string image = readFile(media() + "/full");
  image[image.size() / 2] = static_cast<char>(image[image.size() / 2] ^ 1);
  writeFile(media() + "/full", image);
  EXPECT_TRUE(failedWith(restore("full"), "the media library cannot read the image full"));
  EXPECT_FALSE(fs::exists(data()));
}

TEST_F(MysqlbackupChain, AnImageOfAnotherProgramIsNotRestored) {
  const std::string block(std::size_t{1} << 20, 'x');
  OpenSession session(library_);
  ASSERT_EQ(session.put("other", block, block.size()), 0U);
  EXPECT_TRUE(failedWith(restore("other"), "is none of a backup of this program"));
}

}  // namespace
}  // namespace orrery::test
