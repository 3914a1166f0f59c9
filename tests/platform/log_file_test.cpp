#include <fcntl.h>
#include <regex.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <sstream>
#include <thread>

#include "fixtures.h"
#include "support/program.h"

namespace orrery::test {
namespace {

using namespace platform;
namespace fs = std::filesystem;
using namespace std::string_literals;

class LogFileTest : public OpenHomeTest {
 protected:
  LogSink& log() { return *services_->log; }
  std::string file() const { return inHome("log/orrery-mysql.log"); }
  std::vector<std::string> lines() const {
    std::vector<std::string> result;
    std::istringstream stream(readFile(file()));
    for (std::string line; std::getline(stream, line);) result.push_back(line);
    return result;
  }
};

LogLine debugLine(std::string_view tag, std::string_view text, int level = 0, long long job = 0) {
  return {LogKind::debug, level, job, tag, text};
}

/// Whether the whole text is as the extended regular expression says.
bool matches(const std::string& text, const std::string& pattern) {
  regex_t expression;
  EXPECT_EQ(::regcomp(&expression, ("^(" + pattern + ")$").c_str(), REG_EXTENDED | REG_NOSUB), 0) << pattern;
  const bool result = ::regexec(&expression, text.c_str(), 0, nullptr, 0) == 0;
  ::regfree(&expression);
  return result;
}

const std::string timePattern = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{6}Z ";

TEST_F(LogFileTest, LineSaysWhenInUtcWhoAndWhat) {
  const time_t before = ::time(nullptr);
  log().write(debugLine("Session::open", "text", 4, 17));
  log().write({LogKind::error, 0, 0, "", ""});
  const std::vector<std::string> found = lines();
  ASSERT_EQ(found.size(), 2U);
  const std::string ids = std::to_string(::getpid()) + " " + std::to_string(::gettid());
  EXPECT_TRUE(matches(found[0], timePattern + ids + R"( 17 D4 \[Session::open\] text)")) << found[0];
  EXPECT_TRUE(matches(found[1], timePattern + ids + R"( 0 E \[\] )")) << found[1];
  struct stat status {};
  ASSERT_EQ(::stat(file().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
  tm parsed{};
  ASSERT_NE(::strptime(found[0].c_str(), "%Y-%m-%dT%H:%M:%S", &parsed), nullptr);
  const time_t told = ::timegm(&parsed);
  EXPECT_TRUE(before <= told && told <= ::time(nullptr)) << found[0];
}

TEST_F(LogFileTest, OneMessageIsOneLine) {
  const std::string text = "a\nb\tc\rd\\e\0f\x1b[0m\x7f \xc3\xa9"s;
  log().write(debugLine("tag\nwith break", text));
  log().writeInChild(debugLine("t", text));
  const std::string escaped = R"(a\nb\tc\x0dd\\e\x00f\x1b[0m\x7f )"
                              "\xc3\xa9";
  ASSERT_EQ(lines().size(), 2U);
  EXPECT_NE(lines()[0].find(R"([tag\nwith break] )" + escaped), std::string::npos) << lines()[0];
  EXPECT_NE(lines()[1].find("[t] " + escaped), std::string::npos) << lines()[1];
}

TEST_F(LogFileTest, LongMessagesAreWholeExceptInAChild) {
  for (const std::size_t size : {3000U, 4096U, 100000U}) {
    const std::string text(size, '\n');
    log().write(debugLine("t", text));
    const std::string line = lines().back();
    EXPECT_EQ(line.size() - line.find("] ") - 2, 2 * size);
  }
  log().writeInChild(debugLine("t", std::string(100000, '\x01')));
  const std::string cut = lines().back();
  EXPECT_LE(cut.size(), 8192U);
  EXPECT_GT(cut.size(), 8000U);
  EXPECT_TRUE(matches(cut, R"(.*\\x01\.\.\.)")) << cut.substr(cut.size() - 12);
}

TEST_F(LogFileTest, ThresholdComesFromTheSettings) {
  const struct {
    const char* settings;
    int highest;
  } cases[] = {{"", 0},
               {"[Log]\nnLevel = 5\n", 5},
               {"[Log]\nnLevel = -1\n", -1},
               {"[Log]\nnLevel = 5x\n", 0},
               {"[Log]\nnLevel = 99999999999999\n", 0},
               {"this is no settings file\n", 0}};
  for (const auto& test : cases) {
    SCOPED_TRACE(test.settings);
    writeFile(inHome("settings.ini"), test.settings, 0600);
    services_ = open();
    ASSERT_NE(services_, nullptr);
    EXPECT_TRUE(log().wants(test.highest));
    EXPECT_FALSE(log().wants(test.highest + 1));
  }
}

TEST_F(LogFileTest, LinesOfThreadsAndProcessesStayWhole) {
  constexpr int processes = 3;
  constexpr int threads = 3;
  constexpr int each = 60;
  inChildrenTogether(processes, [&](int process) {
    std::shared_ptr<const Services> services;
    if (!openHome(home(), services).ok()) return 1;
    std::vector<std::thread> writers;
    writers.reserve(threads);
    for (int thread = 0; thread < threads; ++thread)
      writers.emplace_back([&, thread] {
        for (int i = 0; i < each; ++i) {
          const std::string name = std::to_string(process) + "-" + std::to_string(thread) + "-" + std::to_string(i);
          services->log->write(debugLine("t", name + std::string(static_cast<std::size_t>(i) * 50, 'x') + "!"));
        }
      });
    for (std::thread& writer : writers) writer.join();
    return 0;
  });
  std::set<std::string> names;
  for (const std::string& line : lines()) {
    ASSERT_TRUE(matches(line, timePattern + R"([0-9]+ [0-9]+ 0 D0 \[t\] [0-9]-[0-9]-[0-9]+x*!)")) << line;
    const std::size_t name = line.find("] ") + 2;
    names.insert(line.substr(name, line.find_first_of("x!", name) - name));
  }
  EXPECT_EQ(names.size(), static_cast<std::size_t>(processes * threads * each));
}

TEST_F(LogFileTest, LineOfAForkedChildArrivesWithItsOwnProcessId) {
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    errno = EXDEV;
    log().writeInChild(debugLine("t", "from the child"));
    ::_exit(errno == EXDEV ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "errno was changed";
  ASSERT_EQ(lines().size(), 1U);
  EXPECT_NE(lines()[0].find("Z " + std::to_string(child) + " "), std::string::npos);
}

TEST_F(LogFileTest, LargeLogIsSetAside) {
  constexpr std::uintmax_t limit = 16U << 20;
  const auto fill = [&](const std::string& mark, std::uintmax_t size) {
    writeFile(file(), mark, 0600);
    fs::resize_file(file(), size);
  };
  fill("exactly", limit);
  ASSERT_NE(open(), nullptr);
  EXPECT_FALSE(fs::exists(file() + ".1")) << "a log of the limit stays";
  for (int i = 1; i <= 6; ++i) {
    fill("number " + std::to_string(i), limit + 1);
    ASSERT_NE(open(), nullptr);
    EXPECT_EQ(fs::file_size(file()), 0U);
  }
  for (int i = 1; i <= 4; ++i) {
    const std::string older = file() + "." + std::to_string(i);
    EXPECT_EQ(readFile(older).substr(0, 8), "number " + std::to_string(7 - i)) << older;
  }
  EXPECT_FALSE(fs::exists(file() + ".5"));
}

/// Holds the lock as a process does that is setting the log aside, and finishes when another one waits for it.
TEST_F(LogFileTest, StarterThatWaitedDoesNotSetAsideAgain) {
  writeFile(file(), "large", 0600);
  fs::resize_file(file(), 17U << 20);
  const int folder = ::open(inHome("log").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(::flock(folder, LOCK_EX), 0);
  const pid_t starter = ::fork();
  ASSERT_GE(starter, 0);
  if (starter == 0) {
    std::shared_ptr<const Services> services;
    ::_exit(openHome(home(), services).ok() ? 0 : 1);
  }
  const std::string waiting = "-> FLOCK  ADVISORY  WRITE " + std::to_string(starter) + " ";
  EXPECT_TRUE(waitUntil([&] { return readFile("/proc/locks").find(waiting) != std::string::npos; }));
  EXPECT_FALSE(fs::exists(file() + ".1"));
  fs::rename(file(), file() + ".1");
  writeFile(file(), "", 0600);
  ASSERT_EQ(::flock(folder, LOCK_UN), 0);
  ::close(folder);
  int status = 0;
  ASSERT_EQ(::waitpid(starter, &status, 0), starter);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(fs::file_size(file() + ".1"), 17U << 20);
  EXPECT_FALSE(fs::exists(file() + ".2"));
}

TEST_F(LogFileTest, FullDiskDropsLinesAndFailsNobody) {
  // The first line hits the limit in its middle.
  {
    const FullDisk full(100);
    log().write(debugLine("t", std::string(500, 'a')));
    log().write(debugLine("t", "lost"));
  }
  log().write(debugLine("t", "back again"));
  const std::vector<std::string> found = lines();
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].size(), 100U);
  EXPECT_TRUE(matches(found[1], timePattern + R"(.*\[t\] back again)")) << found[1];
}

TEST_F(LogFileTest, LogThatCannotBeOpenedGoesToStandardError) {
  fs::remove(file());
  fs::create_directory(file());
  ::testing::internal::CaptureStderr();
  services_ = open();
  if (services_ != nullptr) log().write(debugLine("t", "where people look"));
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("[t] where people look\n"), std::string::npos);
  ASSERT_NE(services_, nullptr);
  Client own;
  EXPECT_TRUE(succeeded(services_->inventory->ownClient(own)));
}

TEST_F(LogFileTest, EventsAreToldWithTheirSentence) {
  ASSERT_TRUE(succeeded(services_->events->raise({Severity::critical, 0x57000056, 3, {"no such\nfile"}})));
  ASSERT_TRUE(succeeded(services_->events->raise({Severity::information, 0x57000020, 0, {"a,b", "default"}})));
  const std::vector<std::string> found = lines();
  ASSERT_EQ(found.size(), 2U);
  EXPECT_NE(found[0].find(R"( 3 E [Event] )"), std::string::npos) << found[0];
  EXPECT_NE(found[0].find(R"(no such\nfile)"), std::string::npos) << found[0];
  EXPECT_NE(found[1].find(R"( 0 D0 [Event] )"), std::string::npos) << found[1];
}

}  // namespace
}  // namespace orrery::test
