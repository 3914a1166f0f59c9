// A real server is stopped and started again.

#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "integration/real_session.h"
#include "support/children.h"
#include "support/program.h"

namespace {

using orrery::test::MariaDbSandbox;
using orrery::test::waitUntil;

using Control = orrery::test::RealSessionTest;

TEST_F(Control, BuiltInStopEndsTheServerAndAStartedOneSurvivesItsStarter) {
  const MariaDbSandbox server;
  const auto session = sessionFor(propertiesOf(server));
  ASSERT_EQ(session->StopServer(nullptr), 0) << session->strErrorString;
  ASSERT_TRUE(waitUntil([&] { return server.hasEnded(); }));
  EXPECT_EQ(session->StopServer(nullptr), 0) << "it is down already";
  EXPECT_TRUE(backend_.log().contains("already offline"));
  EXPECT_THAT(backend_.events(), testing::IsEmpty());

  // An agent of its own that starts the server and ends.
  EXPECT_EQ(orrery::test::inChild([&] { return session->StartServer(server.startCommand().c_str()); }), 0);
  EXPECT_TRUE(waitUntil([&] { return session->PingServer() == 0; }, std::chrono::seconds(60)));
  EXPECT_TRUE(orrery::test::hasNoChildren());
}

}  // namespace
