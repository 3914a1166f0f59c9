#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "context.h"

namespace orrery::tool {

class ServerSession;

struct CapturedAccount {
  std::string user;  ///< of a role: its name
  std::string host;  ///< of a role: empty
  bool isRole = false;
  std::string statement;            ///< as the server prints it; of a role one that the server would take
  std::vector<std::string> grants;  ///< as the server prints them
};

struct LeftOut {
  std::string account;
  std::string reason;
  int number = 0;    ///< the server's error number; 0: none
  std::string text;  ///< the server's own words
};

struct Capture {
  bool isHexadecimal = false;  ///< authentication strings are printed in hexadecimal digits
  std::optional<LeftOut> switchRefused;
  std::vector<CapturedAccount> accounts;  ///< whom others are granted stands before them
  std::vector<LeftOut> leftOut;
};

/// The server's accounts and roles with what creates them. An account that cannot be captured does not keep the others
/// from it. `hexadecimal`: authentication strings in hexadecimal digits, where the server knows that. Throws Failure
/// when the server does not tell of any.
Capture captureAccounts(ServerSession& server, bool hexadecimal);

/// Whether a grant is one of a single table, of columns or of a routine, which must be there to be granted.
bool isOnObject(std::string_view grant);

/// `name` between back-ticks, those inside doubled.
std::string quotedName(const std::string& name);
/// An account or a role as statements name it.
std::string quotedAccount(const CapturedAccount& account);

}  // namespace orrery::tool
