// A real server is stopped and started again.

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "integration/real_session.h"
#include "support/program.h"

namespace {

namespace property = orrery::platform::property;
using orrery::test::MariaDbSandbox;
using orrery::test::waitUntil;

class Control : public orrery::test::RealSessionTest {
 protected:
  MariaDbSandbox server_;
};

TEST_F(Control, BuiltInStopEndsTheServerAndAStartedOneSurvivesItsStarter) {
  const auto session = sessionFor(propertiesOf(server_));
  ASSERT_EQ(session->StopServer(nullptr), 0) << session->strErrorString;
  ASSERT_TRUE(waitUntil([&] { return server_.hasEnded(); }));
  EXPECT_EQ(session->StopServer(nullptr), 0) << "it is down already";
  EXPECT_TRUE(backend_.log().contains("already offline"));
  EXPECT_THAT(backend_.events(), testing::IsEmpty());

  // An agent of its own that starts the server and ends.
  const pid_t agent = fork();
  if (agent == 0) _exit(session->StartServer(server_.startCommand().c_str()) == 0 ? 0 : 1);
  int status = -1;
  ASSERT_EQ(waitpid(agent, &status, 0), agent);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(waitUntil([&] { return session->PingServer() == 0; }, std::chrono::seconds(60)));
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left to be reaped";
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(Control, BuiltInStopThatTheServerRefusesReachesTheJob) {
  server_.execute("CREATE USER 'guest'@'localhost' IDENTIFIED BY 'guest'");
  auto properties = propertiesOf(server_);
  properties[property::saUser] = "guest";
  properties[property::saPassword] = "sealed:guest";
  const auto session = sessionFor(properties);
  EXPECT_EQ(session->StopServer(nullptr), -1);
  ASSERT_THAT(backend_.events(), testing::SizeIs(1));
  EXPECT_THAT(backend_.events()[0].arguments[0],
              testing::AllOf(testing::StartsWith("Error ["), testing::HasSubstr("Access denied"),
                             testing::EndsWith("] while shutting down database server")));
  EXPECT_THAT(session->strErrorString, testing::HasSubstr("Access denied"));
}

}  // namespace
