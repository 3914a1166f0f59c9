#include "home_files.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "directories.h"
#include "inventory_store.h"
#include "schema/migrations.h"
#include "settings_file.h"
#include "vault.h"

namespace orrery::platform::local {
namespace {

constexpr const char* storeName = "store.db";
constexpr const char* newStoreName = ".store.db.new";

struct Part {
  const char* name;
  mode_t type;
  mode_t mode;
};

/// In the order they are made. The store is the last one: a home that has it was complete once.
constexpr Part parts[] = {
    {"tmp", S_IFDIR, 0711},     {"results", S_IFDIR, 0711},       {"log", S_IFDIR, 0700},
    {"media", S_IFDIR, 0700},   {Vault::fileName, S_IFREG, 0600}, {SettingsFile::fileName, S_IFREG, 0600},
    {storeName, S_IFREG, 0600},
};

constexpr const char* firstSettings =
    "; Settings of the agent, one \"key = value\" per line below its [section].\n"
    "; Lines that begin with ; or # are comments.\n"
    "\n"
    "[Log]\n"
    "; Highest level of messages that are recorded, 0 to 10.\n"
    "nLevel = 0\n"
    "\n"
    "[MySQL]\n";

bool isThere(int folder, const Part& part, const std::string& path) {
  struct stat status {};
  if (::fstatat(folder, part.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return false;
    throw systemFailure("look at " + path + "/" + part.name, errno);
  }
  if ((status.st_mode & S_IFMT) != part.type)
    throw Failure(Status::invalid(path + "/" + part.name + " stands in the way: a home has a " +
                                  (part.type == S_IFDIR ? "folder" : "file") + " of this name"));
  return true;
}

void makeFolder(int folder, const Part& part, const std::string& path) {
  const std::string temporary = std::string(".") + part.name + ".new";
  ::unlinkat(folder, temporary.c_str(), AT_REMOVEDIR);  // of a maker that was killed
  if (::mkdirat(folder, temporary.c_str(), 0700) != 0) throw systemFailure("make a folder in " + path, errno);
  // The mode is set before the name appears, so that the folder is never seen with another one.
  if (::fchmodat(folder, temporary.c_str(), part.mode, 0) != 0 ||
      ::renameat(folder, temporary.c_str(), folder, part.name) != 0) {
    const int error = errno;
    ::unlinkat(folder, temporary.c_str(), AT_REMOVEDIR);
    throw systemFailure("make the folder " + path + "/" + part.name, error);
  }
}

OwnFd makeEmptyFile(int folder, const std::string& name, const std::string& path) {
  ::unlinkat(folder, name.c_str(), 0);  // of a maker that was killed
  OwnFd file(::openat(folder, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) throw systemFailure("make a file in " + path, errno);
  if (::fchmod(file.get(), 0600) != 0) throw systemFailure("set the mode of a file in " + path, errno);
  return file;
}

/// Gives a finished file its name. Fails where the name is taken: nothing that is there is ever replaced.
void publish(int folder, const std::string& temporary, const char* name, const std::string& path) {
  if (::renameat2(folder, temporary.c_str(), folder, name, RENAME_NOREPLACE) == 0) return;
  // Some file systems cannot rename in this way; a second name for the file has the same effect.
  if ((errno != EINVAL && errno != ENOSYS) || ::linkat(folder, temporary.c_str(), folder, name, 0) != 0)
    throw systemFailure("make " + path + "/" + name, errno);
}

void makeFile(int folder, const Part& part, const std::string& content, const std::string& path) {
  const std::string temporary = std::string(".") + part.name + ".new";
  const OwnFd file = makeEmptyFile(folder, temporary, path);
  const TemporaryName remover(folder, temporary);
  writeWhole(file.get(), content, path + "/" + part.name);
  syncToDisk(file.get(), path + "/" + part.name);
  publish(folder, temporary, part.name, path);
}

std::string ownName(const std::string& given) {
  if (!given.empty()) return given;
  std::array<char, HOST_NAME_MAX + 1> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0) throw systemFailure("read the name of this host", errno);
  return name[0] != '\0' ? name.data() : "localhost";
}

void setAside(int folder, const std::string& name, const std::string& path) {
  const std::string aside = name + ".orphaned";
  if (::renameat(folder, name.c_str(), folder, aside.c_str()) != 0 && errno != ENOENT) {
    throw systemFailure("set " + name + " aside in " + path, errno);
  }
}

/// A journal whose store is gone belongs to another store than the new one, which would take its pages over.
void setAsideCompanions(int folder, const std::string& path) {
  const std::string store = storeName;
  for (const char* companion : {"-journal", "-wal", "-shm"}) setAside(folder, store + companion, path);
}

void makeStoreFile(int folder, const std::string& path, const std::string& clientName) {
  const std::string temporary = newStoreName;
  for (const char* companion : {"-journal", "-wal", "-shm"}) ::unlinkat(folder, (temporary + companion).c_str(), 0);
  const OwnFd file = makeEmptyFile(folder, temporary, path);
  const TemporaryName remover(folder, temporary);
  const TemporaryName removerOfJournal(folder, temporary + "-wal");
  const TemporaryName removerOfIndex(folder, temporary + "-shm");
  {
    Database database(path + "/" + temporary);
    makeStore(database);
    Status status = database.write("enter this machine", [&] { addOwnClient(database, ownName(clientName)); });
    if (!status.ok()) throw Failure(std::move(status));
    // Closing would do the same, and would not tell of a disk without room for it.
    database.execute("PRAGMA wal_checkpoint(TRUNCATE)");
  }
  setAsideCompanions(folder, path);
  syncToDisk(file.get(), path + "/" + storeName);
  publish(folder, temporary, storeName, path);
}

/// Accounts of database servers pass through the home to its tmp and results.
void letOthersPass(int folder, const std::string& path) {
  struct stat status {};
  if (::fstat(folder, &status) != 0) throw systemFailure("look at " + path, errno);
  constexpr mode_t pass = S_IXGRP | S_IXOTH;
  if ((status.st_mode & pass) == pass) return;
  if (::fchmod(folder, (status.st_mode & 07777) | pass) != 0) throw systemFailure("set the mode of " + path, errno);
}

}  // namespace

std::string absolutePath(const std::string& path) {
  std::string absolute = std::filesystem::absolute(path).lexically_normal().string();
  while (absolute.size() > 1 && absolute.back() == '/') absolute.pop_back();
  return absolute;
}

void requireTrusted(int folder, const std::string& path) {
  struct stat status {};
  if (::fstat(folder, &status) != 0) throw systemFailure("look at " + path, errno);
  if (status.st_uid != 0 && status.st_uid != ::geteuid())
    throw Failure(Status::invalid("the folder " + path + " belongs to another account (user id " +
                                  std::to_string(status.st_uid) + "); run the command as its owner or choose another"));
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
    throw Failure(Status::invalid(
        "the folder " + path + " can be written by others than its owner; run `chmod go-w` on it or choose another"));
}

std::string missingParts(int folder, const std::string& path) {
  std::string missing;
  for (const Part& part : parts)
    if (!isThere(folder, part, path)) missing += (missing.empty() ? "" : ", ") + std::string(part.name);
  return missing;
}

bool hasAnyPart(int folder) {
  for (const Part& part : parts) {
    struct stat status {};
    if (::fstatat(folder, part.name, &status, AT_SYMLINK_NOFOLLOW) == 0) return true;
  }
  return false;
}

void makeMissingParts(int folder, const std::string& path, const std::string& clientName) {
  letOthersPass(folder, path);
  for (const Part& part : parts) {
    if (isThere(folder, part, path)) continue;
    if (part.type == S_IFDIR)
      makeFolder(folder, part, path);
    else if (std::string_view(part.name) == Vault::fileName)
      makeFile(folder, part, Vault::makeKey(), path);
    else if (std::string_view(part.name) == SettingsFile::fileName)
      makeFile(folder, part, firstSettings, path);
    else
      makeStoreFile(folder, path, clientName);
  }
  syncToDisk(folder, path);
}

}  // namespace orrery::platform::local
