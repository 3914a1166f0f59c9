// The replication status and the protocol of parallel backups on a real primary with its replica.

#include <filesystem>
#include <memory>
#include <string>

#include "orrery/mysql/MySqlHelperClassesExt.h"

#include "real_session.h"
#include "support/program.h"

namespace {

namespace property = orrery::platform::property;
using orrery::test::MariaDbSandbox;
using orrery::test::readFile;
using orrery::test::waitUntil;

class Replication : public orrery::test::RealSessionTest {
 protected:
  static void SetUpTestSuite() {
    primary = std::make_unique<MariaDbSandbox>(MariaDbSandbox::Options{.tcp = true, .logBin = true});
    replica = std::make_unique<MariaDbSandbox>(MariaDbSandbox::Options{.replicaOf = primary->directory()});
    primary->execute("CREATE DATABASE shop; CREATE TABLE shop.t (a INT PRIMARY KEY)");
  }
  static void TearDownTestSuite() {
    replica.reset();
    primary.reset();
  }
  void SetUp() override {
    backend_.setSetting("MySQL", "sLibPath", "libmariadb.so.3");
    ASSERT_TRUE(waitUntil([] { return threads() == "Yes\tYes"; })) << "as the test before should have left it";
    instance_ = add(propertiesOf(*replica));
  }
  void TearDown() override {
    // These two outlive sessions by design.
    std::filesystem::remove(file("MySQLInstance_", "_LOCK"));
    std::filesystem::remove(file("Instance_", "_RunningBkpUps"));
  }
  std::string file(const std::string& before, const std::string& after) const {
    return backend_.temporary() + "/" + before + std::to_string(instance_) + after;
  }
  std::string counter() const { return readFile(file("Instance_", "_RunningBkpUps")); }

  template <class Session>
  std::unique_ptr<Session> open(long instance) {
    auto session = std::make_unique<Session>();
    EXPECT_EQ(session->Init(instance), 0) << session->strErrorString;
    return session;
  }
  auto library() { return open<GetMySqlInfoExt>(instance_); }
  auto command() { return open<GetMySqlInfo>(instance_); }

  struct Answer {
    int result;
    bool running;
    bool partial;
    int status;
    bool operator==(const Answer&) const = default;
  };
  /// Outputs that the status does not set stay at "partial" and 7.
  static Answer statusOf(GetMySqlInfo& session) {
    Answer answer{0, true, true, 7};
    std::string text;
    answer.result = session.getReplicationStatus(answer.running, answer.partial, answer.status, text);
    return answer;
  }
  static std::string column(int number) {
    const std::string row = replica->execute("SHOW SLAVE STATUS");
    std::size_t start = 0;
    for (int i = 0; i < number; ++i) start = row.find('\t', start) + 1;
    return row.substr(start, row.find('\t', start) - start);
  }
  static std::string threads() { return column(10) + "\t" + column(11); }

  static inline std::unique_ptr<MariaDbSandbox> primary;
  static inline std::unique_ptr<MariaDbSandbox> replica;
  long instance_ = 0;
};

constexpr bool unchanged = true;

TEST_F(Replication, StatusOfARunningReplica) {
  for (const std::unique_ptr<GetMySqlInfo>& session :
       {std::unique_ptr<GetMySqlInfo>(library()), std::unique_ptr<GetMySqlInfo>(command())}) {
    EXPECT_EQ(statusOf(*session), (Answer{0, true, false, 7}));
    EXPECT_EQ(session->strSessionString2, "mysql-bin.000001");
    EXPECT_EQ(session->strSessionString3, column(21));
    EXPECT_FALSE(backend_.log().contains("not as a server's row is"));
  }
}

TEST_F(Replication, StatusOfAServerThatIsNoReplica) {
  const long id = add(propertiesOf(*primary));
  EXPECT_EQ(statusOf(*open<GetMySqlInfoExt>(id)), (Answer{100, false, unchanged, 7}));
  EXPECT_TRUE(backend_.log().contains("This is not master slave setup."));
  EXPECT_EQ(statusOf(*open<GetMySqlInfo>(id)), (Answer{-1, false, unchanged, 7})) << "the clients print no row";
}

TEST_F(Replication, FiltersMakeItPartial) {
  replica->execute("STOP SLAVE; SET GLOBAL replicate_wild_ignore_table='test.%'; START SLAVE");
  ASSERT_TRUE(waitUntil([] { return threads() == "Yes\tYes"; }));
  EXPECT_EQ(statusOf(*library()), (Answer{0, true, true, 7}));
  EXPECT_EQ(statusOf(*command()), (Answer{0, true, true, 7}));
  EXPECT_TRUE(backend_.log().contains("Replicate_Wild_Ignore_Table = [test.%]"));
  replica->execute("STOP SLAVE; SET GLOBAL replicate_wild_ignore_table=''; START SLAVE");
}

// The server's error holds the statement with its line feeds, which a vertical listing prints as they are.
TEST_F(Replication, BrokenByARowThatIsThereAlready) {
  replica->execute("INSERT INTO shop.t VALUES (1)");
  primary->execute("INSERT INTO\nshop.t\nVALUES (1)");
  ASSERT_TRUE(waitUntil([] { return column(11) == "No"; }));
  const auto overTheLibrary = library();
  const auto overTheCommandLine = command();
  for (GetMySqlInfo* session : {static_cast<GetMySqlInfo*>(overTheLibrary.get()), overTheCommandLine.get()}) {
    backend_.log().clear();
    EXPECT_EQ(statusOf(*session), (Answer{0, false, unchanged, 7}));
    EXPECT_EQ(session->strSessionString3, column(21));
    for (const char* text : {" Last_Errno = [1062]", "Last_SQL_Errno = [1062]", "Last_IO_Errno = [0]"}) {
      EXPECT_TRUE(backend_.log().contains(text)) << text;
    }
    EXPECT_FALSE(backend_.log().contains("not as a server's row is"));
  }

  // A backup that holds it and lets it go finds that it does not resume, and waits for no lock of its own meanwhile.
  EXPECT_EQ(overTheLibrary->StopSlave() + overTheLibrary->StartSlave(), 0);
  ASSERT_TRUE(waitUntil([] { return column(11) == "No"; }));
  EXPECT_EQ(counter(), "0");
  EXPECT_FALSE(backend_.log().contains("Some other process holds the lock, trying again..."));
  replica->execute("STOP SLAVE; DELETE FROM shop.t WHERE a = 1; START SLAVE");
}

}  // namespace
