#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "fixtures.h"

namespace orrery::test {
namespace {

using namespace platform;
namespace fs = std::filesystem;

unsigned modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

const std::vector<std::string> allParts{"log", "media", "results", "settings.ini", "store.db", "tmp", "vault.key"};

TEST_F(HomeTest, IsMadeWithItsPartsAndModesWhateverTheUmask) {
  const mode_t earlier = ::umask(077);
  const Status status = createHome(folder_ / "a/b/home", "me");
  ::umask(earlier);
  ASSERT_TRUE(succeeded(status));
  const std::string home = folder_ / "a/b/home";
  EXPECT_EQ(namesIn(home), allParts);
  for (const char* part : {"", "/tmp", "/results"}) EXPECT_EQ(modeOf(home + part), 0711U) << part;
  for (const char* part : {"/log", "/media"}) EXPECT_EQ(modeOf(home + part), 0700U) << part;
  for (const char* part : {"/store.db", "/settings.ini", "/vault.key"}) EXPECT_EQ(modeOf(home + part), 0600U) << part;
  EXPECT_EQ(fs::file_size(home + "/vault.key"), 32U);
  EXPECT_TRUE(isHome(home));
}

TEST_F(HomeTest, ExistingHomeStaysAsItIs) {
  create();
  const std::string key = readFile(inHome("vault.key"));
  writeFile(inHome("settings.ini"), "[MySQL]\na = 1\n", 0600);
  ASSERT_TRUE(succeeded(createHome(home(), "another name")));
  EXPECT_EQ(readFile(inHome("vault.key")), key);
  EXPECT_EQ(readFile(inHome("settings.ini")), "[MySQL]\na = 1\n");
  const auto services = open();
  ASSERT_NE(services, nullptr);
  Client own;
  ASSERT_TRUE(succeeded(services->inventory->ownClient(own)));
  EXPECT_EQ(own.name, "thisclient");
}

TEST_F(HomeTest, UnnamedClientGetsTheNameOfTheHost) {
  ASSERT_TRUE(succeeded(createHome(home(), "")));
  const auto services = open();
  ASSERT_NE(services, nullptr);
  Client own;
  ASSERT_TRUE(succeeded(services->inventory->ownClient(own)));
  char name[256] = {};
  ASSERT_EQ(::gethostname(name, sizeof name - 1), 0);
  EXPECT_EQ(own.name, name);
}

TEST_F(HomeTest, MissingHomeSaysWhatToRun) {
  std::shared_ptr<const Services> services;
  EXPECT_TRUE(failed(openHome(home(), services), statusUnavailable, "orrery-mysql init"));
  ASSERT_TRUE(fs::create_directory(home()));
  EXPECT_TRUE(failed(openHome(home(), services), statusUnavailable, "orrery-mysql init"));
  EXPECT_EQ(services, nullptr);
  EXPECT_FALSE(isHome(home()));
}

TEST_F(HomeTest, IncompleteHomeIsRefusedThenCompleted) {
  for (const std::string& part : allParts) {
    SCOPED_TRACE(part);
    create();
    fs::remove_all(inHome(part));
    std::shared_ptr<const Services> services;
    EXPECT_TRUE(failed(openHome(home(), services), statusUnavailable, part));
    EXPECT_FALSE(isHome(home()));
    ASSERT_TRUE(succeeded(createHome(home(), "thisclient")));
    EXPECT_TRUE(isHome(home()));
    EXPECT_NE(open(), nullptr);
  }
}

TEST_F(HomeTest, PathsThatCannotBeAHome) {
  writeFile(folder_ / "file", "x");
  ASSERT_TRUE(fs::create_directory(folder_ / "open"));
  ASSERT_EQ(::chmod((folder_ / "open").c_str(), 0777), 0);
  ASSERT_TRUE(fs::create_directory(folder_ / "group"));
  ASSERT_EQ(::chmod((folder_ / "group").c_str(), 0770), 0);
  ASSERT_TRUE(fs::create_directories(folder_ / "blocked/store.db"));
  fs::create_directory_symlink("/tmp", folder_ / "linkpart");
  ASSERT_TRUE(fs::create_directory(folder_ / "linked"));
  fs::create_directory_symlink("/tmp", folder_ / "linked/tmp");
  for (const std::string& path : {std::string(), folder_ / "file", folder_ / "file/below", folder_ / "open",
                                  folder_ / "group", folder_ / "blocked", folder_ / "linked",
                                  folder_ / std::string(300, 'x'), (folder_ / "nul") + std::string("\0x", 2)}) {
    SCOPED_TRACE(path);
    std::shared_ptr<const Services> services;
    EXPECT_TRUE(failed(createHome(path, "me"), statusInvalid));
    EXPECT_FALSE(openHome(path, services).ok());
    EXPECT_FALSE(isHome(path));
  }
  EXPECT_EQ(readFile(folder_ / "file"), "x");
  EXPECT_TRUE(namesIn(folder_ / "open").empty());
}

TEST_F(HomeTest, FolderOfAnotherAccountIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a folder to another account";
  create();
  ASSERT_EQ(::chown(home().c_str(), 65534, 65534), 0);
  std::shared_ptr<const Services> services;
  EXPECT_TRUE(failed(createHome(home(), ""), statusInvalid, "65534"));
  EXPECT_TRUE(failed(openHome(home(), services), statusInvalid, "65534"));
}

TEST_F(HomeTest, RelativePathIsMadeAbsolute) {
  const std::string earlier = fs::current_path();
  fs::current_path(folder_.path());
  const Status status = createHome("./x/../home/", "me");
  std::shared_ptr<const Services> services;
  const Status opened = openHome("home", services);
  fs::current_path(earlier);
  ASSERT_TRUE(succeeded(status));
  ASSERT_TRUE(succeeded(opened));
  std::string path;
  ASSERT_TRUE(succeeded(services->directories->home(path)));
  EXPECT_EQ(path, fs::weakly_canonical(home()).string());
}

TEST_F(HomeTest, CreationKilledAnywhereIsCompletedLater) {
  constexpr int stride = 7;
  int n = 1;
  for (;; n += stride) {
    const std::string path = folder_ / ("home" + std::to_string(n));
    const bool killed = killedAtSystemCall(n, [&] {
      if (!createHome(path, "me").ok()) ::_exit(1);
    });
    if (!killed) break;
    SCOPED_TRACE("killed at system call " + std::to_string(n));
    if (isHome(path)) {
      std::shared_ptr<const Services> services;
      ASSERT_TRUE(succeeded(openHome(path, services)));
    }
    ASSERT_TRUE(succeeded(createHome(path, "me")));
    ASSERT_EQ(namesIn(path), allParts);
    std::shared_ptr<const Services> services;
    ASSERT_TRUE(succeeded(openHome(path, services)));
    Client own;
    ASSERT_TRUE(succeeded(services->inventory->ownClient(own)));
    ASSERT_EQ(own.name, "me");
    ASSERT_EQ(modeOf(path), 0711U);
    services.reset();
    fs::remove_all(path);
  }
  EXPECT_GT(n, 50) << "creation makes more system calls than that, so the kills were not delivered";
}

TEST_F(HomeTest, ManyCreatorsMakeOneHome) {
  inChildrenTogether(6, [&](int) {
    std::shared_ptr<const Services> services;
    return createHome(home(), "me").ok() && openHome(home(), services).ok() ? 0 : 1;
  });
  EXPECT_EQ(namesIn(home()), allParts);
}

/// For children, which have one thread; null removes the variable.
void setVariable(const char* name, const char* value) {
  if (value != nullptr)
    ::setenv(name, value, 1);  // NOLINT(concurrency-mt-unsafe)
  else
    ::unsetenv(name);  // NOLINT(concurrency-mt-unsafe)
}

TEST(DefaultHome, FollowsTheEnvironment) {
  const auto homeWith = [](const char* own, const char* state) {
    setVariable("ORRERY_HOME", own);
    setVariable("XDG_STATE_HOME", state);
    setVariable("HOME", "/home/me");
    return defaultHome();
  };
  EXPECT_EQ(asOrdinaryUser([&] { return homeWith("/somewhere/else", "/state") == "/somewhere/else" ? 0 : 1; }), 0);
  EXPECT_EQ(asOrdinaryUser([&] { return homeWith("", "/state") == "/state/orrery" ? 0 : 1; }), 0);
  EXPECT_EQ(asOrdinaryUser([&] { return homeWith(nullptr, nullptr) == "/home/me/.local/state/orrery" ? 0 : 1; }), 0);
  if (::geteuid() == 0) {
    EXPECT_EQ(inChild([&] { return homeWith(nullptr, "/state") == "/var/lib/orrery" ? 0 : 1; }), 0);
  }
}

}  // namespace
}  // namespace orrery::test
