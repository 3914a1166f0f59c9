#include "command_fixture.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace orrery::test {
namespace {

testing::AssertionResult endedWith(const ProgramResult& result, int exitStatus, const std::string& reason) {
  const std::string& errors = result.errors;
  const bool oneLine =
      !errors.empty() && errors.find('\n') == errors.size() - 1 && errors.starts_with("orrery-mysql: ");
  if (result.exitStatus == exitStatus && result.output.empty() && oneLine && errors.find(reason) != std::string::npos) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "wanted exit status " << exitStatus << " and one line with \"" << reason
                                     << "\"; got " << result.exitStatus << ", signal " << result.signal << ", output <"
                                     << result.output << ">, errors <" << errors << ">";
}

}  // namespace

std::vector<std::string> commandLine(const std::string& home, const std::vector<std::string>& arguments) {
  std::vector<std::string> line{ORRERY_MYSQL_COMMAND, "--home", home};
  // What is not about the choice of a mode is about command mode, where clients can be played.
  if (std::find(arguments.begin(), arguments.end(), "--access") == arguments.end()) {
    line.insert(line.end(), {"--access", "command"});
  }
  line.insert(line.end(), arguments.begin(), arguments.end());
  return line;
}

testing::AssertionResult failedWith(const ProgramResult& result, const std::string& reason) {
  return endedWith(result, 1, reason);
}

testing::AssertionResult refusedUsage(const ProgramResult& result, const std::string& reason) {
  return endedWith(result, 2, reason);
}

testing::AssertionResult has(const Json& document, const Json& members) {
  for (const auto& [name, value] : members.items()) {
    const auto found = document.find(name);
    if (found == document.end()) return testing::AssertionFailure() << "no " << name << " in " << document;
    if (*found != value) return testing::AssertionFailure() << name << " is " << *found << ", wanted " << value;
  }
  return testing::AssertionSuccess();
}

void CommandTest::SetUp() {
  const ProgramResult result = run({"init", "--client", "tested"});
  ASSERT_EQ(result.exitStatus, 0) << result.errors;
}

ProgramResult CommandTest::run(const std::vector<std::string>& arguments, ProgramOptions options) const {
  return runProgram(commandLine(home_, arguments), std::move(options));
}

Json CommandTest::runJson(std::vector<std::string> arguments) const {
  arguments.insert(arguments.end(), {"--format", "json"});
  const ProgramResult result = run(arguments);
  EXPECT_EQ(result.exitStatus, 0) << result.errors;
  Json document = Json::parse(result.output, nullptr, false);
  EXPECT_FALSE(document.is_discarded()) << result.output;
  return document;
}

void CommandTest::addInstance(const std::string& name, const std::string& socket, std::vector<std::string> more) const {
  std::vector<std::string> arguments{"instance", "add", name, "--socket", socket, "--user", "agent", "--no-password"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  const ProgramResult result = run(arguments);
  ASSERT_EQ(result.exitStatus, 0) << result.errors;
}

void CommandTest::addClients(const std::string& script) const {
  for (const char* program : {"mysql", "mysqladmin"}) makeProgram(directory_ / "bin/" + program, script);
  addInstance("db", "h:1", {"--bin", directory_ / "bin"});
}

std::vector<std::string> CommandTest::instanceNames() const {
  std::vector<std::string> names;
  const Json document = runJson({"instance", "list"});
  for (const Json& instance : document["instances"]) names.push_back(instance["name"]);
  return names;
}

CommandTest::Act CommandTest::sending(int signal) {
  return [signal](pid_t pid) {
    EXPECT_EQ(::kill(pid, signal), 0);
    return StatementGate::Then::handOn;
  };
}

ProgramResult CommandTest::runGated(const std::string& instance, const MariaDbSandbox& server, const std::string& text,
                                    const std::vector<std::string>& arguments, const Act& act) const {
  std::atomic<pid_t> pid{0};
  StatementGate gate(directory_ / "gate.sock", server.socket(), text, [&] {
    EXPECT_TRUE(waitUntil([&] { return pid != 0; }));
    return act(pid);
  });
  EXPECT_EQ(run({"instance", "set", instance, "--socket", gate.path()}).exitStatus, 0);
  RunningProgram program(commandLine(home_, arguments));
  pid = program.pid();
  ProgramResult result = program.wait();
  EXPECT_TRUE(gate.wasSeen()) << result.errors;
  EXPECT_EQ(run({"instance", "set", instance, "--socket", server.socket()}).exitStatus, 0);
  return result;
}

bool CommandTest::appears(const std::string& file) {
  return waitUntil([&] { return std::filesystem::exists(file); });
}

void CommandTest::makeProgram(const std::string& path, const std::string& script) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  writeFile(path, "#!/bin/sh\n" + script, 0755);
}

void CommandTest::addServer(const std::string& name, const MariaDbSandbox& server,
                            std::vector<std::string> more) const {
  std::vector<std::string> arguments{"instance",
                                     "add",
                                     name,
                                     "--socket",
                                     server.socket(),
                                     "--user",
                                     "agent",
                                     "--password-file",
                                     server.directory() + "/agent.password"};
  if (::geteuid() == 0) arguments.insert(arguments.end(), {"--unix-user", server.account()});
  arguments.insert(arguments.end(), more.begin(), more.end());
  const ProgramResult result = run(arguments);
  ASSERT_EQ(result.exitStatus, 0) << result.errors;
}

void ReplicaPairTest::SetUpTestSuite() {
  primary_ = std::make_unique<MariaDbSandbox>(MariaDbSandbox::Options{.tcp = true, .logBin = true});
  replica_ =
      std::make_unique<MariaDbSandbox>(MariaDbSandbox::Options{.logBin = true, .replicaOf = primary_->directory()});
}

void ReplicaPairTest::TearDownTestSuite() {
  replica_.reset();
  primary_.reset();
}

void ReplicaPairTest::SetUp() {
  CommandTest::SetUp();
  addServer("primary", *primary_);
  addServer("db", *replica_);
  ASSERT_TRUE(waitUntil(runs)) << replica_->execute("show slave status");
}

std::string ReplicaPairTest::counter() const {
  const std::string file = home() + "/tmp/Instance_2_RunningBkpUps";
  const std::string text = std::filesystem::exists(file) ? readFile(file) : "";
  return text.empty() ? "0" : text;
}

void ReplicaPairTest::awaitReplica() {
  std::string position = primary_->execute("select @@global.gtid_binlog_pos");
  position.pop_back();
  EXPECT_EQ(replica_->execute("select master_gtid_wait('" + position + "', 20)"), "0\n")
      << replica_->execute("show slave status");
}

bool ReplicaPairTest::runs() {
  return replica_->execute("select count(*) from information_schema.processlist where command like 'Slave_%'") == "2\n";
}

}  // namespace orrery::test
