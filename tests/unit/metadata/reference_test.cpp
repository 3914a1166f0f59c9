#include "metadata/reference.h"

#include <gtest/gtest.h>

namespace {

using orrery::mysql::metadata::findReference;
using orrery::mysql::metadata::Found;
using orrery::mysql::metadata::parentOf;

TEST(Reference, IsFoundByItsWords) {
  const struct {
    const char* statement;
    Found found;
    const char* name;
  } table[] = {
      {"FOREIGN KEY (`p`) REFERENCES `q` (`i`) ENGINE=MyISAM", Found::otherEngine, ""},
      {"ENGINE=InnoDB", Found::noForeignKey, ""},
      {"REFERENCES `q` (`i`) ENGINE=InnoDB", Found::noForeignKey, ""},
      {"REFERENCES `q` FOREIGN KEY (p) ENGINE=InnoDB", Found::noReferences, ""},
      {"FOREIGN KEY (`p`) REFERENCES q ENGINE=InnoDB", Found::noName, ""},
      {"FOREIGN KEY (`p`) REFERENCES `q` (`i`), FOREIGN KEY (`x`) REFERENCES `y` (`i`) ENGINE=InnoDB", Found::name,
       "q"},
      {"FOREIGN KEY (`p`) REFERENCES `d`.`q` (`i`) ENGINE=InnoDB", Found::name, "d`.`q"},
      {"FOREIGN KEY (`p`) REFERENCES `we ird` (`a (b`) ENGINE=InnoDB", Found::name, "we ird"},
      // Kept: without a "(" the rest is the name; one in the name cuts it short, or leaves nothing.
      {"ENGINE=InnoDB FOREIGN KEY REFERENCES `q`", Found::name, "q`"},
      {"FOREIGN KEY (`p`) REFERENCES `abc(d` (`i`) ENGINE=InnoDB", Found::name, "a"},
      {"FOREIGN KEY (`p`) REFERENCES `(d` (`i`) ENGINE=InnoDB", Found::noName, ""},
      {"FOREIGN KEY (`p`) REFERENCES `a(d` (`i`) ENGINE=InnoDB", Found::noName, ""},
      {"FOREIGN KEY REFERENCES ` ENGINE=InnoDB", Found::name, " ENGINE=InnoDB"},
  };
  for (const auto& row : table) {
    std::string_view name = "before";
    EXPECT_EQ(findReference(row.statement, name), row.found) << row.statement;
    EXPECT_EQ(name, row.name) << row.statement;
  }
}

TEST(Reference, IsFiledUnderTheDatabaseThatItNames) {
  const struct {
    const char *name, *database, *table;
  } table[] = {{"q", "own", "q"}, {"d`.`q", "d", "q"}, {".", "", ""}, {"a.b", "", ""}, {"", "own", ""}};
  for (const auto& row : table) {
    const auto parent = parentOf(row.name, "own");
    EXPECT_EQ(parent.database + "|" + parent.table, std::string(row.database) + "|" + row.table) << row.name;
  }
}

}  // namespace
