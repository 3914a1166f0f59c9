#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/mariadb_sandbox.h"
#include "support/program.h"
#include "support/statement_gate.h"
#include "support/temporary_directory.h"

namespace orrery::test {

using Json = nlohmann::ordered_json;

/// A command line for the built command, with the home of the test.
std::vector<std::string> commandLine(const std::string& home, const std::vector<std::string>& arguments);

/// Passes for exit status 1 with nothing on standard output and exactly one line "orrery-mysql: ..." on standard error
/// that holds `reason`.
testing::AssertionResult failedWith(const ProgramResult& result, const std::string& reason);
/// The same for exit status 2.
testing::AssertionResult refusedUsage(const ProgramResult& result, const std::string& reason);

/// Passes when a document has these members with these values, whatever else it has.
testing::AssertionResult has(const Json& document, const Json& members);

/// A fresh home, made by `init`, and the command run against it.
class CommandTest : public testing::Test {
 protected:
  void SetUp() override;

  const std::string& home() const noexcept { return home_; }
  std::string log() const { return readFile(home_ + "/log/orrery-mysql.log"); }
  ProgramResult run(const std::vector<std::string>& arguments, ProgramOptions options = {}) const;
  /// Runs with --format json; the document, or null after a failure of the test.
  Json runJson(std::vector<std::string> arguments) const;
  /// Adds an instance that needs no password.
  void addInstance(const std::string& name, const std::string& socket, std::vector<std::string> more = {}) const;
  /// Adds a server, with its password and its Unix account.
  void addServer(const std::string& name, const MariaDbSandbox& server, std::vector<std::string> more = {}) const;
  /// Adds "db", whose two clients are this script.
  void addClients(const std::string& script) const;
  std::vector<std::string> instanceNames() const;
  /// Acts on the process with this id.
  using Act = std::function<StatementGate::Then(pid_t)>;
  static Act sending(int signal);
  static Act breaking() {
    return [](pid_t) { return StatementGate::Then::breakConnection; };
  }
  /// Runs a command on an instance whose server's statements go through a gate, which acts on the command before the
  /// first one that holds `text`.
  ProgramResult runGated(const std::string& instance, const MariaDbSandbox& server, const std::string& text,
                         const std::vector<std::string>& arguments, const Act& act) const;
  /// Waits for a file that a program makes.
  static bool appears(const std::string& file);
  /// A program of this text in a folder of the test.
  static void makeProgram(const std::string& path, const std::string& script);

  TemporaryDirectory directory_;

 private:
  std::string home_ = directory_ / "home";
};

/// The same with one server for all tests of the program.
class ServerTest : public CommandTest {
 protected:
  static void SetUpTestSuite() { server_ = std::make_unique<MariaDbSandbox>(MariaDbSandbox::Options{.logBin = true}); }
  static void TearDownTestSuite() { server_.reset(); }
  static MariaDbSandbox& server() { return *server_; }
  using CommandTest::addServer;
  void addServer(std::vector<std::string> more = {}) const { addServer("db", server(), std::move(more)); }

 private:
  static inline std::unique_ptr<MariaDbSandbox> server_;
};

/// The same with a primary and its replica for all tests of the program, as "primary" and, with id 2, "db".
class ReplicaPairTest : public CommandTest {
 protected:
  static void SetUpTestSuite();
  static void TearDownTestSuite();
  void SetUp() override;

  static MariaDbSandbox& primary() { return *primary_; }
  static MariaDbSandbox& replica() { return *replica_; }
  /// Whether both threads of the replica run.
  static bool runs();
  /// Waits until the replica has applied all that the primary has written.
  static void awaitReplica();
  /// What the counter of those who hold the replica says; "0" also before the first of them.
  std::string counter() const;

 private:
  static inline std::unique_ptr<MariaDbSandbox> primary_;
  static inline std::unique_ptr<MariaDbSandbox> replica_;
};

}  // namespace orrery::test
