#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/platform/DzProcess.h"
#include "orrery/platform/FXErrorUtil.h"
#include "orrery/platform/FXString.h"
#include "orrery/platform/posix.h"

#include "support/backend_test.h"
#include "support/children.h"
#include "support/program.h"
#include "support/temporary_directory.h"

namespace {

using testing::HasSubstr;

class ShellCommand : public orrery::test::BackendTest {
 protected:
  ~ShellCommand() override {
    EXPECT_TRUE(orrery::test::hasNoChildren());
    EXPECT_EQ(orrery::test::openDescriptors(), before_);
  }
  int run(const std::string& command) { return DzProcess::system(command, output_, errors_, options_); }

  const std::size_t before_ = orrery::test::openDescriptors();
  DzProcess::RunOptions options_;
  std::string output_;
  std::string errors_;
};

TEST_F(ShellCommand, BothStreamsMayBeLargerThanAPipe) {
  EXPECT_EQ(run("head -c 3000000 /dev/zero >&2; head -c 2000000 /dev/zero; echo end"), 0);
  EXPECT_EQ(output_.size(), 2000004U);
  EXPECT_EQ(errors_.size(), 3000000U);
}

TEST_F(ShellCommand, EndIsToldAsShellsDo) {
  EXPECT_EQ(run("exit 0"), 0);
  EXPECT_EQ(run("echo said; echo cried >&2; exit 77"), 77);
  EXPECT_EQ(output_ + errors_, "said\ncried\n");
  EXPECT_EQ(run("kill -9 $$"), 137);
  EXPECT_EQ(run("no-such-program"), 127);
}

TEST_F(ShellCommand, WhatIsNotStartedSaysWhy) {
  EXPECT_EQ(run(std::string(200000, 'x')), -1);
  EXPECT_EQ(errors_, "/bin/sh was not run to its end, it cannot be executed: Argument list too long");
  std::string reason;
  int status = 5;
  EXPECT_EQ(DzProcess::RunProcess({"/no/such"}, options_, output_, errors_, status, reason), 0);
  EXPECT_THAT(reason, HasSubstr("No such file or directory"));
  EXPECT_EQ(DzProcess::RunProcess({}, options_, output_, errors_, status, reason), 0);
  EXPECT_EQ(status, 5);
}

TEST_F(ShellCommand, LimitsEndIt) {
  options_.mostOutput = 1000;
  EXPECT_EQ(run("exec cat /dev/zero"), -1);
  EXPECT_EQ(output_.size(), 1000U);
  EXPECT_THAT(errors_, HasSubstr("more than 1000 bytes"));
  EXPECT_EQ(run("head -c 1000 /dev/zero"), 0) << "the limit itself is not too much";
  options_.milliseconds = 200;
  EXPECT_EQ(run("echo before; exec sleep 600"), -1);
  EXPECT_EQ(output_, "before\n");
  EXPECT_THAT(errors_, HasSubstr("has not ended after 200 ms"));
  EXPECT_EQ(run("exec >&- 2>&-; exec sleep 600"), -1);
  EXPECT_THAT(errors_, HasSubstr("has not ended after 200 ms"));
}

TEST_F(ShellCommand, NothingIsLeftBehindWhenItIsEnded) {
  // Whoever collects the orphans of the system may take its time.
  const auto isGone = [&] {
    return orrery::test::waitUntil([&] {
      std::string id, name, state;
      std::ifstream("/proc/" + std::to_string(std::stoi(output_)) + "/stat") >> id >> name >> state;
      return state.empty() || state == "Z";
    });
  };
  options_.milliseconds = 300;
  EXPECT_EQ(run("sleep 600 & echo $!; wait"), -1);
  EXPECT_TRUE(isGone());
  options_.milliseconds = 60000;
  EXPECT_EQ(run("sleep 600 & echo $!; exit 3"), 3) << "the answer stands, although another holds the stream";
  EXPECT_TRUE(isGone());
  const std::function<bool()> stopped = [] { return true; };
  options_.isStopped = &stopped;
  EXPECT_EQ(run("sleep 600"), -1);
  EXPECT_THAT(errors_, HasSubstr("its caller stopped it"));
}

TEST_F(ShellCommand, LongLinesCanBeLeftOut) {
  options_.longestLine = 5;
  options_.mostOutput = 12;
  EXPECT_EQ(run("echo 12345; head -c 100000 /dev/zero; echo; echo 123456; printf 12; printf 34"), 0);
  EXPECT_EQ(output_, "12345\n1234");
  EXPECT_EQ(run("echo 1; printf 123456"), 0);
  EXPECT_EQ(output_, "1\n");
  EXPECT_EQ(run("echo 1234; echo 1234; echo 1234"), -1);
}

TEST_F(ShellCommand, InheritsNoDescriptorAndNoInput) {
  const orrery::platform::OwnFd inherited(fcntl(0, F_DUPFD, 100));
  EXPECT_EQ(run("cat; ls /proc/$$/fd; true"), 0);
  EXPECT_EQ(output_, "0\n1\n2\n");
}

TEST_F(ShellCommand, EnvironmentAndAccountAreTheOnesAskedFor) {
  const std::vector<std::string> environment{"ONLY=this"};
  options_.environment = &environment;
  if (geteuid() == 0) {
    options_.takesAccount = true;
    options_.user = options_.group = 65534;
    EXPECT_EQ(run("echo $ONLY $HOME; /usr/bin/id -u; /usr/bin/id -G"), 0);
    EXPECT_EQ(output_, "this\n65534\n65534\n");
    EXPECT_EQ(geteuid(), 0U);
  } else {
    EXPECT_EQ(run("echo $ONLY $HOME"), 0);
    EXPECT_EQ(output_, "this\n");
  }
}

TEST(Errors, CarryCodeTextAndPlace) {
  const CKyError error =
      FXErrorUtil::ErrorErrNo(5, FXSourceLocation::here(), "%s %d", std::string(3000, 'x').c_str(), 7);
  EXPECT_EQ(error.code(), 5);
  EXPECT_EQ(error.text(), std::string(3000, 'x') + " 7");
  EXPECT_EQ(error.function(), "TestBody");
  EXPECT_THAT(error.file(), HasSubstr("run_process_test.cpp"));
}

TEST(Paths, AreToldApart) {
  const orrery::test::TemporaryDirectory place;
  orrery::test::writeFile(place / "f", "");
  bool isFile = true;
  EXPECT_TRUE(FXPath::DoesPathExist(place.path(), isFile));
  EXPECT_FALSE(isFile);
  EXPECT_TRUE(FXPath::DoesPathExist(FXPath::Append(place.path(), "f"), isFile));
  EXPECT_TRUE(isFile);
  for (const std::string& gone : {place / "gone", std::string(), place / "f" + std::string("\0x", 2)}) {
    EXPECT_FALSE(FXPath::DoesPathExist(gone, isFile));
    EXPECT_FALSE(isFile);
  }
  EXPECT_EQ(FXString::Trim("\t a b\r\n"), "a b");
  EXPECT_EQ(FXString::Trim("\\a\\", "\\"), "a");
  EXPECT_EQ(FXString::Trim(" \n"), "");
  EXPECT_TRUE(FXString::EqualsIgnoreCase("--DataDir", "--datadir"));
  EXPECT_FALSE(FXString::EqualsIgnoreCase("--datadir", "--datadirs"));
}

}  // namespace
