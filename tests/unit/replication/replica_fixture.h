#pragma once

#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/mysql/MySqlHelperClassesExt.h"
#include "orrery/platform/instance_properties.h"

#include "replication/instance_lock.h"
#include "support/backend_test.h"
#include "support/children.h"
#include "support/temporary_directory.h"

namespace orrery::test {

/// Sessions of library mode on a replica that is played by a file, see support/client_library/stand_in.c. Waits take no
/// time.
class ReplicaTest : public BackendTest {
 protected:
  ReplicaTest() {
    backend_.setSetting("MySQL", "sLibPath", ORRERY_STAND_IN_REPLICA);
    instance_ = backend_.addInstance("replica", {{platform::property::saUser, "agent"},
                                                 {platform::property::saPassword, "sealed:secret"},
                                                 {platform::property::socketFile, server_}});
    files_ = mysql::InstanceFiles(backend_.temporary(), instance_);
    setServer("running");
  }

  std::unique_ptr<GetMySqlInfoExt> session() {
    auto session = std::make_unique<GetMySqlInfoExt>();
    EXPECT_EQ(session->Init(static_cast<long>(instance_)), 0);
    return session;
  }

  std::string server() const { return readFile(server_); }
  void setServer(const std::string& state) { writeFile(server_, state, 0666); }
  void setServerMode(const std::string& words) { writeFile(server_ + ".mode", words); }
  void keepStatements() { writeFile(server_ + ".statements", ""); }
  std::string statements() const { return readFile(server_ + ".statements"); }

  void setCounter(const std::string& text) { writeFile(files_.counter, text, 0600); }
  std::string counter() const {
    return std::filesystem::is_regular_file(files_.counter) ? readFile(files_.counter) : "none";
  }
  static bool exists(const std::string& path) { return std::filesystem::exists(path); }

  struct Answer {
    int result;
    bool running;
    bool partial;
    int status;
  };
  static Answer statusOf(GetMySqlInfo& session) {
    Answer answer{0, true, true, 7};
    std::string text = "untouched";
    answer.result = session.getReplicationStatus(answer.running, answer.partial, answer.status, text);
    EXPECT_EQ(text, "untouched");
    return answer;
  }

  const TemporaryDirectory folder_;
  const std::string server_ = folder_ / "server";
  platform::Id instance_ = 0;
  mysql::InstanceFiles files_;
};

}  // namespace orrery::test
