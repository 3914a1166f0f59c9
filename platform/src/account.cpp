#include "orrery/platform/account.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <mutex>

#include "orrery/platform/services.h"

namespace orrery::platform {
namespace {

constexpr std::size_t largestEntry = std::size_t{1024} * 1024;

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

/// The last account found, for a short while: finding the groups of an account asks every source of the name service,
/// which costs more than the start of a client, and an agent asks for the same account with every statement.
class LastFound {
 public:
  bool get(const std::string& name, Account& account) {
    const std::lock_guard lock(mutex_);
    const std::int64_t age = services().clock->now() - foundAt_;
    if (name_ != name || age < 0 || age > lifetimeMicroseconds) return false;
    account = account_;
    return true;
  }
  void put(const std::string& name, const Account& account) {
    const std::lock_guard lock(mutex_);
    name_ = name;
    account_ = account;
    foundAt_ = services().clock->now();
  }

 private:
  static constexpr std::int64_t lifetimeMicroseconds = std::int64_t{10} * 1000000;

  std::mutex mutex_;
  std::string name_;
  Account account_;
  std::int64_t foundAt_ = 0;
};

LastFound& lastFound() {
  static LastFound last;
  return last;
}

}  // namespace

AccountLookup findAccount(const std::string& name, Account& account) {
  if (lastFound().get(name, account)) return AccountLookup::found;
  const AccountLookup result = findEntry(name, account);
  if (result == AccountLookup::found) {
    findGroups(name, account);
    lastFound().put(name, account);
  }
  return result;
}

}  // namespace orrery::platform
