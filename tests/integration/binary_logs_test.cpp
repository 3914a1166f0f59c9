// Binary logs of real servers in both modes.

#include <memory>

#include "orrery/mysql/MySqlHelperClassesExt.h"

#include "integration/real_session.h"
#include "support/program.h"

namespace {

using orrery::test::MariaDbSandbox;
using orrery::test::Mode;
using testing::ElementsAre;
using Names = std::list<std::string>;

class BinaryLogs : public orrery::test::RealSessionTest, public testing::WithParamInterface<Mode> {
 protected:
  static void SetUpTestSuite() {
    // This server cuts a name at its first dot.
    writing_ = std::make_unique<MariaDbSandbox>(MariaDbSandbox::Options{.serverOptions = {"--log-bin=shop.east.bin"}});
    silent_ = std::make_unique<MariaDbSandbox>();
  }
  static void TearDownTestSuite() {
    writing_.reset();
    silent_.reset();
  }
  static bool isCommandMode() { return GetParam() == Mode::command; }
  std::unique_ptr<GetMySqlInfo> open(const MariaDbSandbox& server) {
    return sessionFor(GetParam(), propertiesOf(server));
  }

  static inline std::unique_ptr<MariaDbSandbox> writing_;
  static inline std::unique_ptr<MariaDbSandbox> silent_;
};

INSTANTIATE_TEST_SUITE_P(Modes, BinaryLogs, orrery::test::bothModes(), orrery::test::nameOfMode);

TEST_P(BinaryLogs, AreListedRotatedNamedAndTrimmed) {
  const auto session = open(*writing_);
  ASSERT_EQ(session->ResetMaster(), 0);
  EXPECT_EQ(session->FindBinLogStatus(), 1);
  std::string directory;
  EXPECT_EQ(session->GetLogBinPath(directory), 0);
  EXPECT_EQ(directory, writing_->dataDirectory());

  Names logs;
  EXPECT_EQ(session->FindMasterLogs(logs, true), 0);
  EXPECT_THAT(logs, ElementsAre("shop.000001")) << "the log that the rotation begins is not complete";
  EXPECT_EQ(session->FlushLogs(), 0);
  logs.clear();
  long first = 0, last = 0;
  EXPECT_EQ(session->FindMasterLogs(logs, &first, &last), 0);
  EXPECT_THAT(logs, ElementsAre("shop.000001", "shop.000002", "shop.000003"));
  EXPECT_EQ(first, 1);
  EXPECT_EQ(last, 3);

  EXPECT_EQ(session->LastLogName(), 0);
  EXPECT_EQ(session->strMasterLogFile, "shop.000003");
  EXPECT_EQ(session->strLogBaseName, "shop");
  // The server keeps, without a word, logs that its engines have not yet let go of: right after a rotation, mostly.
  EXPECT_TRUE(orrery::test::waitUntil([&] {
    logs.clear();
    return session->PurgeLogsTo("shop.000003") == 0 && session->FindMasterLogs(logs, false) == 0 && logs.size() == 1;
  }));
  EXPECT_EQ(session->PurgeLogsTo("shop.000009"), -1);
  EXPECT_EQ(session->iErrorCode, 1373);
}

TEST_P(BinaryLogs, OfAServerThatWritesNone) {
  const auto session = open(*silent_);
  EXPECT_EQ(session->FindBinLogStatus(), 0);
  Names logs;
  long first = -7, last = -8;
  EXPECT_EQ(session->FindMasterLogs(logs, true), 0);
  EXPECT_EQ(session->FindMasterLogs(logs, &first, &last), 0);
  EXPECT_THAT(logs, testing::IsEmpty());
  EXPECT_EQ(first, -7);
  EXPECT_EQ(last, -8);
  EXPECT_EQ(session->LastLogName(), 0);
  EXPECT_EQ(session->strMasterLogFile, "");
  EXPECT_EQ(session->FlushLogs(), 0);
  EXPECT_EQ(session->iErrorCode, 0) << session->strErrorString;
  if (auto* library = dynamic_cast<GetMySqlInfoExt*>(session.get())) {
    std::string info = "before";
    EXPECT_EQ(library->FetchMasterInfo(info), -1);
    EXPECT_EQ(info, "before");
    EXPECT_EQ(library->strErrorString, "the server returned no row for SHOW MASTER STATUS");
  }
}

TEST_P(BinaryLogs, PositionOfTheCurrentOneOverAConnection) {
  const auto session = open(*writing_);
  auto* library = dynamic_cast<GetMySqlInfoExt*>(session.get());
  ASSERT_EQ(library == nullptr, isCommandMode());
  std::string info;
  if (library == nullptr) return;
  ASSERT_EQ(library->FetchMasterInfo(info), 0);
  const std::string row = writing_->execute("SHOW MASTER STATUS");
  const std::size_t tab = row.find('\t');
  EXPECT_EQ(info, row.substr(0, tab) + ":" + row.substr(tab + 1, row.find('\t', tab + 1) - tab - 1));
}

}  // namespace
