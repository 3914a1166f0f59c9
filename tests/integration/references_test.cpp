// Foreign keys of a real server: as the creation statements say it, and as its catalogue has it.

#include <string>
#include <vector>

#include "integration/real_session.h"

namespace {

using Texts = std::vector<std::string>;

/// "parent's database.parent > child's database.child", a line for each.
Texts linesOf(const MySqlChildTables& children) {
  Texts lines;
  for (const auto& [db, tables] : children) {
    for (const auto& [table, list] : tables) {
      std::vector<IdxMetadata::MySqlChildTable> records;
      list.getlistobject(1, records);
      for (const auto& child : records) {
        lines.push_back(db + "." + table + " > " + child.getstring(2) + "." + child.getstring(1));
      }
    }
  }
  return lines;
}

std::string lineOf(const orrery::mysql::ForeignKey& key) {
  std::string line = key.name + " " + key.database + "." + key.table + "(";
  for (const std::string& column : key.columns) line += column + ",";
  line += ") > " + key.referencedDatabase + "." + key.referencedTable + "(";
  for (const std::string& column : key.referencedColumns) line += column + ",";
  return line + ") " + key.onUpdate + "/" + key.onDelete;
}

class References : public orrery::test::ServerSuite<References> {
 protected:
  ~References() override {
    for (const char* db : {"a", "b", "`odd ``db`"}) server_->execute(std::string("DROP DATABASE IF EXISTS ") + db);
  }
  Texts children() {
    MySqlChildTables found;
    EXPECT_EQ(session_->CollectChildTableData(found), 0) << session_->strErrorString;
    return linesOf(found);
  }
  Texts keys(GetMySqlInfoExt& session) {
    std::vector<orrery::mysql::ForeignKey> found;
    EXPECT_EQ(session.collectForeignKeys(found), 0) << session.strErrorString;
    Texts lines;
    for (const auto& key : found) lines.push_back(lineOf(key));
    return lines;
  }

  std::unique_ptr<GetMySqlInfoExt> session_ = librarySessionFor(propertiesOf(*server_));
};

constexpr const char* schema = R"sql(
  SET foreign_key_checks=0;
  CREATE DATABASE b; CREATE TABLE b.parent (id INT PRIMARY KEY) ENGINE=InnoDB;
  CREATE DATABASE a; USE a;
  CREATE TABLE parent (id INT PRIMARY KEY, x INT, y INT, UNIQUE (x, y)) ENGINE=InnoDB;
  CREATE TABLE other (id INT PRIMARY KEY) ENGINE=InnoDB;
  CREATE TABLE one (p INT, CONSTRAINT k FOREIGN KEY (p) REFERENCES parent (id)) ENGINE=InnoDB;
  CREATE TABLE two (p INT, q INT, CONSTRAINT k1 FOREIGN KEY (p) REFERENCES parent (id) ON DELETE CASCADE,
    CONSTRAINT k2 FOREIGN KEY (q) REFERENCES other (id) ON UPDATE SET NULL ON DELETE SET NULL) ENGINE=InnoDB;
  CREATE TABLE pair (u INT, v INT, CONSTRAINT kp FOREIGN KEY (v, u) REFERENCES parent (x, y)) ENGINE=InnoDB;
  CREATE TABLE far (p INT, CONSTRAINT kf FOREIGN KEY (p) REFERENCES b.parent (id)) ENGINE=InnoDB;
  CREATE TABLE self (id INT PRIMARY KEY, up INT, CONSTRAINT ks FOREIGN KEY (up) REFERENCES self (id)) ENGINE=InnoDB;
  CREATE TABLE mine (p INT, KEY (p), FOREIGN KEY (p) REFERENCES parent (id)) ENGINE=MyISAM
    COMMENT='FOREIGN KEY REFERENCES `parent` (id)';
  CREATE TABLE `we ird` (p INT, CONSTRAINT kw FOREIGN KEY (p) REFERENCES `o.ther` (id)) ENGINE=InnoDB;
  CREATE TABLE `o.ther` (id INT PRIMARY KEY) ENGINE=InnoDB;
  CREATE VIEW v AS SELECT * FROM one;
)sql";

TEST_F(References, ListOfATableOnlyTheFirstForeignKeyAndOfInnoDbAlone) {
  server_->execute(schema);
  EXPECT_THAT(children(), testing::ElementsAre(".her > a.we ird",  // kept: a dot in a name reads as a qualified one
                                               "a.parent > a.one", "a.parent > a.pair", "a.parent > a.two",
                                               "a.self > a.self", "b.parent > a.far"));
  EXPECT_TRUE(logged("->[a.far]"));
  EXPECT_TRUE(logged("references table=[b`.`parent]"));
}

TEST_F(References, OfTheCatalogueAreAllKeysWithTheirColumnsAndRules) {
  server_->execute(schema);
  EXPECT_THAT(keys(*session_), testing::ElementsAre("kf a.far(p,) > b.parent(id,) RESTRICT/RESTRICT",
                                                    "k a.one(p,) > a.parent(id,) RESTRICT/RESTRICT",
                                                    "kp a.pair(v,u,) > a.parent(x,y,) RESTRICT/RESTRICT",
                                                    "ks a.self(up,) > a.self(id,) RESTRICT/RESTRICT",
                                                    "k1 a.two(p,) > a.parent(id,) RESTRICT/CASCADE",
                                                    "k2 a.two(q,) > a.other(id,) SET NULL/SET NULL",
                                                    "kw a.we ird(p,) > a.o.ther(id,) RESTRICT/RESTRICT"));
  server_->execute("SET GLOBAL sql_mode='ANSI_QUOTES'");
  EXPECT_EQ(keys(*librarySessionFor(propertiesOf(*server_))).size(), 7U);
  server_->execute(
      "SET GLOBAL sql_mode=DEFAULT; CREATE USER poor@localhost IDENTIFIED BY 'x'; "
      "GRANT SELECT ON a.one TO poor@localhost");
  auto properties = propertiesOf(*server_);
  properties[orrery::platform::property::saUser] = "poor";
  properties[orrery::platform::property::saPassword] = "sealed:x";
  EXPECT_THAT(keys(*librarySessionFor(properties)), testing::ElementsAre("k a.one(p,) > a.parent(id,) /"))
      << "rules want more than the right to read";
}

TEST_F(References, KeptPerformanceSchemaIsReadBecauseTheNamePassedOverIsMisspelt) {
  EXPECT_THAT(children(), testing::IsEmpty());
  EXPECT_TRUE(logged("ignoring information_schema/performance_schema"));
  EXPECT_TRUE(backend_.log().contains("Table accounts create table =[CREATE TABLE `accounts`"));
}

TEST_F(References, NamesWithBackTicksAreDataOnTheWay) {
  server_->execute(
      "CREATE DATABASE `odd ``db`; CREATE TABLE `odd ``db`.`t``; DROP` (id INT PRIMARY KEY) ENGINE=InnoDB;"
      "CREATE TABLE `odd ``db`.c (p INT, FOREIGN KEY (p) REFERENCES `t``; DROP` (id)) ENGINE=InnoDB");
  EXPECT_THAT(children(), testing::ElementsAre("odd `db.t``; DROP > odd `db.c"))
      << "kept: the parent's name is the statement's text";
}

TEST_F(References, ATableThatGoesMeanwhileEndsTheSearchAndWhatWasFoundStays) {
  server_->execute(schema);
  session_->watchTables([&](const std::string& db, const std::string&, std::size_t) {
    if (db == "b") server_->execute("SET foreign_key_checks=0; DROP TABLE b.parent");
    return true;
  });
  MySqlChildTables found;
  EXPECT_EQ(session_->CollectChildTableData(found), -1);
  EXPECT_EQ(session_->iErrorCode, 1146) << session_->strErrorString;
  EXPECT_EQ(found.count("a"), 1U);
}

// The client library makes a lost connection again in silence, and table names are sent without their database.
TEST_F(References, AConnectionLostMeanwhileComesBackInTheSameDatabase) {
  server_->execute(schema);
  ASSERT_EQ(session_->runExeQuery("USE mysql"), 0);
  session_->watchTables([&](const std::string& db, const std::string&, std::size_t) {
    if (db == "a") killLastConnection(*server_);
    return true;
  });
  EXPECT_EQ(children().size(), 6U);
}

}  // namespace
