#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "orrery/platform/export.h"

namespace orrery::platform {

/// A Unix account, looked up before a fork: the name service takes locks that a child could wait for without end.
struct Account {
  uid_t uid = 0;
  gid_t gid = 0;
  std::vector<gid_t> groups;  ///< supplementary groups, the primary one included
};

enum class AccountLookup {
  found,
  unknown,  ///< the name service knows no such account
  failed,   ///< the name service could not answer; errno tells why
};

/// An answer of "found" may be up to ten seconds old. May be called from several threads.
ORRERY_PLATFORM_EXPORT AccountLookup findAccount(const std::string& name, Account& account);

}  // namespace orrery::platform
