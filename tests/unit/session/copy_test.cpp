#include <filesystem>
#include <iterator>
#include <memory>

#include <gtest/gtest.h>

#include "session/session_fixture.h"

namespace {

using orrery::platform::Status;
using Copy = orrery::test::SessionTest;

TEST_F(Copy, OwnsAFileOfItsOwnAndSharesTheInstanceWhichOutlivesTheSource) {
  auto source = std::make_unique<GetMySqlInfo>();
  ASSERT_EQ(source->Init(id()), 0);
  auto copy = std::make_unique<GetMySqlInfo>(*source);
  EXPECT_NE(copy->strConfigPwdFile, source->strConfigPwdFile);
  EXPECT_EQ(copy->pMySqlInstance, source->pMySqlInstance);
  source.reset();
  EXPECT_TRUE(std::filesystem::exists(copy->strConfigPwdFile));
  EXPECT_EQ(copy->pMySqlInstance->getInstanceId(), instance_);
  GetMySqlInfo second(*copy);
  copy.reset();
  EXPECT_TRUE(std::filesystem::exists(second.strConfigPwdFile));
  EXPECT_EQ(second.pMySqlInstance->getInstanceId(), instance_);
}

TEST_F(Copy, TakesOverWhatDescribesTheServerAndNothingOfTheRun) {
  GetMySqlInfo source;
  ASSERT_EQ(source.Init(id()), 0);
  std::string GetMySqlInfo::*const copied[] = {&GetMySqlInfo::strErrorString, &GetMySqlInfo::strArchiveLogIndexFile,
                                               &GetMySqlInfo::strSocketFile,  &GetMySqlInfo::strSaUser,
                                               &GetMySqlInfo::strSaPassword,  &GetMySqlInfo::strPassword,
                                               &GetMySqlInfo::strVersion,     &GetMySqlInfo::strBinaryPath,
                                               &GetMySqlInfo::strDataPath,    &GetMySqlInfo::strConfigFile,
                                               &GetMySqlInfo::strNTUser,      &GetMySqlInfo::strNTPassword,
                                               &GetMySqlInfo::strHost,        &GetMySqlInfo::strPort,
                                               &GetMySqlInfo::strSslCa,       &GetMySqlInfo::strSslKey,
                                               &GetMySqlInfo::strSslCert};
  for (std::size_t i = 0; i < std::size(copied); ++i) source.*copied[i] = "value" + std::to_string(i);
  source.bUseSsl = true;
  source.iErrorCode = 5;
  source.strMasterLogFile = source.strReplicationFile = source.strSessionString1 = source.strSessionString7 = "x";
  source.bSlaveStoppedBySession = true;
  source.iSessionMode = 9;
  GetMySqlInfo copy(source);
  for (std::size_t i = 0; i < std::size(copied); ++i) EXPECT_EQ(copy.*copied[i], source.*copied[i]) << i;
  EXPECT_TRUE(copy.bUseSsl);
  EXPECT_EQ(copy.iErrorCode, 5);
  EXPECT_EQ(copy.iDbAutoDiscovery, 1);
  EXPECT_EQ(copy.iSessionMode, 9);
  EXPECT_EQ(copy.strMasterLogFile + copy.strReplicationFile + copy.strSessionString1 + copy.strSessionString7, "");
  EXPECT_FALSE(copy.bSlaveStoppedBySession);
  EXPECT_EQ(copy.ulClientId, 0U);
  EXPECT_EQ(copy.appId.getInstanceId(), 0U);
}

TEST_F(Copy, OfAnAccountIsTakenOver) {
  GetMySqlInfo source;
  ASSERT_EQ(source.Init(id()), 0);
  source.strUnixUser = "no_such_account";
  GetMySqlInfo withoutFile(source);
  EXPECT_EQ(withoutFile.strUnixUser, "no_such_account");
  EXPECT_EQ(withoutFile.strConfigPwdFile, "") << "or its end would remove a file that another copy made since";
}

TEST_F(Copy, CountsAsInitialisedEvenWithoutAFile) {
  GetMySqlInfo source;
  ASSERT_EQ(source.Init(id()), 0);
  backend_.failures().failAlways("Directories::temporary", Status::failure("no"));
  GetMySqlInfo copy(source);
  EXPECT_TRUE(copy.bInitialized);
  EXPECT_TRUE(logged("CreateConfigPwdFile failed"));
}

TEST_F(Copy, MadeInTheSecondThatItsNameHoldsKeepsTheTwoNumbersApart) {
  GetMySqlInfo source;
  ASSERT_EQ(source.Init(id()), 0);
  GetMySqlInfo copy(source);
  EXPECT_NE(copy.strConfigPwdFile.find("orrery_bkp_mycnf_1767225600_1767225601_"), std::string::npos)
      << copy.strConfigPwdFile;
}

}  // namespace
