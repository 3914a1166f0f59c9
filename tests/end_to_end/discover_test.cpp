// Discovery on a host that runs four private servers at once, among whatever other servers it runs.

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <map>
#include <memory>

#include "command_fixture.h"

namespace orrery::test {
namespace {

std::string freePort() {
  const platform::OwnFd probe(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(probe.get(), generic, size) != 0 || ::getsockname(probe.get(), generic, &size) != 0) {
    throw std::runtime_error("no free port");
  }
  return std::to_string(ntohs(address.sin_port));
}

/// A server with the command line that a test wants; ended with the object.
class PlainServer {
 public:
  /// `data` is copied. Options may hold "DIR", the server's folder.
  PlainServer(const std::string& folder, const std::string& data, const std::string& account,
              const std::string& program, const std::string& optionFile, const std::vector<std::string>& options)
      : folder_(folder) {
    const bool isRoot = ::geteuid() == 0;
    const std::string script =
        "cp -a " + data + " " + folder + "/data" + (isRoot ? " && chown -R " + account + " " + folder : "");
    std::filesystem::create_directory(folder);
    if (runProgram({"sh", "-c", script}).exitStatus != 0) throw std::runtime_error(script);
    std::vector<std::string> line{"sh", "-c", "exec \"$@\" >" + folder + "/log 2>&1", "sh"};
    if (isRoot) line.insert(line.end(), {"setpriv", "--reuid=" + account, "--regid=65534", "--clear-groups"});
    line.push_back(program);
    if (!optionFile.empty()) {
      // Beside its folder, which is its account's: the option file is the machine's, as of a package.
      writeFile(folder + ".cnf", inFolder(optionFile));
      line.push_back("--defaults-file=" + folder + ".cnf");
    }
    for (const std::string& option : options) line.push_back(inFolder(option));
    for (const char* small : {"--innodb-buffer-pool-size=8M", "--innodb-log-file-size=8M", "--key-buffer-size=1M",
                              "--aria-pagecache-buffer-size=8M", "--performance-schema=OFF"}) {
      line.emplace_back(small);
    }
    server_ = std::make_unique<RunningProgram>(line);
    if (!waitUntil([&] { return std::filesystem::is_socket(socket()); }, std::chrono::seconds(60))) {
      throw std::runtime_error(readFile(folder + "/log"));
    }
  }

  std::string socket() const { return folder_ + "/mysql.sock"; }
  std::string data() const { return folder_ + "/data"; }

 private:
  std::string inFolder(std::string text) const {
    for (std::size_t at = 0; (at = text.find("DIR", at)) != std::string::npos;) text.replace(at, 3, folder_);
    return text;
  }

  std::string folder_;
  std::unique_ptr<RunningProgram> server_;
};

class DiscoverTest : public CommandTest {
 protected:
  static void SetUpTestSuite() {
    place_ = std::make_unique<TemporaryDirectory>();
    const std::string data = *place_ / "data";
    const std::string owner = ::geteuid() == 0 ? " --user=mysql" : "";
    const std::string script = "mariadb-install-db --no-defaults --skip-test-db --datadir=" + data + owner;
    const ProgramResult made = runProgram({"sh", "-c", script}, {.limit = std::chrono::seconds(120)});
    ASSERT_EQ(made.exitStatus, 0) << made.output << made.errors;
    for (std::string& port : ports_) port = freePort();
    const std::string local = "--bind-address=127.0.0.1";
    servers_[0] = std::make_unique<PlainServer>(
        *place_ / "options", data, "mysql", "/usr/sbin/mariadbd", "",
        std::vector<std::string>{"--no-defaults", "--datadir=DIR/data", "--socket=DIR/mysql.sock",
                                 "--port=" + ports_[0], local});
    servers_[1] = std::make_unique<PlainServer>(
        *place_ / "file", data, "mysql", "/usr/sbin/mysqld",
        "[mysqld]\ndatadir = \"DIR/data\"\nsocket=DIR/mysql.sock\nport=" + ports_[1] + "\n",
        std::vector<std::string>{local});
    servers_[2] =
        std::make_unique<PlainServer>(*place_ / "silent", data, "mysql", "/usr/sbin/mariadbd",
                                      "[mysqld]\nskip-networking\nlog-bin=DIR/data/log\nserver-id=1\n",
                                      std::vector<std::string>{"--datadir=DIR/data", "--socket=DIR/mysql.sock"});
    servers_[3] = std::make_unique<PlainServer>(
        *place_ / "elsewhere", data, "nobody", "/usr/sbin/mysqld", "[mariadbd]\nport=" + ports_[3] + "\n",
        std::vector<std::string>{"--datadir", "DIR/data", "--socket", "DIR/mysql.sock", local});
  }
  static void TearDownTestSuite() {
    for (auto& server : servers_) server.reset();
    place_.reset();
  }

  /// The one entry of a list whose "socket" is that of a server.
  static Json entryOf(const Json& list, int server) {
    Json found;
    for (const Json& entry : list) {
      if (entry["socket"] != servers_.at(server)->socket()) continue;
      EXPECT_TRUE(found.is_null()) << "two of one server";
      found = entry;
    }
    return found;
  }
  static std::string place(const std::string& name) { return *place_ / name; }

  static inline std::unique_ptr<TemporaryDirectory> place_;
  static inline std::array<std::unique_ptr<PlainServer>, 4> servers_;
  static inline std::array<std::string, 4> ports_;
};

TEST_F(DiscoverTest, EveryServerHasOneRightRecord) {
  const Json instances = runJson({"discover"})["instances"];
  const std::string user = ::geteuid() == 0 ? "root" : instances[0]["unix_user"].get<std::string>();
  const std::array<std::array<std::string, 3>, 4> expected{{{ports_[0], servers_[0]->data(), ""},
                                                            {ports_[1], servers_[1]->data(), place("file.cnf")},
                                                            {"3306", servers_[2]->data() + "/", place("silent.cnf")},
                                                            {ports_[3], "", place("elsewhere.cnf")}}};
  for (int i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    const Json record = entryOf(instances, i);
    ASSERT_FALSE(record.is_null());
    const auto& [port, data, config] = expected.at(i);
    EXPECT_TRUE(has(record, {{"port", port},
                             {"name", "tested_" + port},
                             {"log_data_directory", data.empty() ? Json(nullptr) : Json(data)},
                             {"binary_directory", "/usr/bin"},
                             {"unix_user", user},
                             {"state", "new"}}));
    EXPECT_TRUE(i == 0 || record["config_file"] == config) << record;
  }
  EXPECT_THAT(instanceNames(), testing::IsEmpty());
}

TEST_F(DiscoverTest, NewOnesAreRegisteredKnownOnesAreLeftAloneAndTwiceChangesNothing) {
  ASSERT_EQ(::symlink(servers_[0]->socket().c_str(), (directory_ / "link.sock").c_str()), 0);
  addInstance("shop", directory_ / "link.sock");
  const Json shop = runJson({"instance", "show", "shop"});
  const ProgramResult first = run({"--format", "json", "discover", "--register"});
  ASSERT_EQ(first.exitStatus, 0) << first.errors;
  const Json found = Json::parse(first.output)["instances"];
  EXPECT_TRUE(has(entryOf(found, 0), {{"state", "known"}, {"instance", "shop"}}));
  EXPECT_EQ(runJson({"instance", "show", "shop"}), shop);
  std::map<int, Json> added;
  for (const int i : {1, 2, 3}) {
    EXPECT_EQ(entryOf(found, i)["state"], "registered");
    const std::string name = entryOf(found, i)["instance"];
    added[i] = runJson({"instance", "show", name});
    EXPECT_TRUE(has(added[i], {{"socket", servers_.at(i)->socket()},
                               {"port", entryOf(found, i)["port"]},
                               {"config_file", entryOf(found, i)["config_file"]},
                               {"user", nullptr},
                               {"password_stored", false}}));
    const std::string next = "orrery-mysql instance set " + name + " --user ACCOUNT --ask-password";
    EXPECT_THAT(entryOf(found, i)["next"].get<std::string>(), testing::StartsWith(next));
    EXPECT_THAT(first.errors, testing::HasSubstr(next));
  }
  EXPECT_EQ(added[1]["data_path"], servers_[1]->data());
  EXPECT_THAT(entryOf(found, 3)["next"].get<std::string>(), testing::HasSubstr("--data " + servers_[3]->data()));

  const Json again = runJson({"discover", "--register"})["instances"];
  for (const int i : {1, 2, 3}) {
    EXPECT_EQ(entryOf(again, i)["state"], "known");
    EXPECT_EQ(runJson({"instance", "show", std::to_string(added[i]["id"].get<int>())}), added[i]);
  }
}

TEST_F(DiscoverTest, ExplainsWhereEverythingCameFrom) {
  const Json document = runJson({"discover", "--explain"});
  std::map<std::string, Json> bySocket;
  for (const Json& process : document["processes"]) {
    const Json& socket = process["fields"]["socket"]["value"];
    if (socket.is_string()) bySocket[socket] = process;
  }
  const auto from = [&](int server, const char* field) {
    return bySocket.at(servers_.at(server)->socket())["fields"][field]["from"].get<std::string>();
  };
  EXPECT_EQ(from(0, "socket"), "command line");
  EXPECT_EQ(from(1, "socket"), "socket list");
  EXPECT_EQ(from(1, "port"), "socket list");
  EXPECT_EQ(from(1, "log_data_directory"), "option file");
  EXPECT_EQ(from(2, "port"), "default");
  EXPECT_EQ(from(3, "log_data_directory"), "not found");
  EXPECT_THAT(bySocket[servers_[2]->socket()].dump(), testing::HasSubstr("does not listen on TCP"));
  EXPECT_EQ(bySocket[servers_[3]->socket()]["account"],
            ::geteuid() == 0 ? "nobody" : bySocket.begin()->second["account"]);
  EXPECT_THAT(run({"discover", "--explain"}).output, testing::HasSubstr("hint"));
}

TEST_F(DiscoverTest, NothingOfAStrangersCommandLineIsExecuted) {
  const std::string marks = directory_ / "marks";
  const std::string quoted = directory_ / "$(echo>marks)\"`echo>marks`\\";
  const std::string open = directory_ / "open";
  std::filesystem::create_symlink("/usr/bin/tail", directory_ / "mysqld");
  std::vector<std::unique_ptr<RunningProgram>> strangers;
  for (const std::string& folder : {quoted, open}) {
    std::filesystem::create_directories(folder + "/bin");
    const std::string mark = folder == open ? "echo >" + marks + "\n" : "";
    makeProgram(folder + "/bin/mysqld", "#!/bin/sh\n" + mark + "echo 'mysqld  Ver 8.0.1 x'\n");
    strangers.push_back(std::make_unique<RunningProgram>(
        std::vector<std::string>{directory_ / "mysqld", "-q", "-f", "/dev/null", "--pid=" + std::to_string(::getpid()),
                                 "--", "--basedir=" + folder}));
  }
  std::filesystem::permissions(open + "/bin", std::filesystem::perms::all);
  const auto shown = [&](int stranger) {
    const Json document = runJson({"discover", "--explain"});
    for (const Json& process : document["processes"]) {
      if (process["pid"] == strangers.at(stranger)->pid()) return process;
    }
    return Json();
  };
  EXPECT_EQ(shown(0)["recorded"], true) << "the program is found under its name, whatever a shell would make of it";
  EXPECT_THAT(shown(1)["left_out"].get<std::string>(), testing::HasSubstr("bin can be written by others"));
  EXPECT_FALSE(std::filesystem::exists(marks));
  EXPECT_FALSE(std::filesystem::exists("marks"));
}

TEST_F(DiscoverTest, WhatOthersCanChangeIsNotRegistered) {
  using std::filesystem::perms;
  const std::string half = directory_ / "half";
  std::filesystem::create_directories(half + "/bin");
  std::filesystem::create_symlink("/usr/bin/tail", directory_ / "mysqld");
  for (const char* name : {"mysqld", "mysql", "mysqladmin"}) {
    makeProgram(half + "/bin/" + name, "#!/bin/sh\necho 'mysqld  Ver 8.0.1 x'\n");
  }
  writeFile(half + "/my.cnf", "[mysqld]\n");
  std::filesystem::permissions(half + "/my.cnf", perms::all);
  std::filesystem::permissions(half + "/bin/mysqladmin", perms::all);
  const RunningProgram stranger(std::vector<std::string>{
      directory_ / "mysqld", "-q", "-f", "/dev/null", "--pid=" + std::to_string(::getpid()), "--", "--basedir=" + half,
      "--socket=" + half + "/s.sock", "--port=1", "--defaults-file=" + half + "/my.cnf"});
  const std::string line = "/proc/" + std::to_string(stranger.pid()) + "/cmdline";
  ASSERT_TRUE(waitUntil([&] { return readFile(line).find("s.sock") != std::string::npos; }));
  const ProgramResult result = run({"--format", "json", "discover", "--register"});
  ASSERT_EQ(result.exitStatus, 0) << result.errors;
  std::string name;
  const Json document = Json::parse(result.output);
  for (const Json& record : document["instances"]) {
    if (record["socket"] == half + "/s.sock") name = record["instance"].get<std::string>();
  }
  ASSERT_NE(name, "") << result.errors;
  EXPECT_TRUE(has(runJson({"instance", "show", name}),
                  {{"socket", half + "/s.sock"}, {"binary_path", "/usr/bin"}, {"config_file", nullptr}}));
  EXPECT_THAT(result.errors, testing::HasSubstr("mysqladmin can be written by others"));
  EXPECT_THAT(result.errors, testing::HasSubstr("my.cnf can be written by others"));
}

TEST_F(DiscoverTest, AnInstanceOfAnotherMachineIsNoneOfThisOne) {
  const std::string data = servers_[0]->data();
  addInstance("far", "10.9.9.9:" + ports_[0], {"--data", data});
  EXPECT_EQ(entryOf(runJson({"discover"})["instances"], 0)["state"], "new");
  addInstance("near", "127.0.0.1:" + ports_[0], {"--data", data});
  EXPECT_EQ(entryOf(runJson({"discover"})["instances"], 0)["instance"], "near");
}

}  // namespace
}  // namespace orrery::test
