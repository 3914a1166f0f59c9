#pragma once

#include <string>
#include <vector>

#include "orrery/platform/account.h"

namespace orrery::mysql {

/// What a child needs and must not work out itself: between fork and exec it may take no heap and no lock.
struct ChildPlan {
  std::vector<std::string> arguments;
  std::vector<char*> argv;  ///< into `arguments`, ended by a null
  bool takesAccount = false;
  platform::Account account;
  std::string errFile;  ///< room for the path, to be filled in the child
};

}  // namespace orrery::mysql
