// What discovery reads out of what others wrote: outputs as hosts gave them, and texts that were made to confuse.

#include <algorithm>
#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "discovery/command_line.h"
#include "discovery/commands.h"
#include "discovery/option_file.h"
#include "discovery/process_list.h"
#include "discovery/sockets.h"
#include "discovery/version.h"

namespace orrery::mysql::discovery {
namespace {

using testing::ElementsAre;
using testing::Optional;

std::vector<std::string> pidsIn(const std::string& list) {
  std::vector<std::string> pids;
  for (const ListedProcess& process : serversIn(list)) pids.push_back(process.pid);
  return pids;
}

TEST(DiscoveryCommands, AreTheseTexts) {
  EXPECT_STREQ(
      listServersCommand,
      "ps -eo user,pid,command | grep -e mysqld -e mariadbd | awk '{n=split($3,a,\" --\"); print $1,$2,a[1]}'");
  EXPECT_EQ(findSocketCommand("42"),
            "ss -lnp | grep LISTEN | grep 42 | awk '/mysql(.*)?\\.sock/ && !/mysqlx(.*)?\\.sock/' | "
            "grep -oE '\\S*(mysql(.*)?\\.sock)'");
  EXPECT_EQ(findPortCommand("42"),
            "ssOut=$(ss -tlnp | grep LISTEN | grep 42); if [ -n \"$ssOut\" ]; then echo \"$ssOut\" | awk "
            "'BEGIN{x=65536}; {n=split($(NF-2),a,\":\")}; a[n]<x{x=a[n]}; END{print x}';fi");
  EXPECT_EQ(versionCommand("/opt/my sql/bin"), "\"/opt/my sql/bin/mysqld\" --version");
  EXPECT_EQ(versionCommand("/a\"$(x)`y`\\"), "\"/a\\\"\\$(x)\\`y\\`\\\\/mysqld\" --version");
}

TEST(ProcessList, ServersAreToldByTheLastPartOfTheirProgram) {
  const struct {
    const char* name;
    std::string list;
    std::vector<std::string> pids;
  } table[] = {
      {"debian", "mysql 700 /usr/sbin/mariadbd\nroot 24702 grep\nroot 24701 sh\n", {"700"}},
      {"without_a_folder", "mysql 24654 mariadbd", {"24654"}},
      {"safe", "root 1 /usr/bin/mysqld_safe\nmysql 2 /usr/sbin/mysqld", {"1", "2"}},
      {"long_account_is_a_number", "1000012 5 mysqld", {"5"}},
      {"script_is_sh", "root 9 /bin/sh", {}},
      {"others", "a 1 mysqld_exporter\na 2 /x/mysqld.sh\na 3 Mysqld\na 4 [mariadbd]\na 5 mysqld/", {}},
      {"backslash_and_tab_at_the_ends", "a 1 \\mysqld\\\na 2 \tmysqld", {"1", "2"}},
      {"blanks_around_a_line", "  a 1 mysqld \r\n\n \n", {"1"}},
      {"fields_missing_or_too_many", "a 1\na 2 mysqld x\na  3 mysqld\n4 mysqld", {}},
      {"id_is_no_number", "a 1;id mysqld\na $(id) mysqld\na -1 mysqld\na 12345678901 mysqld", {}},
      {"nothing", "", {}},
  };
  for (const auto& row : table) EXPECT_EQ(pidsIn(row.list), row.pids) << row.name;
}

std::string nulls(std::string text) {
  std::replace(text.begin(), text.end(), '|', '\0');
  return text;
}

TEST(ServerCommandLine, OptionsAreRead) {
  const struct {
    const char* name;
    std::string line;  // "|" stands for the null behind an argument
    std::string shown;
  } table[] = {
      {"every_option", "mysqld|--datadir=/d|--socket=/s|--defaults-file=/c|--basedir=/b|--port=1|", "/d||/b|/c|/s|1"},
      {"case_of_names_does_not_count", "mysqld|--DataDir=/d|--PORT=2|", "/d|||||2"},
      {"later_overwrites", "mysqld|--port=1|--port=2|", "|||||2"},
      {"emptied_later", "mysqld|--socket=/s|--socket=|", "|||||"},
      {"without_an_equals_sign_is_ignored", "mysqld|--port|3307|--socket|/s|", "|||||"},
      {"second_equals_sign_is_ignored", "mysqld|--datadir=/a=b|", "|||||"},
      {"single_dash_is_ignored", "mysqld|-P3307|-port=3|", "|||||"},
      {"no_null_at_the_end", "mysqld|--port=3307", "|||||3307"},
      {"value_is_trimmed", "mysqld|--port=\t3307\r|", "|||||3307"},
      {"blank_in_a_value_cuts_it", "mysqld|--datadir=/my data|", "/my|||||"},
      {"option_inside_a_value_counts", "mysqld|--init-connect=SET x --port=9|", "|||||9"},
      {"line_break_hides_the_rest", "mysqld|--port=1|--x=a\nb|--port=2|", "|||||1"},
      {"title_instead_of_arguments", "mysqld --port=5 (idle)", "|||||5"},
      {"bytes_that_are_no_text", "mysqld|--datadir=/\xff\xfe|", "/\xff\xfe|||||"},
      {"log_without_a_folder_is_in_the_data_directory", "mysqld|--datadir=/d|--log-bin=binlog|", "/d|/d||||"},
      {"log_before_the_data_directory_finds_none", "mysqld|--log-bin=binlog|--datadir=/d|", "/d|||||"},
      {"log_with_a_folder", "mysqld|--log-bin=/var/log/mysql/bin|", "|/var/log/mysql/||||"},
      {"underscore_is_another_option", "mysqld|--log_bin=/l/b|", "|||||"},
      {"empty", "", "|||||"},
      {"nulls_alone", "||||", "|||||"},
  };
  for (const auto& row : table) {
    const WorkingTexts texts = optionsIn(nulls(row.line));
    EXPECT_EQ(texts.dataDirectory + "|" + texts.logDirectory + "|" + texts.baseDirectory + "|" + texts.configFile +
                  "|" + texts.socket + "|" + texts.port,
              row.shown)
        << row.name;
  }
}

TEST(ServerCommandLine, LengthDoesNotMatter) {
  std::string line = nulls("mysqld|");
  for (int i = 0; i < 20000; ++i) line += nulls("--x=1|");
  EXPECT_GT(line.size(), 100000U);
  EXPECT_EQ(optionsIn(line + nulls("--port=7|")).port, "7");
  EXPECT_EQ(optionsIn(nulls("mysqld|--datadir=/") + std::string(200000, 'd')).dataDirectory.size(), 200001U);
}

TEST(ServerCommandLine, AsTheServerReadsIt) {
  const WorkingTexts given =
      optionsAsGiven(nulls("mysqld|--data_dir|--datadir|/my data|-P3307|-S|/s|--log_bin|--basedir=/a=b|--port"));
  EXPECT_EQ(given.dataDirectory, "/my data");
  EXPECT_EQ(given.port, "3307") << "the last option lacks its value";
  EXPECT_EQ(given.socket, "/s");
  EXPECT_EQ(given.baseDirectory, "/a=b");
  EXPECT_EQ(optionsAsGiven("").port, "");
}

TEST(FindParam, ValueEndsWhereItsQuotesOrABlankEndIt) {
  const struct {
    const char* name;
    const char* line;
    const char* option;
    std::optional<std::string> value;
  } table[] = {
      {"blank", "mysqld --port=3306 --x=1", "--port", "3306"},
      {"quoted_value", "mysqld --datadir=\"/my data\" --x", "--datadir", "/my data"},
      {"quoted_option", "mysqld \"--datadir=/my data\" --x", "--datadir", "/my data"},
      {"empty_value", "mysqld --port= --x=1", "--port", ""},
      {"option_missing", "mysqld --x=1", "--port", std::nullopt},
      {"equals_sign_missing", "mysqld --port 3306", "--port", std::nullopt},
      {"next_equals_sign_is_another_options", "mysqld --port 1 --x=2 ", "--port", "2"},
      {"not_closed_gives_the_rest_with_the_option", "mysqld --port=3306", "--port", "--port=3306"},
      {"quote_not_closed", "mysqld --datadir=\"/d --x=1", "--datadir", "--datadir=\"/d --x=1"},
      {"equals_sign_at_the_end", "mysqld --port=", "--port", "--port="},
      {"empty_option", "a=b c", "", "b"},
  };
  for (const auto& row : table) EXPECT_EQ(parameterIn(row.line, row.option), row.value) << row.name;
}

std::string shown(const ServerSection& section) {
  const auto text = [](const std::optional<std::string>& value) { return value.value_or("-"); };
  return text(section.dataDirectory) + " " + text(section.logDirectory) + " " + text(section.port);
}

TEST(OptionFile, SectionOfTheServer) {
  const struct {
    const char* name;
    const char* text;
    const char* shown;
  } table[] = {
      {"plain", "[mysqld]\ndatadir=/d\nlog-bin=/l/bin\nport=3307\n", "/d /l/ 3307"},
      {"blanks_quotes_and_line_ends", "  [mysqld]\r\n  DataDir = \"/my data\" \r\n\tport\t=\t3307", "/my data - 3307"},
      {"later_lines_overwrite", "[mysqld]\nport=1\nport=2\nlog-bin=/l/b\nlog-bin=b", "-  2"},
      {"section_may_come_again", "[mysqld]\nport=1\n[client]\nport=2\n[mysqld]\ndatadir=/d", "/d - 1"},
      {"other_sections_do_not_count",
       "port=0\n[client]\nport=1\n[mariadbd]\nport=2\n[server]\nport=3\n[mysqld-8.0]\nport=4", "- - -"},
      {"spelling_of_the_section_counts", "[MYSQLD]\nport=1\n[ mysqld ]\nport=2\n[mysqld]x\nport=3", "- - -"},
      {"comments", "[mysqld]\n#port=1\n;port=2\n port=3 # why", "- - 3 # why"},
      {"underscore_is_another_option", "[mysqld]\nlog_bin=/l/b", "- - -"},
      {"second_equals_sign_is_no_setting", "[mysqld]\ndatadir=/a=b\nport", "- - -"},
      {"log_folder_ends_at_the_later_of_both_slashes", "[mysqld]\nlog-bin=/l\\m/b", "- /l\\m/ -"},
      {"log_folder_ends_at_a_backslash", "[mysqld]\nlog-bin=C:\\l\\b", "- C:\\l\\ -"},
      {"log_without_a_folder_is_empty", "[mysqld]\ndatadir=/d\nlog-bin=b", "/d  -"},
      {"includes_are_not_followed", "!includedir /etc/mysql/conf.d/\n[client-server]\nsocket=/s", "- - -"},
      {"empty", "", "- - -"},
  };
  for (const auto& row : table) EXPECT_EQ(shown(readServerSection(row.text)), row.shown) << row.name;
}

TEST(OptionFile, WhatServersReadBesides) {
  const std::map<std::string, std::string> files{
      {"/c/a.cnf", "[mariadbd]\ndata_dir=/no\ndatadir='/a'\nport=1\n"},
      {"/c/b.cnf", "[mariadb-10.11]\nport=2\n[mariadb-client]\nport=3\n!include /c/loop.cnf\n"},
      {"/c/loop.cnf", "!include /c/loop.cnf\n[server]\nlog_bin = /l/b\n"}};
  const auto read = [&](const std::string& path, std::string& text) {
    if (files.count(path) != 0) text = files.at(path);
    return files.count(path) != 0;
  };
  const auto list = [](const std::string& folder) {
    EXPECT_EQ(folder, "/c");
    return std::vector<std::string>{"/c/a.cnf", "/c/b.cnf", "/c/gone.cnf"};
  };
  const OptionFileReader reader{read, list};
  const FurtherOptions found = readFurther("/my.cnf", "[mysqld]\nport=0\n!includedir /c\n[broken\n", reader);
  ASSERT_TRUE(found.dataDirectory && found.port && found.logBin);
  EXPECT_EQ(found.dataDirectory->text + " in " + found.dataDirectory->place, "/a in /c/a.cnf [mariadbd]");
  EXPECT_EQ(found.port->text + " in " + found.port->place, "2 in /c/b.cnf [mariadb-10.11]");
  EXPECT_EQ(found.logBin->place, "/c/loop.cnf [server]");
  EXPECT_FALSE(found.socket);
}

TEST(OptionFile, WhatIncludesItselfEnds) {
  int reads = 0;
  int listings = 0;
  const OptionFileReader reader{[&](const std::string& path, std::string& text) {
                                  ++reads;
                                  text = path == "/loop" ? "!includedir /many\n!include /loop\n" : "";
                                  return true;
                                },
                                [&](const std::string&) {
                                  ++listings;
                                  return std::vector<std::string>(listings == 1 ? 10000 : 3, "/a.cnf");
                                }};
  std::string folders;
  for (int i = 0; i < 30000; ++i) folders += "!includedir /many\n";
  EXPECT_TRUE(readFurther("/my.cnf", folders, reader).isCutShort);
  EXPECT_EQ(reads, 200);
  EXPECT_EQ(listings, 1);
  EXPECT_TRUE(readFurther("/my.cnf", folders, reader).isCutShort);
  EXPECT_EQ(reads, 260);
  EXPECT_EQ(listings, 21);
  EXPECT_TRUE(readFurther("/my.cnf", "!include /loop\n", reader).isCutShort);
  EXPECT_FALSE(readFurther("/my.cnf", "!include /once\n[mysqld]\nport=1\n", reader).isCutShort);
  const OptionFileReader large{[&](const std::string&, std::string& text) {
                                 ++reads;
                                 text.assign(1000000, '#');
                                 return true;
                               },
                               [](const std::string&) { return std::vector<std::string>(100, "/a.cnf"); }};
  reads = 0;
  EXPECT_TRUE(readFurther("/my.cnf", "!includedir /large\n", large).isCutShort);
  EXPECT_EQ(reads, 9);
}

TEST(MountList, TheLastThatIsMountedAtTheRootCounts) {
  EXPECT_EQ(rootMountIn("22 1 8:1 / / rw - ext4 /dev/sda1 rw\n23 22 0:5 / /proc rw - proc proc rw\n"), "8:1 /");
  EXPECT_EQ(rootMountIn("1 1 0:2 / / rw - rootfs x rw\n22 1 0:30 /@ / rw - btrfs x rw"), "0:30 /@");
  EXPECT_EQ(rootMountIn("x\n1 2 3 4 /x"), "");
}

TEST(Version, FromWhatTheProgramsSay) {
  const struct {
    const char* output;
    std::optional<std::string> version;
    VersionVerdict verdict;
  } table[] = {
      {"mysqld  Ver 10.11.19-MariaDB-0+deb12u1 for debian-linux-gnu on x86_64 (Debian 12)\n",
       "10.11.19-MariaDB-0+deb12u1", VersionVerdict::supported},
      {"/opt/mysqld  Ver 9.7.4-2 for Linux on x86_64 ((Debian))", "9.7.4-2", VersionVerdict::supported},
      {"mysqld  Ver 8.0.26 for Linux", "8.0.26", VersionVerdict::supported},
      {"mysqld  Ver 10.5.12-MariaDB", "10.5.12-MariaDB", VersionVerdict::supported},
      {"mysqld  Ver 5.2.0 x", "5.2.0", VersionVerdict::supported},
      {"mysqld  Ver 5.1.73 for Linux", "5.1.73", VersionVerdict::tooOld},
      {"mysqld  Ver 4.9 x", "4.9", VersionVerdict::tooOld},
      {"x Ver 8 y", "8", VersionVerdict::improper},
      {"x Ver", "", VersionVerdict::improper},
      {"x Ver a.b", "a.b", VersionVerdict::tooOld},
      {"x Ver 99999999999999999999.0", "99999999999999999999.0", VersionVerdict::supported},
      {"mysql from 11.8.6-MariaDB, client 15.2", std::nullopt, VersionVerdict::improper},
      {"xVer 8.0", std::nullopt, VersionVerdict::improper},
  };
  for (const auto& row : table) {
    const auto version = versionIn(row.output);
    EXPECT_EQ(version, row.version) << row.output;
    if (version) {
      EXPECT_EQ(verdictOn(*version), row.verdict) << row.output;
    }
  }
}

TEST(SocketTables, HoldWhatListens) {
  SocketTable table;
  addUnixSockets(
      "Num       RefCount Protocol Flags    Type St Inode Path\n"
      "00000000c62ec8a7: 00000003 00000000 00000000 0001 03  1142 /not/listening\n"
      "0000000097a465e7: 00000002 00000000 00010000 0001 01 4848655 /tmp/db/with blank.sock\n"
      "0000000097a465e7: 00000002 00000000 00010000 0001 01 77\n"
      "broken\n",
      table);
  addTcpSockets(
      "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
      "   0: 0100007F:59EE 00000000:0000 0A 00000000:00000000 00:00000000 00000000   999        0 4848654 1\n"
      "   1: 0100007F:07E8 00000000:0000 01 00000000:00000000 00:00000000 00000000   999        0 4848653 1\n"
      "   2: 00000000000000000000000000000000:0CEA 00000000000000000000000000000000:0000 0A 00000000:00000000 "
      "00:00000000 00000000   999        0 4848656 1\n",
      table);
  const ListeningSockets found = listeningAmong(table, {1142, 4848653, 4848654, 4848655, 4848656});
  EXPECT_THAT(found.paths, ElementsAre("/tmp/db/with blank.sock"));
  EXPECT_THAT(found.ports, ElementsAre(3306, 23022));
  EXPECT_EQ(socketInode("socket:[4848655]"), 4848655U);
  for (const char* link : {"", "socket:[", "socket:[x]", "pipe:[1]", "socket:[1"}) EXPECT_EQ(socketInode(link), 0U);
}

}  // namespace
}  // namespace orrery::mysql::discovery
