// Accounts and roles of a real server.

#include <algorithm>
#include <string>
#include <vector>

#include "integration/real_session.h"

namespace {

using orrery::test::MariaDbSandbox;
using Texts = std::vector<std::string>;

class Accounts : public orrery::test::ServerSuite<Accounts> {
 public:
  static MariaDbSandbox::Options options() { return {}; }

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
  /// Everything that the operations give, in the order that their header asks for.
  static Texts capture(GetMySqlInfoExt& session) {
    Texts roles;
    EXPECT_EQ(session.getRoles(roles), 0) << session.strErrorString;
    Texts statements;
    for (const std::string& role : roles) {
      if (role != "`PUBLIC`") statements.push_back("CREATE ROLE " + role);
    }
    for (const std::string& role : roles) EXPECT_EQ(session.getGrantQueries(role, statements), 0) << role;
    Texts users = usersOf(session);
    const auto isRole = [](const std::string& user) { return user.substr(user.size() - 3) == "@``"; };
    users.erase(std::remove_if(users.begin(), users.end(), isRole), users.end());
    for (const std::string& user : users) {
      EXPECT_EQ(session.getCreateUserQuery(user, statements.emplace_back()), 0) << session.strErrorString;
    }
    for (const std::string& user : users) EXPECT_EQ(session.getGrantQueries(user, statements), 0) << user;
    return statements;
  }

  std::unique_ptr<GetMySqlInfoExt> session_ = librarySessionFor(propertiesOf(*server_));
};

TEST_F(Accounts, RunOnAnEmptyServerMakeAccountsAndRolesAsTheyWere) {
  server_->execute(R"sql(
    CREATE DATABASE shop; CREATE TABLE shop.t (a INT, b INT);
    CREATE ROLE reader; CREATE ROLE writer WITH ADMIN reader; CREATE ROLE `odd ``role`; CREATE ROLE nested;
    GRANT SELECT ON shop.* TO reader; GRANT INSERT (a), UPDATE ON shop.t TO writer;
    GRANT nested TO reader; GRANT SELECT ON mysql.proc TO nested; GRANT SELECT ON shop.t TO PUBLIC;
    CREATE USER plain@'%' IDENTIFIED BY 'it''s "secret"';
    CREATE USER 'it''s'@'10.%'; CREATE USER ''@'host.example'; CREATE USER `café`@'::1';
    CREATE USER locked@'%' IDENTIFIED BY 'x' REQUIRE SSL WITH MAX_QUERIES_PER_HOUR 7 ACCOUNT LOCK;
    GRANT reader TO plain@'%'; GRANT writer TO plain@'%' WITH ADMIN OPTION; SET DEFAULT ROLE reader FOR plain@'%';
    GRANT ALL ON shop.* TO 'it''s'@'10.%' WITH GRANT OPTION; GRANT `odd ``role` TO ''@'host.example';
    CREATE USER near1@localhost; CREATE USER near2@'127.0.0.1')sql");
  const Texts captured = capture(*session_);
  for (const std::string& statement : captured) {
    EXPECT_EQ(statement.find("near"), std::string::npos) << "kept: accounts of localhost and 127.0.0.1 are left out";
  }

  MariaDbSandbox empty;
  std::string script = "SET character_set_client=utf8mb4;\nCREATE DATABASE shop; CREATE TABLE shop.t (a INT, b INT);\n";
  for (const std::string& statement : captured) script += statement + ";\n";
  empty.execute(script);
  auto copy = librarySessionFor(propertiesOf(empty));
  Texts recaptured = capture(*copy);
  EXPECT_THAT(recaptured, testing::UnorderedElementsAreArray(captured));
  EXPECT_THAT(recaptured, testing::Contains("SET DEFAULT ROLE `reader` FOR `plain`@`%`"));
  EXPECT_THAT(recaptured, testing::Contains("GRANT `writer` TO `plain`@`%` WITH ADMIN OPTION"));
  EXPECT_THAT(recaptured, testing::Contains("GRANT `writer` TO `reader` WITH ADMIN OPTION"));
}

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

TEST_F(Accounts, AreNotThereWithoutRightsAndThatIsTold) {
  server_->execute("CREATE USER poor@localhost IDENTIFIED BY 'x'");
  auto properties = propertiesOf(*server_);
  properties[orrery::platform::property::saUser] = "poor";
  properties[orrery::platform::property::saPassword] = "sealed:x";
  auto poor = librarySessionFor(properties);
  Texts texts;
  EXPECT_EQ(poor->getUsers(texts), -1);
  EXPECT_EQ(poor->iErrorCode, 1142) << poor->strErrorString;
  EXPECT_EQ(poor->getRoles(texts), -1);
  EXPECT_EQ(poor->setIdentifiedWithAsHex("ON"), -1);
  EXPECT_EQ(poor->iErrorCode, 1193) << "a switch of another family";
  EXPECT_THAT(texts, testing::IsEmpty());
}

}  // namespace
