#include "process/account.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>

namespace orrery::mysql {
namespace {

constexpr std::size_t largestEntry = 1024 * 1024;

/// What getpwnam_r answers, on some systems, instead of "no entry" (its manual page names them).
bool meansUnknown(int error) {
  return error == 0 || error == ENOENT || error == ESRCH || error == EBADF || error == EPERM;
}

AccountLookup findEntry(const std::string& name, Account& account) {
  std::vector<char> buffer(1024);
  for (;;) {
    passwd entry{};
    passwd* found = nullptr;
    const int error = getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found);
    if (error == EINTR) continue;
    if (error == ERANGE && buffer.size() < largestEntry) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (found == nullptr) {
      errno = error;
      return meansUnknown(error) ? AccountLookup::unknown : AccountLookup::failed;
    }
    account.uid = entry.pw_uid;
    account.gid = entry.pw_gid;
    return AccountLookup::found;
  }
}

void findGroups(const std::string& name, Account& account) {
  int count = 32;
  account.groups.resize(static_cast<std::size_t>(count));
  while (getgrouplist(name.c_str(), account.gid, account.groups.data(), &count) < 0) {
    account.groups.resize(static_cast<std::size_t>(count));
  }
  account.groups.resize(static_cast<std::size_t>(count));
}

}  // namespace

AccountLookup findAccount(const std::string& name, Account& account) {
  const AccountLookup result = findEntry(name, account);
  if (result == AccountLookup::found) findGroups(name, account);
  return result;
}

}  // namespace orrery::mysql
