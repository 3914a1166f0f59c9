// What the operations on accounts and roles make of odd names; the command's tests run what they capture on an empty
// server.

#include <algorithm>
#include <string>
#include <vector>

#include "integration/real_session.h"

namespace {

using Texts = std::vector<std::string>;

class Accounts : public orrery::test::ServerSuite<Accounts> {
 protected:
  static Texts usersOf(GetMySqlInfoExt& session) {
    Texts users;
    EXPECT_EQ(session.getUsers(users), 0) << session.strErrorString;
    return users;
  }
  static Texts grantsOf(GetMySqlInfoExt& session, const std::string& account) {
    Texts grants;
    EXPECT_EQ(session.getGrantQueries(account, grants), 0) << account << ": " << session.strErrorString;
    std::sort(grants.begin(), grants.end());
    return grants;
  }

  std::unique_ptr<GetMySqlInfoExt> session_ = librarySessionFor(propertiesOf(*server_));
};

TEST_F(Accounts, WithABackTickAreListedUnescapedAndTheirRequestsOnlyRead) {
  server_->execute("CREATE USER `a``b`@'%'; CREATE USER `agent``@``localhost`` #`@'%'; CREATE DATABASE kept");
  const Texts users = usersOf(*session_);
  EXPECT_THAT(users, testing::Contains("`a`b`@`%`"));
  EXPECT_THAT(users, testing::Contains("`agent`@`localhost` #`@`%`"));
  Texts grants;
  std::string statement = "before";
  EXPECT_EQ(session_->getGrantQueries("`a`b`@`%`", grants), -1);
  EXPECT_EQ(session_->getCreateUserQuery("`a`b`@`%`", statement), -1);
  EXPECT_EQ(session_->iErrorCode, 1064);
  EXPECT_TRUE(backend_.log().contains("[SHOW CREATE USER `a`b`@`%`] query execution failed Error: ["));
  EXPECT_THAT(grants, testing::IsEmpty());
  EXPECT_EQ(statement, "before");
  EXPECT_THAT(grantsOf(*session_, "`agent`@`localhost` #`@`%`"), grantsOf(*session_, "`agent`@`localhost`"))
      << "the answer is another account's, as the header says";
  EXPECT_EQ(session_->getGrantQueries("`agent`@`localhost`; DROP DATABASE kept", grants), -1);
  EXPECT_EQ(session_->iErrorCode, 1064) << "one statement per request";
  EXPECT_EQ(server_->execute("SHOW DATABASES LIKE 'kept'"), "kept\n");
  server_->execute("DROP USER `a``b`@'%', `agent``@``localhost`` #`@'%'");
}

TEST_F(Accounts, OfRolesAreListedWithAnEmptyHostThatNoOtherRequestTakes) {
  server_->execute("CREATE ROLE boss");
  EXPECT_THAT(usersOf(*session_), testing::Contains("`boss`@``"));
  std::string statement;
  Texts grants;
  EXPECT_EQ(session_->getCreateUserQuery("`boss`@``", statement), -1);
  EXPECT_EQ(session_->iErrorCode, 1133);
  EXPECT_EQ(session_->getGrantQueries("`boss`@``", grants), -1);
  EXPECT_EQ(session_->iErrorCode, 1141);
  EXPECT_THAT(grantsOf(*session_, "`boss`"), testing::ElementsAre("GRANT USAGE ON *.* TO `boss`"));
}

}  // namespace
