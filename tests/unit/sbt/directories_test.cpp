// Who uses a directory that a restore is to empty, and how values reach commands.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "orrery/platform/DzProcess.h"
#include "orrery/platform/FXString.h"
#include "orrery/platform/arguments.h"

#include "sbt/command_values.h"
#include "sbt/directory_users.h"
#include "sbt/sbt_fixture.h"

namespace orrery::test {
namespace {

using namespace mysql::sbt;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

TEST(DirectoryUser, IsWhoeverHasSomethingInIt) {
  const TemporaryDirectory folder;
  const std::string data = folder / "data";
  fs::create_directories(data + "/shop");
  fs::create_directory_symlink(data, folder / "link");
  const struct {
    const char* name;
    const char* place;
    std::string target;
    bool uses;
  } cases[] = {
      {"current directory", "cwd", data, true},
      {"current directory below", "cwd", data + "/shop", true},
      {"current directory by another path", "cwd", folder / "link", true},
      {"root", "root", data, true},
      {"open file", "fd/3", data + "/ibdata1", true},
      {"removed file", "fd/3", data + "/ibtmp1 (deleted)", true},
      {"the removed directory itself", "cwd", data + " (deleted)", true},
      {"mapped file", "maps", "7f00-7f01 r--p 00000000 08:01 77   " + data + "/aria_log\n", true},
      {"elsewhere", "cwd", folder.path(), false},
      {"a name that begins alike", "fd/3", data + "2/ibdata1", false},
      {"no file", "fd/3", "socket:[17]", false},
      {"another mapping", "maps", "7f00-7f01 r--p 00000000 08:01 77   /usr/lib/libc.so\n", false},
  };
  for (const auto& row : cases) {
    const TemporaryDirectory proc;
    for (const char* const name : {"self", "sys", "12", "13"}) fs::create_directories(proc / name + "/fd");
    writeFile(proc / "13/comm", "mariadbd\n");
    for (const char* const process : {"/12/", "/13/"}) {
      const std::string place = proc.path() + process + row.place;
      if (std::string(row.place) == "maps") {
        writeFile(place, row.target);
      } else {
        fs::create_symlink(row.target, place);
      }
    }
    EXPECT_EQ(directoryUser(folder / "link", 12, Whom::everybody, proc.path()),
              row.uses ? "process 13 (mariadbd) works in " + (folder / "link") : "")
        << row.name << ": 12 is left out";
    EXPECT_EQ(directoryUser(data, 12, Whom::allButServers, proc.path()), "") << row.name;
    writeFile(proc / "13/comm", "tar\n");
    EXPECT_EQ(directoryUser(data, 12, Whom::allButServers, proc.path()).empty(), !row.uses) << row.name;
  }
  EXPECT_THAT(directoryUser(data, 1, Whom::everybody, folder / "none"), HasSubstr("cannot be listed"));
}

TEST(DirectoryUser, MayBeOneThatCannotBeLookedInto) {
  // The directory belongs to root, and whoever looks is not root.
  const struct {
    const char *name, *program, *account;
    bool counts, countsBeforehand;
  } cases[] = {
      {"a server of another account", "mariadbd", "4711", true, false},
      {"its script", "mysqld_safe", "4711", true, false},
      {"a program that watches one", "mysqld_exporter", "4711", false, false},
      {"the directory's account", "tar", "0", true, true},
      {"another account", "tar", "4711", false, false},
      {"a server that tells no account", "mysqld", "", true, false},
      {"nothing known", "tar", "", false, false},
  };
  for (const auto& row : cases) {
    const TemporaryDirectory proc;
    fs::create_directories(proc / "13/fd");
    fs::permissions(proc.path(), fs::perms(0755));
    writeFile(proc / "13/comm", std::string(row.program) + "\n", 0644);
    writeFile(proc / "13/status", "Name:\tx\nUid:\t77\t" + std::string(row.account) + "\t77\t77\n", 0644);
    fs::permissions(proc / "13/fd", fs::perms::none);
    EXPECT_TRUE(holdsForOrdinaryUser([&] {
      const std::string user = directoryUser("/usr", 1, Whom::everybody, proc.path());
      const std::string told = "whether process 13 (" + std::string(row.program) + ") works in /usr cannot";
      return (row.counts ? user.rfind(told, 0) == 0 : user.empty()) &&
             directoryUser("/usr", 1, Whom::allButServers, proc.path()).empty() != row.countsBeforehand;
    })) << row.name;
    fs::permissions(proc / "13/fd", fs::perms(0700));
  }
}

TEST(DirectoryLocker, IsWhoeverHoldsALockOnAServersFile) {
  const TemporaryDirectory proc;  // no process can be seen in it
  const struct {
    const char* file;
    bool found;
  } cases[] = {{"ibdata1", true},          {"ib_logfile0", true},       {"ibtmp1", true},     {"undo001", true},
               {"aria_log_control", true}, {"mysql.ibd", true},         {"shop/t.ibd", true}, {"#redo/#ib_redo1", true},
               {"error.log", false},       {"shop/deeper/t.ibd", false}};
  for (const auto& row : cases) {
    const TemporaryDirectory folder;
    fs::create_directories(folder / "shop/deeper");
    fs::create_directories(folder / "#redo");
    writeFile(folder / "ibdata2", "free");
    writeFile(folder / "shop/u.ibd", "free");
    ASSERT_EQ(mkfifo((folder / "ib_pipe").c_str(), 0600), 0);
    const std::string file = folder / row.file;
    {
      const LockHolder holder(file);
      EXPECT_EQ(directoryLocker(folder.path()), row.found ? "process " + std::to_string(holder.pid()) + " (" +
                                                                FXString::Trim(readFile("/proc/self/comm")) +
                                                                ") holds a lock on " + file
                                                          : "")
          << row.file;
    }
    EXPECT_EQ(directoryLocker(folder.path()), "") << row.file;
  }
  EXPECT_EQ(directoryLocker(proc / "none"), "");
}

TEST(DirectoryLocker, OfAnotherNamespaceOrWithoutANumberIsTold) {
  const TemporaryDirectory folder;
  writeFile(folder / "ibdata1", "x");
  // A lock that is tied to the open file, and conflicts within one process too.
  const platform::OwnFd file(open((folder / "ibdata1").c_str(), O_RDWR | O_CLOEXEC));
  struct flock lock {};
  lock.l_type = F_WRLCK;
  ASSERT_EQ(fcntl(file.get(), F_OFD_SETLK, &lock), 0);
  EXPECT_EQ(directoryLocker(folder.path()),
            "a process that cannot be seen here holds a lock on " + (folder / "ibdata1"));
}

TEST(DirectoryLocker, FileThatCannotBeAskedIsTold) {
  const TemporaryDirectory folder;
  fs::permissions(folder.path(), fs::perms(0755));
  writeFile(folder / "ibdata1", "x", 0000);
  EXPECT_TRUE(holdsForOrdinaryUser([&] {
    return directoryLocker(folder.path()) ==
           "whether " + (folder / "ibdata1") + " is locked cannot be told: Permission denied";
  }));
}

TEST(DirectoryLocker, PassesOverWhatIsNoServers) {
  const TemporaryDirectory folder;
  fs::permissions(folder.path(), fs::perms(0755));
  for (const char* const name : {"lost+found", "shop"}) {
    fs::create_directory(folder / name);
    fs::permissions(folder / name, fs::perms::none);
    EXPECT_EQ(asOrdinaryUser([&] {
                const std::string told = "what is locked in " + (folder / name) + " cannot be told: Permission denied";
                return directoryLocker(folder.path()) == (std::string(name) == "shop" ? told : "") ? 0 : 1;
              }),
              0)
        << name;
  }
  if (getuid() != 0) return;  // only root can make a folder of root's in another's
  ASSERT_EQ(chown(folder.path().c_str(), 4711, 4711), 0);
  EXPECT_EQ(asOrdinaryUser([&] { return directoryLocker(folder.path()).empty() ? 0 : 1; }), 0);
}

TEST(ServerProcesses, AreToldByTheLocksAndEndWithTheServer) {
  const TemporaryDirectory folder;
  const TemporaryDirectory proc;
  const std::string data = folder / "data";
  const std::string other = folder / "other";
  fs::create_directories(data);
  fs::create_directories(other);
  const LockHolder holder(data + "/ibdata1");
  const auto add = [&](pid_t id, const char* program, int parent) {
    fs::create_directories(proc / std::to_string(id) + "/fd");
    writeFile(proc / std::to_string(id) + "/comm", std::string(program) + "\n");
    writeFile(proc / std::to_string(id) + "/status", "Uid:\t0\t0\nPPid:\t" + std::to_string(parent) + "\n");
  };
  constexpr pid_t script = 5000000;  // above all numbers of processes
  add(holder.pid(), "mariadbd", script);
  add(script, "mysqld_safe", 1);
  add(script + 1, "mysqld_safe_hel", script);
  add(script + 2, "mariadbd", 1);
  add(script + 3, "logger", script);
  const auto itsOwn = testing::UnorderedElementsAre(holder.pid(), script, script + 1);
  EXPECT_THAT(serverProcesses(data, "", proc.path()), itsOwn);
  EXPECT_THAT(serverProcesses(data, data + "/", proc.path()), itsOwn);
  EXPECT_THAT(serverProcesses(other, data, proc.path()), itsOwn) << "it has its data elsewhere";
  EXPECT_THAT(serverProcesses(data, other, proc.path()), IsEmpty()) << "another one's directory";
  // Its root is another one, in which the directory has another name.
  fs::create_directory_symlink(folder.path(), proc / std::to_string(holder.pid()) + "/root");
  EXPECT_THAT(serverProcesses(data, "/data", proc.path()), itsOwn);
  fs::remove(proc / std::to_string(holder.pid()) + "/root");

  const std::string held = " holds a lock on " + data + "/ibdata1";
  const std::string named = "process " + std::to_string(holder.pid()) + " (";
  EXPECT_EQ(whoStays(data, 1, {holder.pid()}, proc.path()), "");
  EXPECT_EQ(whoStays(data, 1, {}, proc.path()), "") << "nobody knows better";
  EXPECT_EQ(whoStays(data, 1, {script + 2}, proc.path()), named + "mariadbd)" + held);
  EXPECT_EQ(serverIn(data, 1, proc.path()), named + "mariadbd)" + held);
  add(holder.pid(), "tar", 1);
  EXPECT_THAT(serverProcesses(data, "", proc.path()), IsEmpty());
  EXPECT_EQ(whoStays(data, 1, {}, proc.path()), named + "tar)" + held);
  EXPECT_EQ(serverIn(data, 1, proc.path()), "");
}

TEST(ServersElsewhere, AreThoseBesideTheOneThatHasItsFilesLocked) {
  const TemporaryDirectory folder;
  const TemporaryDirectory proc;
  for (const std::string& path : {folder.path(), proc.path()}) fs::permissions(path, fs::perms(0755));
  const std::string data = folder / "data";
  fs::create_directories(data);
  const LockHolder holder(data + "/ibdata1");
  const std::string server = proc / std::to_string(holder.pid());
  for (const auto& [path, program] : {std::pair(server, "mariadbd"), {proc / "13", "mysqld"}, {proc / "14", "tar"}}) {
    fs::create_directories(path + "/fd");
    writeFile(path + "/comm", std::string(program) + "\n", 0644);
    writeFile(path + "/status", "Uid:\t4711\t4711\n", 0644);
    fs::permissions(path + "/fd", fs::perms::none);
  }
  const std::vector<pid_t> known{holder.pid()};
  EXPECT_THAT(serversElsewhere(data, known, proc.path()), testing::ElementsAre(13));
  EXPECT_THAT(serversElsewhere(data, {12}, proc.path()), IsEmpty()) << "its locks tell nothing of this directory";
  EXPECT_TRUE(holdsForOrdinaryUser(
      [&] { return whoStays(data, 1, known, proc.path()).empty() && !whoStays(data, 1, {12}, proc.path()).empty(); }));
  fs::permissions(server + "/fd", fs::perms(0700));
  fs::remove_all(server);
  EXPECT_TRUE(holdsForOrdinaryUser([&] {
    return directoryUser(data, 1, Whom::everybody, proc.path(), {13}).empty() &&
           !directoryUser(data, 1, Whom::everybody, proc.path(), {14}).empty();
  }));
  for (const char* const hidden : {"13/fd", "14/fd"}) fs::permissions(proc / hidden, fs::perms(0700));
  fs::create_symlink(data, proc / "13/cwd");
  EXPECT_NE(directoryUser(data, 1, Whom::everybody, proc.path(), {13}), "") << "it is seen there";
}

TEST(IsOfAnotherMachine, ServerThatNobodyHereIs) {
  const TemporaryDirectory folder;
  const TemporaryDirectory proc;
  const std::string data = folder / "data";
  fs::create_directories(data);
  fs::create_directories(folder / "other");
  fs::create_directories(proc / "13/fd");
  writeFile(proc / "13/comm", "mariadbd\n");
  EXPECT_TRUE(isOfAnotherMachine(data, data + "/", 1, proc.path()));
  EXPECT_TRUE(isOfAnotherMachine(folder / "none", folder / "none/", 1, proc.path()));
  EXPECT_FALSE(isOfAnotherMachine(data, folder / "other", 1, proc.path()));
  EXPECT_FALSE(isOfAnotherMachine(data, "", 1, proc.path()));
  fs::create_symlink(data, proc / "13/cwd");
  EXPECT_FALSE(isOfAnotherMachine(data, data, 1, proc.path())) << "one that locks nothing works in it";
  fs::remove(proc / "13/cwd");
  const LockHolder holder(data + "/ibdata1");
  EXPECT_FALSE(isOfAnotherMachine(data, data, 1, proc.path()));
}

TEST(WhoStays, IsNotTheServerThatGoes) {
  const struct {
    const char* name;
    const char* program;
    bool isServer, someIsKnown, hides;
    const char* stays;
  } cases[] = {
      {"the server", "mariadbd", true, true, false, ""},
      {"the server, hidden", "mariadbd", true, true, true, ""},
      {"another server", "mariadbd", false, true, false, "process 13 (mariadbd) works in "},
      {"another server, hidden", "mysqld", false, true, true, "whether process 13 (mysqld) works in "},
      {"some server", "mysqld", false, false, false, ""},
      {"some server, hidden", "mysqld", false, false, true, "whether process 13 (mysqld) works in "},
      {"another program", "tar", false, true, false, "process 13 (tar) works in "},
      {"another program, hidden", "tar", false, true, true, ""},
  };
  for (const auto& row : cases) {
    const TemporaryDirectory proc;
    fs::permissions(proc.path(), fs::perms(0755));
    fs::create_directories(proc / "13/fd");
    writeFile(proc / "13/comm", std::string(row.program) + "\n", 0644);
    writeFile(proc / "13/status", "Uid:\t4711\t4711\n", 0644);
    fs::create_symlink("/usr/lib/x", proc / "13/fd/3");
    if (row.hides) fs::permissions(proc / "13/fd", fs::perms::none);
    const std::vector<pid_t> server = {row.isServer ? 13 : 12};
    EXPECT_EQ(asOrdinaryUser([&] {
                const std::string user =
                    whoStays("/usr/lib", 1, row.someIsKnown ? server : std::vector<pid_t>(), proc.path());
                return (*row.stays == '\0' ? user.empty() : user.rfind(row.stays, 0) == 0) ? 0 : 1;
              }),
              0)
        << row.name;
    fs::permissions(proc / "13/fd", fs::perms(0700));
  }
}

TEST(DirectoryUser, IsNoneThatHasAnotherDirectoryAtThatPath) {
  const TemporaryDirectory folder;
  const TemporaryDirectory proc;
  const TemporaryDirectory container;
  fs::create_directories(proc / "13/fd");
  writeFile(proc / "13/comm", "mariadbd\n");
  fs::create_symlink(folder / "ibdata1", proc / "13/fd/3");
  const std::string user = "process 13 (mariadbd) works in " + folder.path();
  EXPECT_EQ(directoryUser(folder.path(), 1, Whom::everybody, proc.path()), user);
  fs::create_directories(container.path() + folder.path());
  fs::create_directory_symlink(container.path(), proc / "13/root");
  EXPECT_EQ(directoryUser(folder.path(), 1, Whom::everybody, proc.path()), "");
  fs::remove(proc / "13/root");
  fs::create_directory_symlink("/", proc / "13/root");
  EXPECT_EQ(directoryUser(folder.path(), 1, Whom::everybody, proc.path()), user);
}

TEST(DirectoryUser, IsFoundAmongTheProcessesOfThisMachine) {
  const TemporaryDirectory folder;
  EXPECT_EQ(directoryUser(folder.path(), getpid()), "");
  writeFile(folder / "file", "");
  RunningProgram program({"/bin/sh", "-c", "exec 3<\"$1\"; echo >\"$1.begun\"; exec sleep 60", "sh", folder / "file"});
  ASSERT_TRUE(waitUntil([&] { return fs::exists(folder / "file.begun"); }));
  EXPECT_TRUE(waitUntil(
      [&] { return directoryUser(folder.path(), getpid()).find("process " + std::to_string(program.pid())) == 0; }));
}

TEST(CommandValues, ReachAShellAsOneWordWhateverTheyHold) {
  const std::string texts[] = {"",       "plain/path", "a b",       "it's",  "\"quoted\"", "$HOME `id` \\$(id)",
                               "-rf \\", "*",          "new\nline", "a;b&c", "\xc3\xa9"};
  for (const std::string& text : texts) {
    for (const std::string& word : {shellWord(text), "\"" + insideDoubleQuotes(text) + "\""}) {
      std::string output;
      std::string errors;
      ASSERT_EQ(DzProcess::system("printf '%s|' " + word, output, errors), 0) << errors;
      EXPECT_EQ(output, text + "|");
    }
  }
  EXPECT_EQ(shellWord("/var/lib/mysql"), "/var/lib/mysql");
  EXPECT_EQ(shellWord("a b"), "'a b'");
}

TEST(CommandValues, AreRefusedWhereSplittingWouldChangeThem) {
  const std::string texts[] = {"plain", "a b", "a,b", "it's", "a\"b", "a\nb", std::string("a\0b", 3), ""};
  const struct {
    Place place;
    bool throughShell;
    const char* refused;  // one letter for each text
  } cases[] = {
      {Place::word, false, "-x-xxxxx"}, {Place::quoted, false, "----xxx-"}, {Place::environment, false, "--x-xxx-"},
      {Place::word, true, "------xx"},  {Place::quoted, true, "------x-"},  {Place::environment, true, "--x-xxx-"},
  };
  for (const auto& row : cases) {
    for (std::size_t i = 0; i < std::size(texts); ++i) {
      const bool isRefused = !whyNotHandedOver({{"it", texts[i], row.place}}, row.throughShell).empty();
      EXPECT_EQ(isRefused, row.refused[i] == 'x') << texts[i] << " " << row.refused;
      if (isRefused || row.throughShell) continue;
      const std::string command =
          "a " + (row.place == Place::word ? texts[i] : "--value=\"" + texts[i] + "\"") + " --last";
      const auto words = platform::splitArguments(command);
      ASSERT_EQ(words.size(), 3U) << command;
      EXPECT_EQ(words[1], (row.place == Place::word ? "" : "--value=") + texts[i]);
    }
  }
}

}  // namespace
}  // namespace orrery::test
