#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "session/session_fixture.h"
#include "support/children.h"
#include "support/temporary_directory.h"

namespace {

namespace property = orrery::platform::property;
using orrery::test::readFile;
using DefaultsFile = orrery::test::SessionTest;

std::string pid() {
  return std::to_string(getpid());
}

TEST_F(DefaultsFile, HoldsThePasswordAndNothingElseForItsOwnerOnly) {
  const orrery::platform::ScopedJob job(77);
  GetMySqlInfo session;
  ASSERT_EQ(session.Init(id()), 0);
  EXPECT_EQ(session.strConfigPwdFile, backend_.temporary() + "/orrery_bkp_mycnf_" + std::to_string(id()) +
                                          "_1767225600_" + pid() + "_" + pid() + "_77.cnf");
  EXPECT_EQ(readFile(session.strConfigPwdFile), "[client]\npassword='secret'\n");
  struct stat info {};
  ASSERT_EQ(stat(session.strConfigPwdFile.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600U);
}

TEST_F(DefaultsFile, TwoSessionsOfOneSecondGetDifferentFiles) {
  GetMySqlInfo first;
  GetMySqlInfo second;
  ASSERT_EQ(first.Init(id()), 0);
  ASSERT_EQ(second.Init(id()), 0);
  EXPECT_NE(first.strConfigPwdFile, second.strConfigPwdFile);
  EXPECT_TRUE(logged("multiple objects with same timestamp, changing timestamp..."));
}

TEST_F(DefaultsFile, IsReplacedByASecondInitialisationOrOneWrittenAnewAndAFailureKeepsIt) {
  GetMySqlInfo session;
  ASSERT_EQ(session.Init(id()), 0);
  backend_.advance(5000);
  const std::string before = session.strConfigPwdFile;
  ASSERT_EQ(session.Init(id()), 0);
  EXPECT_NE(session.strConfigPwdFile, before);
  EXPECT_THAT(backend_.leftovers(), testing::SizeIs(1));
  ASSERT_EQ(session.CreateConfigPwdFile(9), 0);
  EXPECT_THAT(backend_.leftovers(), testing::ElementsAre(testing::StartsWith("orrery_bkp_mycnf_9_")));
  backend_.setTemporary(std::nullopt);
  EXPECT_EQ(session.CreateConfigPwdFile(10), -1);
  EXPECT_TRUE(std::filesystem::exists(session.strConfigPwdFile));
}

TEST_F(DefaultsFile, RemovedOnRequestMakesTheSessionRefuseStatements) {
  GetMySqlInfo session;
  EXPECT_EQ(session.DeleteConfFile(), 0) << "there is nothing to remove yet";
  ASSERT_EQ(session.Init(id()), 0);
  EXPECT_EQ(session.DeleteConfFile(), 0);
  EXPECT_THAT(backend_.leftovers(), testing::IsEmpty());
  EXPECT_EQ(session.FlushLogs(), -1);
  EXPECT_TRUE(logged("GetMySqlInfo Not Initialized...ABORT"));

  ASSERT_EQ(session.Init(id()), 0);
  std::filesystem::remove(session.strConfigPwdFile);
  EXPECT_EQ(session.DeleteConfFile(), -1);
  EXPECT_TRUE(session.bInitialized);
  EXPECT_TRUE(logged("unlink of [" + session.strConfigPwdFile + "] file failed with errno=[2]"));
}

TEST_F(DefaultsFile, IsNeverWrittenThroughALinkThatSomebodyPlanted) {
  const std::string target = backend_.directory() + "/victim";
  const std::string planted = backend_.temporary() + "/orrery_bkp_mycnf_" + std::to_string(id()) + "_1767225600_" +
                              pid() + "_" + pid() + "_0.cnf";
  std::filesystem::create_symlink(target, planted);
  GetMySqlInfo session;
  ASSERT_EQ(session.Init(id()), 0);
  EXPECT_NE(session.strConfigPwdFile, planted);
  EXPECT_FALSE(std::filesystem::exists(target));
  std::filesystem::remove(planted);
}

TEST_F(DefaultsFile, AnAccountThatDoesNotExistIsAFailureThatLeavesNoFile) {
  auto properties = this->properties();
  properties[property::unixUser] = "no_such_account";
  GetMySqlInfo session;
  EXPECT_EQ(session.Init(static_cast<long>(backend_.addInstance("db2", properties))), -1);
  EXPECT_TRUE(logged(" Failed to Set Permissions to Config File.."));
  EXPECT_THAT(backend_.leftovers(), testing::IsEmpty());
}

TEST_F(DefaultsFile, ADirectoryThatCannotTakeItIsAFailure) {
  backend_.setTemporary(std::nullopt);
  GetMySqlInfo session;
  EXPECT_EQ(session.Init(id()), -1);
  EXPECT_TRUE(logged("DZPI_Base::dzpibase.getOrreryTempDirectory returned NULL"));
  backend_.setTemporary("/dev/null");
  EXPECT_EQ(session.Init(id()), -1);
  EXPECT_TRUE(backend_.log().contains(" Failed to open file [/dev/null/orrery_bkp_mycnf_"));
}

TEST_F(DefaultsFile, ADiskWithoutRoomIsAFailureThatLeavesNoFile) {
  GetMySqlInfo session;
  {
    const orrery::test::FullDisk full;
    EXPECT_EQ(session.Init(id()), -1);
  }
  EXPECT_FALSE(session.bInitialized);
  EXPECT_TRUE(backend_.log().contains("write failed, errno=[27],filename= ["));
  EXPECT_THAT(backend_.leftovers(), testing::IsEmpty());
}

TEST_F(DefaultsFile, WarnsOfAPasswordThatAnOptionFileDoesNotGiveBackWithoutShowingIt) {
  const struct {
    const char* password;
    bool survives;
  } table[] = {{"plain", true},   {"with # and ; and = and blank ", true},
               {"it's", true},    {"\"quoted\"", true},
               {"back\\q", true}, {"end\\", true},
               {"a\\nb", false},  {"a\\\\b", false},
               {"a' #b", false},  {"two\nlines", false},
               {"", true}};
  int number = 0;
  for (const auto& row : table) {
    backend_.log().clear();
    auto properties = this->properties();
    properties[property::saPassword] = std::string("sealed:") + row.password;
    GetMySqlInfo session;
    ASSERT_EQ(session.Init(static_cast<long>(backend_.addInstance("p" + std::to_string(++number), properties))), 0);
    EXPECT_EQ(readFile(session.strConfigPwdFile), "[client]\npassword='" + std::string(row.password) + "'\n")
        << "written as it is, whatever comes of it";
    EXPECT_EQ(!backend_.log().contains("does not give back"), row.survives) << row.password;
    if (row.password[0] != '\0') {
      EXPECT_FALSE(backend_.log().contains(row.password));
    }
  }
}

TEST_F(DefaultsFile, WarnsOfAPasswordBeyondTheBuffersLimit) {
  for (const std::size_t length : {2026U, 2027U}) {
    backend_.log().clear();
    GetMySqlInfo session;
    session.strPassword.assign(length, 'x');
    ASSERT_EQ(session.CreateConfigPwdFile(1), 0);
    EXPECT_EQ(readFile(session.strConfigPwdFile).size(), 2047U);
    EXPECT_EQ(backend_.log().contains("does not give back"), length == 2027U);
  }
}

}  // namespace
