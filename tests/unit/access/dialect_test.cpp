#include "access/dialect.h"

#include <string>

#include "support/backend_test.h"
#include "support/temporary_directory.h"

namespace orrery::test {
namespace {

using orrery::mysql::Dialect;

class DialectTest : public BackendTest {
 protected:
  bool learn(const std::string& statement, int errorNumber) {
    return dialect_.learn({bin_.path(), "mysql", statement, false, errorNumber, ""}, EvEvent(), "tag");
  }

  TemporaryDirectory bin_;
  Dialect dialect_;
};

TEST_F(DialectTest, SendsTheKnownTextFirstAndItsSuccessorOnlyAfterAParseError) {
  const struct {
    const char* known;
    const char* successor;
  } table[] = {
      {"START SLAVE", "START REPLICA"},
      {"STOP SLAVE", "STOP REPLICA"},
      {"RESET MASTER", "RESET BINARY LOGS AND GTIDS"},
      {"use 'shop'", "use `shop`"},
  };
  for (const auto& row : table) {
    EXPECT_EQ(dialect_.statement(row.known), row.known);
    EXPECT_FALSE(learn(row.known, 1227)) << "a refused privilege is no unknown text";
    EXPECT_TRUE(learn(row.known, 1064));
    EXPECT_EQ(backend_.log().texts().back(),
              std::string("[") + row.known + "] is not known here, using [" + row.successor + "] from now on");
    EXPECT_EQ(dialect_.statement(row.known), row.successor);
    EXPECT_FALSE(learn(row.known, 1064)) << "learned twice, it would be tried without end";
  }
  EXPECT_EQ(dialect_.statement("use 'other'"), "use `other`") << "one rejected use tells of all";
  EXPECT_FALSE(learn("DROP DATABASE `x`", 1064)) << "a statement without a successor";
  EXPECT_FALSE(learn("use 'a;b'", 1064)) << "the successor was in use already";
}

TEST_F(DialectTest, ATextInDoubleQuotesIsReplacedOnceItCountsAsAColumn) {
  const std::string known = "SELECT  TABLE_SCHEMA ,TABLE_NAME ,ENGINE FROM TABLES WHERE TABLE_TYPE=\"BASE TABLE\"";
  EXPECT_FALSE(learn(known, 1064));
  EXPECT_FALSE(learn("START SLAVE", 1054));
  EXPECT_EQ(dialect_.statement(known), known);
  EXPECT_TRUE(learn(known, 1054));
  EXPECT_EQ(dialect_.statement(known), known.substr(0, known.size() - 12) + "'BASE TABLE'");
  EXPECT_FALSE(learn(known, 1054));
}

TEST_F(DialectTest, VerticalListingsAreAskedForByAnOptionOnceTheirCommandIsUnknown) {
  const std::string text = "SHOW SLAVE STATUS\\G";
  EXPECT_EQ(dialect_.statement(text) + dialect_.layoutOption(text), text);
  EXPECT_TRUE(dialect_.learn({bin_.path(), "mysql", text, false, 0, "ERROR at line 1: Unknown command '\\G'.\n"},
                             EvEvent(), "tag"));
  EXPECT_EQ(dialect_.statement(text) + dialect_.layoutOption(text), "SHOW SLAVE STATUS --vertical");
  EXPECT_TRUE(learn(text, 1064)) << "the server may know it no more than the client";
  EXPECT_EQ(dialect_.statement(text), "SHOW REPLICA STATUS");
  EXPECT_FALSE(learn(text, 1064));
  EXPECT_EQ(dialect_.layoutOption("SHOW DATABASES"), "");

  Dialect known;
  EXPECT_TRUE(known.learn({bin_.path(), "mysql", text, false, 1064, ""}, EvEvent(), "tag"));
  EXPECT_EQ(known.statement(text) + known.layoutOption(text), "SHOW REPLICA STATUS\\G") << "a client of before";
  EXPECT_EQ(known.statement("SHOW SLAVE STATUS"), "SHOW REPLICA STATUS");
}

TEST_F(DialectTest, AnOddNameTellsNothingOfOtherNames) {
  EXPECT_TRUE(learn("use 'a;b'", 1064)) << "worth another try, for this name";
  EXPECT_EQ(dialect_.statement("use 'a;b'"), "use `a;b`");
  EXPECT_EQ(dialect_.statement("use 'shop'"), "use 'shop'");
}

TEST_F(DialectTest, TakesTheSuccessorOfAProgramOnlyWhereTheProgramIsMissing) {
  EXPECT_FALSE(learn("x", 0)) << "neither is there";
  writeFile(bin_ / "mariadb", "", 0755);
  EXPECT_EQ(dialect_.program("mysql"), "mysql");
  EXPECT_TRUE(learn("x", 0));
  EXPECT_EQ(dialect_.program("mysql"), "mariadb");
  EXPECT_EQ(dialect_.program("mysqladmin"), "mysqladmin");

  Dialect fresh;
  writeFile(bin_ / "mysql", "", 0755);
  EXPECT_FALSE(fresh.learn({bin_.path(), "mysql", "x", false, 0, ""}, EvEvent(), "tag")) << "the known one is there";
}

TEST_F(DialectTest, TakesTheSuccessorOfTheTlsOptionWhereAClientRejectsIt) {
  const std::string rejection = "mysql: [ERROR] unknown option '--ssl'.";
  EXPECT_EQ(dialect_.tlsOption(), " --ssl");
  EXPECT_FALSE(dialect_.learn({bin_.path(), "mysql", "x", false, 0, rejection}, EvEvent(), "tag")) << "not asked for";
  EXPECT_FALSE(dialect_.learn({bin_.path(), "mysql", "x", true, 2026, "TLS error"}, EvEvent(), "tag"));
  EXPECT_TRUE(dialect_.learn({bin_.path(), "mysql", "x", true, 0, rejection}, EvEvent(), "tag"));
  EXPECT_EQ(dialect_.tlsOption(), " --ssl-mode=REQUIRED");
}

}  // namespace
}  // namespace orrery::test
