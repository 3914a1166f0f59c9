// The file by which someone watches the lines of running connections. It has one place on a machine; other programs may
// write there meanwhile, so that only the lines of this process count.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <iomanip>
#include <sstream>

#include "orrery/platform/posix.h"

#include "client/client_fixture.h"
#include "support/temporary_directory.h"

namespace {

constexpr const char* path = "/tmp/debugMySqlInterface.log";
constexpr const char* refused =
    "[/tmp/debugMySqlInterface.log] is not used: it is no plain file of root or of the agent's account";

class RedirectFile : public orrery::test::ClientTest {
 protected:
  RedirectFile() : server_("u", "p", "s", 0) {
    struct stat info {};
    EXPECT_TRUE(lstat(path, &info) != 0 && errno == ENOENT) << path << " is somebody's: this test needs the name";
    EXPECT_EQ(server_.LoadAndInitialize(library_.path()), 0);
    backend_.log().clear();
  }
  ~RedirectFile() override { remove(); }

  void make() {
    const orrery::platform::OwnFd file(open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
    made_ = file.valid();
    ASSERT_TRUE(made_);
  }
  void remove() {
    if (made_) unlink(path);
    made_ = false;
  }
  static std::string clockTime() {
    const time_t now = orrery::platform::testing::TestBackend::firstTime / 1000000;
    struct tm local {};
    localtime_r(&now, &local);
    std::ostringstream text;
    text << std::put_time(&local, "%m/%d/%y %H:%M:%S");
    return text.str();
  }
  std::vector<std::string> ownLines() {
    std::vector<std::string> lines;
    std::istringstream text(orrery::test::readFile(path));
    const std::string start = "MySQLInterface-" + std::to_string(getpid()) + ": ";
    for (std::string line; std::getline(text, line);) {
      if (line.compare(0, start.size(), start) == 0) lines.push_back(line.substr(start.size()));
    }
    return lines;
  }

  orrery::test::StandInLibrary library_{"unknown"};
  MySqlInterface server_;
  bool made_ = false;
};

TEST_F(RedirectFile, TakesTheLinesFromTheLogWhileItIsThere) {
  backend_.log().setThreshold(0);
  make();
  ASSERT_EQ(server_.PingServer(), 0) << "lines are written whatever the log's level is";
  ASSERT_EQ(ownLines().size(), 1U);
  EXPECT_EQ(ownLines()[0], clockTime() + "  [ MySqlInterface::PingServer ] Ping Server Succeeded... ");
  EXPECT_THAT(backend_.log().lines(), testing::IsEmpty());

  backend_.log().setThreshold(5);
  server_.MySQLErrorLog("%s", std::string(5000, 'x').c_str());
  EXPECT_EQ(ownLines().back().size(), clockTime().size() + 1 + 4094) << "cut to its room";
  EXPECT_THAT(backend_.log().lines(), testing::IsEmpty());

  remove();
  ASSERT_EQ(server_.PingServer(), 0);
  ASSERT_EQ(backend_.log().entries().size(), 1U);
  EXPECT_EQ(backend_.log().entries()[0].level, 5);
  EXPECT_EQ(backend_.log().entries()[0].text, " [ MySqlInterface::PingServer ] Ping Server Succeeded... ");
  struct stat info {};
  EXPECT_NE(lstat(path, &info), 0) << "it is not made by writing";
}

TEST_F(RedirectFile, ThatVanishesBetweenTwoLinesLosesNone) {
  make();
  library_.give("SELECT a", 1, {"1"});
  auto* result = new QueryResult;
  ASSERT_EQ(server_.RunQuery("SELECT a", result), 0);
  remove();
  std::list<std::string> row;
  ASSERT_EQ(server_.FetchNextRow(result, row), 0);
  EXPECT_TRUE(logged("[MySqlInterace::FetchRows] row[0]=[1]"));
  server_.FreeResultSet(result);
}

TEST_F(RedirectFile, ThatSomebodyElseCouldHaveMadeIsNotUsed) {
  const orrery::test::TemporaryDirectory directory;
  const std::string other = directory / "other";
  struct stat info {};
  const auto isRefused = [&](const char* what) {
    MySqlInterface server("u", "p", "s", 0);
    EXPECT_EQ(server.LoadAndInitialize(library_.path()), 0) << what;
    EXPECT_EQ(server.PingServer(), 0) << what;
    EXPECT_TRUE(logged(refused)) << what;
    EXPECT_TRUE(logged(" [ MySqlInterface::PingServer ] Ping Server Succeeded... ")) << what;
    EXPECT_TRUE(stat(path, &info) != 0 || info.st_size == 0) << what;
    remove();
    backend_.log().clear();
  };
  orrery::test::writeFile(other, "");
  made_ = symlink(other.c_str(), path) == 0;
  ASSERT_TRUE(made_);
  isRefused("a link");
  made_ = link(other.c_str(), path) == 0;
  if (!made_) made_ = mkdir(path, 0700) == 0;  // the two folders lie on different file systems
  ASSERT_TRUE(made_);
  isRefused("a second name, or a folder");
  made_ = mkfifo(path, 0600) == 0;
  ASSERT_TRUE(made_);
  isRefused("a pipe, which must not stop the agent either");
  if (geteuid() == 0) {
    make();
    ASSERT_EQ(chown(path, 65534, 65534), 0);
    isRefused("a file of another account");
  }
}

}  // namespace
