// What a backup protects, and what it tells and changes on the way there, in a table of situations.

#include <cctype>
#include <functional>
#include <list>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/DZJobClient.h"
#include "orrery/platform/testing/test_backend.h"

namespace {

using orrery::mysql::DatabasePlan;
using orrery::platform::ContentEntry;
using orrery::platform::Id;
using orrery::platform::Status;
using orrery::platform::testing::TestBackend;
using Names = std::list<std::string>;

/// A session with a server that the tests play: sizes are as long as the names, odd ones cannot be asked for.
class PlayedSession : public GetMySqlInfo {
 public:
  int FetchDBList(Names& databases) override {
    if (listFails) return -1;
    databases.insert(databases.end(), server.begin(), server.end());
    return 0;
  }
  int getDBProps(std::string db, std::string& created, unsigned long long& size) override {
    asked.push_back(db);
    if (asked.size() == quitAfter) quit();
    if (db == "odd") return -1;
    created = db == "empty" ? "0" : "02026-02-03 04:05:06";  // decimal, whatever it begins with
    size = db.size();
    return 0;
  }

  Names server;
  Names asked;
  bool listFails = false;
  std::size_t quitAfter = 0;
  std::function<void()> quit;
};

class World {
 public:
  explicit World(bool isCloud) {
    auto& inventory = *backend.services()->inventory;
    Id client = 0;
    check(inventory.putClient(isCloud ? "cloud" : "plain", isCloud ? 1 : 0, client));
    const Id instance = backend.addInstance(client, "db1", {});
    defaultSubclient = backend.defaultSubclient(instance);
    orrery::platform::SubclientRecord record;
    check(inventory.findSubclient(defaultSubclient, record));
    check(inventory.addSubclient(record.backupSetId, "other", otherSubclient));
    long long jobId = 0;
    check(backend.services()->jobs->start({}, jobId));
    EXPECT_TRUE(job.init("", jobId, 0, 0, 0, nullptr));
    EXPECT_EQ(control.Init2(jobId, "", 0, 0, "", 0), 1);
    session.ulClientId = client;
    session.IsCloudDBInstance(1UL << 40);  // the process remembers the last client, which may be an earlier world's
    session.iDbAutoDiscovery = 1;
    session.quit = [this, jobId] { check(backend.services()->jobs->requestQuit(jobId)); };
  }
  static void check(const Status& status) { EXPECT_TRUE(status.ok()) << status.text; }

  /// Adds to a subclient's content; a "+" before a name: by discovery.
  void put(Id subclient, const Names& names) {
    std::vector<ContentEntry> content;
    for (const std::string& name : names) {
      const bool isDiscovered = name[0] == '+';
      content.push_back({120, name.substr(isDiscovered ? 1 : 0), 0, 0, isDiscovered});
    }
    content.push_back({7, "/a file", 0, 0, false});  // content of another type is none of ours
    check(backend.services()->inventory->putContent(subclient, content));
  }
  std::string contentOf(Id subclient) {
    std::vector<ContentEntry> content;
    check(backend.services()->inventory->listContent(subclient, content));
    std::ostringstream text;
    for (const auto& entry : content) {
      if (entry.type != 120) continue;
      text << (entry.autoDiscovered ? "+" : "") << entry.name;
      if (entry.created != 0 || entry.size != 0) text << "(" << entry.size << "," << entry.created << ")";
      text << " ";
    }
    return text.str();
  }
  /// All that the management server was told.
  std::string told() {
    std::ostringstream text;
    const auto write = [&](std::uint32_t code, const std::vector<std::string>& arguments) {
      text << " " << std::hex << code << std::dec;
      for (const auto& argument : arguments) text << "|" << argument;
      text << " ";
    };
    for (const auto& event : backend.events()) {
      text << "event" << static_cast<int>(event.severity);
      write(event.code, event.arguments);
    }
    std::vector<orrery::platform::PendingCause> causes;
    check(backend.services()->jobs->listCauses(job.getJobId(), causes));
    for (const auto& cause : causes) {
      text << "cause" << cause.messageType;
      write(cause.code, cause.arguments);
    }
    orrery::platform::JobRecord record;
    check(backend.services()->jobs->find(job.getJobId(), record));
    if (record.failedFiles != 0) text << "failed=" << record.failedFiles << " ";
    return text.str();
  }

  TestBackend backend;
  orrery::platform::ScopedServices installed{backend.services()};
  Id defaultSubclient = 0;
  Id otherSubclient = 0;
  DZBkpJobClient job;
  DZJobCtrlClient control{0};
  PlayedSession session;
};

std::string joined(const Names& names) {
  std::string text;
  for (const std::string& name : names) text += name + " ";
  return text;
}

struct Situation {
  const char* name;
  /// Names after "server", "own" and "other" (content); "second": of the other subclient; "cloud"; "kind2".
  const char* before;
  /// What comes of it, as the test writes it.
  const char* after;
  std::function<void(World&)> arrange = {};
  const char* lastLine = nullptr;  // of the log; null: whatever it is

  bool has(const std::string& word) const {
    return (" " + std::string(before) + " ").find(" " + word + " ") != std::string::npos;
  }
  Names namesAfter(const std::string& list) const {
    std::istringstream words(before);
    Names names;
    std::string current;
    for (std::string word; words >> word;) {
      if (std::isalpha(static_cast<unsigned char>(word[0])) != 0) {
        current = word;
      } else if (current == list) {
        names.push_back(word);
      }
    }
    return names;
  }
};

Status refusal() {
  return Status::failure("no");
}
std::function<void(World&)> failing(const char* call) {
  return [call](World& world) { world.backend.failures().failAlways(call, refusal()); };
}
std::function<void(World&)> quittingAfter(std::size_t sizes) {
  return [sizes](World& world) { world.session.quitAfter = sizes; };
}

const Situation situations[] = {
    {"nothing_anywhere", "", ""},
    {"new_databases_go_into_the_default_subclient_sorted", "server /shop /empty /mine own /mine",
     "valid /mine /empty /shop new /empty /shop sizes /empty=5 /shop=4 content +/empty(5,0) /mine +/shop(4,2026) "},
    {"a_new_database_whose_size_cannot_be_read_is_taken_all_the_same", "server /odd",
     "valid /odd new /odd sizes /odd=0 content +/odd "},
    {"what_another_subclient_has_is_not_new", "server /a /b other /a",
     "valid /b new /b sizes /b=1 content +/b(1,2026) "},
    {"other_subclients_discover_nothing", "second server /a /b own /a", "valid /a content /a "},
    {"discovery_that_is_off_discovers_nothing", "server /a /b own /a", "valid /a content /a ",
     [](World& world) { world.session.iDbAutoDiscovery = 2; }},  // only 1 is on
    {"vanished_ones_are_removed_and_missing_ones_reported", "server /kept own +/gone1 /gone2 +/gone3 /gone4 /kept",
     "valid /kept content /gone2 /gone4 /kept "
     "told event0 57000020|/gone1,/gone3|default event6 5700001c|/gone2,/gone4|MySQL failed=2 "},
    {"kind_2_reports_no_missing_ones", "kind2 server /kept own +/gone1 /gone2 /kept",
     "valid /kept content /gone2 /kept told event0 57000020|/gone1|default "},
    {"what_only_another_subclient_misses_is_not_ours", "server /kept own /kept other /gone +/too",
     "valid /kept content /kept "},
    {"an_entry_that_occurs_twice_is_handled_twice", "own /gone +/lost other /gone +/lost /both",
     "content /gone told event0 57000020|/lost,/lost|default event6 5700001c|/gone,/gone|MySQL failed=2 "},
    {"flags_of_one_name_may_differ", "own /gone other +/gone",
     "told event0 57000020|/gone|default event6 5700001c|/gone|MySQL failed=1 "},
    {"a_cloud_clients_backslash_names_are_known_and_stay_as_they_are",
     "cloud server /shop /more own \\lost \\shop other \\more", "valid \\lost \\shop content \\lost \\shop "},
    {"elsewhere_a_backslash_name_is_another_name", "server /shop own \\shop",
     "valid /shop new /shop sizes /shop=4 content +/shop(4,2026) \\shop told event6 5700001c|\\shop|MySQL failed=1 "},
    {"the_quit_flag_stops_the_scan_and_sends_nothing", "server /a /b /c own +/gone",
     "rc=1 new /a /b /c sizes /a=1 /b=1 content +/gone ", quittingAfter(2),
     "jobControl QuitFlag is ON - quitting scan"},
    {"the_quit_flag_after_the_last_one_counts", "server /a", "rc=1 new /a sizes /a=1 ", quittingAfter(1)},
    {"the_servers_list_fails", "server /a own /gone", "rc=-1 content /gone told cause300 57000034 ",
     [](World& world) { world.session.listFails = true; }, "getDBsFromMySql failed "},
    {"the_subclients_cannot_be_listed", "server /a own /gone", "rc=-1 content /gone told cause300 57000035 ",
     failing("Inventory::listSubclients"), "getDBsFromArbiter failed "},
    {"a_subclient_whose_content_cannot_be_read_is_passed_over", "server /a /b own /a other /b",
     "valid /a /b new /b sizes /b=1 content /a +/b(1,2026) ",
     [](World& world) {
       world.backend.failures().failWhen("Inventory::listContent", std::to_string(world.otherSubclient), refusal());
     }},
    {"new_content_cannot_be_written", "server /a own /gone", "rc=-1 new /a sizes /a=1 content /gone ",
     failing("Inventory::putContent"), "Sending new database properties failed... "},
    {"the_event_is_raised_and_the_job_goes_on_even_when_the_removal_fails", "server /a own /a +/gone",
     "valid /a content /a +/gone told event0 57000020|/gone|default ", failing("Inventory::removeContent")},
    {"a_report_that_fails_stops_nothing", "server /a own /a /gone",
     "valid /a content /a /gone told event6 5700001c|/gone|MySQL ", failing("JobManager::addCounters"),
     " Failed to notify the jobmanager about the failure files"},
};

class Reconciliation : public testing::TestWithParam<Situation> {};

INSTANTIATE_TEST_SUITE_P(Situations, Reconciliation, testing::ValuesIn(situations),
                         [](const auto& param) { return std::string(param.param.name); });

TEST_P(Reconciliation, DoesTellsAndPlansTheSame) {
  const Situation& situation = GetParam();
  World world(situation.has("cloud"));
  const bool isDefault = !situation.has("second");
  const Id subclient = isDefault ? world.defaultSubclient : world.otherSubclient;
  world.put(subclient, situation.namesAfter("own"));
  world.put(isDefault ? world.otherSubclient : world.defaultSubclient, situation.namesAfter("other"));
  world.session.server = situation.namesAfter("server");
  if (situation.arrange) situation.arrange(world);
  ApplicationId application(0, subclient);

  const std::string before = world.contentOf(subclient);
  DatabasePlan plan;
  plan.valid = {"before"};
  const int planned = world.session.planDatabasesForBackup(&application, plan);
  EXPECT_EQ(world.contentOf(subclient), before) << "a plan changes nothing";
  EXPECT_EQ(world.told(), "") << "and tells nothing";
  EXPECT_EQ(joined(world.session.asked), "") << "and asks for no sizes";

  Names valid, fresh, sizes;
  std::map<std::string, unsigned long long> bytes;
  int reserved = 9;
  const int rc = world.session.getValidDatabasesListForBackup(&application, valid, reserved, &world.control, &world.job,
                                                              fresh, bytes, situation.has("kind2") ? 2 : 1);
  for (const auto& [name, size] : bytes) sizes.push_back(name + "=" + std::to_string(size));
  std::string outcome = rc == 0 ? "" : "rc=" + std::to_string(rc) + " ";
  const auto add = [&outcome](const char* what, const std::string& text) {
    if (!text.empty()) outcome += std::string(what) + " " + text;
  };
  add("valid", joined(valid));
  add("new", joined(fresh));
  add("sizes", joined(sizes));
  add("content", world.contentOf(subclient));
  add("told", world.told());
  EXPECT_EQ(outcome, situation.after);
  if (situation.lastLine != nullptr) {
    EXPECT_EQ(world.backend.log().texts().back(), situation.lastLine);
    EXPECT_EQ(world.backend.log().entries().back().level, 0);
  }

  if (planned != 0) {
    EXPECT_EQ(joined(plan.valid), "before ");
    EXPECT_EQ(rc, -1);
  } else if (rc == 0) {
    EXPECT_EQ(plan.valid, valid);
    EXPECT_EQ(plan.discovered, fresh);
    EXPECT_EQ(plan.server, world.session.server);
  }
}

Names levelled(World& world, const char* tag) {
  Names lines;
  for (const auto& line : world.backend.log().entries()) {
    if (line.tag == tag) lines.push_back(std::to_string(line.level) + ":" + line.text);
  }
  return lines;
}

TEST(ReconciliationLog, TellsEveryStepInItsOrderAndTheResultsAreAppended) {
  World world(false);
  world.put(world.defaultSubclient, {"+/a gone", "/b gone", "+/c gone", "/kept"});
  world.session.server = {"/odd", "/kept"};
  world.backend.failures().failAlways("Inventory::removeContent", refusal());
  ApplicationId application(0, world.defaultSubclient);
  Names valid{"before"}, fresh{"before"};
  std::map<std::string, unsigned long long> sizes{{"/odd", 99}};
  int reserved = 0;
  world.backend.log().clear();
  ASSERT_EQ(
      world.session.getValidDatabasesListForBackup(&application, valid, reserved, nullptr, nullptr, fresh, sizes, 1),
      0);
  EXPECT_EQ(joined(valid), "before /kept /odd ");
  EXPECT_EQ(joined(fresh), "before /odd ");
  EXPECT_THAT(sizes, testing::ElementsAre(testing::Pair("/odd", 99))) << "one that is known stays";
  EXPECT_THAT(
      levelled(world, "GetMySqlInfo::getValidDatabasesListForBackup"),
      testing::ElementsAre(
          "6:db on AR: /a gone", "6:db on AR: /b gone", "6:db on AR: /c gone", "6:db on AR: /kept",
          "0:This is Default subclient and Auto Discovery is enabled", "0:getDBProps failed for [odd] database",
          "0:Marking [ odd ] database auto discovered ", "0:New Database Properties Sent to Arbiter...",
          "0: Database [/a gone] is auto discovered and found deleted. Deleting it from Stefosteza",
          "0: Database [/b gone] is found deleted and not auto discovered",
          "0: Database [/c gone] is auto discovered and found deleted. Deleting it from Stefosteza",
          "0:MySqlSubclient:removeProperties() returned error.", "6: checking [/a gone]  db in delete list",
          "0: The database [/a gone] not present on the database server", "6: checking [/b gone]  db in delete list",
          "0: The database [/b gone] not present on the database server", "6: checking [/c gone]  db in delete list",
          "0: The database [/c gone] not present on the database server", "6: checking [/kept]  db in delete list",
          "0:Valid Databases for this backup : [ /kept ] ", "6: checking [/odd]  db in delete list",
          "0:Valid Databases for this backup : [ /odd ] ",
          "0: Failed to notify the jobmanager about the failure files"));
}

TEST(ReconciliationLog, NamesTheReadThatFailed) {
  World world(false);
  world.put(world.defaultSubclient, {"/mine"});
  Names own{"before"};
  std::list<std::pair<std::string, int>> all;
  ApplicationId application(0, world.defaultSubclient);
  MySqlSubclient subclient(world.defaultSubclient);
  EXPECT_EQ(getDBsFromArbiter(&application, own, all, &subclient), 0);
  EXPECT_THAT(own, testing::ElementsAre("before", "/mine"));
  EXPECT_THAT(all, testing::ElementsAre(testing::Pair("/mine", 0)));
  EXPECT_THAT(
      levelled(world, "getDBsFromArbiter"),
      testing::IsSupersetOf({"2: Appending [/mine] to database list for this subclient ",
                             "2: Appending database [/mine] to All database list... isautoDiscovered = [0]..."}));

  world.backend.failures().failWhen("Inventory::listContent", std::to_string(world.defaultSubclient), refusal());
  EXPECT_EQ(getDBsFromArbiter(&application, own, all, &subclient), 0);
  world.backend.failures().failAlways("Inventory::listSubclients", refusal());
  EXPECT_EQ(getDBsFromArbiter(&application, own, all, &subclient), -1);
  const std::string code = std::to_string(refusal().code);
  EXPECT_TRUE(world.backend.log().contains("getProperties failed retCode=[" + code + "] error=[no]"));
  EXPECT_TRUE(world.backend.log().contains("ClientApplicationList::getSubclientList failed error:[" + code + "]"));

  ApplicationId none;
  DatabasePlan plan;
  EXPECT_EQ(world.session.planDatabasesForBackup(&none, plan), -1);
  EXPECT_EQ(world.backend.log().texts().back(), "ApplicationId::getSubclient() returned NULL");
}

}  // namespace
