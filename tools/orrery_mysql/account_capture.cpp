#include "account_capture.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "orrery/mysql/MySqlHelperClassesExt.h"

#include "failure.h"
#include "server_session.h"

namespace orrery::tool {
namespace {

constexpr const char* kNothing = "no accounts from";
constexpr int kUnknownVariable = 1193;
constexpr std::string_view kBetween = "`@`";
constexpr const char* kPublic = "PUBLIC";  // the role of everybody, which every server has that knows it

using Name = std::pair<std::string, std::string>;  // user and host

/// A name between quotes of either kind, those inside doubled; taken off `text`. False when there is none.
bool takeName(std::string_view& text, std::string& name) {
  if (text.empty() || (text.front() != '`' && text.front() != '"')) return false;
  const char quote = text.front();
  name.clear();
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] == quote && (i + 1 == text.size() || text[i + 1] != quote)) {
      text.remove_prefix(i + 1);
      return true;
    }
    if (text[i] == quote) ++i;
    name += text[i];
  }
  return false;
}

bool takeWord(std::string_view& text, std::string_view word) {
  if (!text.starts_with(word)) return false;
  text.remove_prefix(word.size());
  return true;
}

/// The roles that a statement "GRANT `a`@`%`,`b`@`%` TO ..." grants; none for grants of privileges.
std::vector<Name> rolesGrantedBy(std::string_view grant) {
  std::vector<Name> roles;
  if (!takeWord(grant, "GRANT ")) return roles;
  Name role;
  while (takeName(grant, role.first)) {
    role.second.clear();
    if (takeWord(grant, "@") && !takeName(grant, role.second)) break;
    roles.push_back(role);
    if (!takeWord(grant, ",")) break;
    takeWord(grant, " ");
  }
  return roles;
}

/// The text in which the library gives an account, taken apart. Back-ticks in it are not doubled, so some have two
/// readings; false for those.
bool takeApart(std::string_view listed, CapturedAccount& account) {
  if (listed.size() < 2 + kBetween.size()) return false;
  listed = listed.substr(1, listed.size() - 2);
  const std::size_t middle = listed.find(kBetween);
  if (middle == std::string_view::npos || listed.find(kBetween, middle + 1) != std::string_view::npos) return false;
  account.user = listed.substr(0, middle);
  account.host = listed.substr(middle + kBetween.size());
  return true;
}

/// Captures one account or role after the other.
class Capturing {
 public:
  Capturing(ServerSession& server, GetMySqlInfoExt& session) : server_(server), session_(session) {}

  Capture all(bool hexadecimal);

 private:
  void setSwitch(bool hexadecimal);
  void addRoles();
  void addAccounts();
  void add(CapturedAccount account, const std::string& listed);
  int readStatement(CapturedAccount& account);
  void leaveOut(const std::string& account, const std::string& reason);
  void requireThatSomethingWasRead();
  void orderByGrants();

  ServerSession& server_;
  GetMySqlInfoExt& session_;
  Capture capture_;
  std::set<std::string> roles_;
  std::size_t refused_ = 0;
};

/// Servers that do not know the switch print nothing that has to be in hexadecimal digits.
void Capturing::setSwitch(bool hexadecimal) {
  if (!hexadecimal) return;
  const int rc = server_.attempt([&](GetMySqlInfo&) { return session_.setIdentifiedWithAsHex("ON"); });
  capture_.isHexadecimal = rc == 0;
  if (rc == 0) return;
  if (session_.iErrorCode != kUnknownVariable) server_.fail(std::string(kNothing) + " " + server_.instance());
  capture_.switchRefused = {"", "the server does not know hexadecimal digits for authentication strings",
                            session_.iErrorCode, onOneLine(session_.strErrorString)};
}

void Capturing::addRoles() {
  std::vector<std::string> listed;
  server_.run(kNothing, [&](GetMySqlInfo&) { return session_.getRoles(listed); });
  for (const std::string& name : listed) {
    CapturedAccount role;
    role.isRole = true;
    std::string_view text = name;
    if (!takeName(text, role.user)) continue;
    roles_.insert(role.user);
    if (role.user != kPublic) role.statement = "CREATE ROLE " + name;
    add(std::move(role), name);
  }
}

void Capturing::addAccounts() {
  std::vector<std::string> listed;
  server_.run(kNothing, [&](GetMySqlInfo&) { return session_.getUsers(listed); });
  for (const std::string& name : listed) {
    CapturedAccount account;
    if (!takeApart(name, account)) {
      leaveOut(name, "its name holds back-ticks and can be read in two ways");
    } else if (!account.host.empty() || roles_.count(account.user) == 0) {
      add(std::move(account), name);
    }
  }
}

int Capturing::readStatement(CapturedAccount& account) {
  if (account.isRole) return 0;
  const std::string name = quotedAccount(account);
  return server_.attempt([&](GetMySqlInfo&) { return session_.getCreateUserQuery(name, account.statement); });
}

void Capturing::add(CapturedAccount account, const std::string& listed) {
  const std::string name = quotedAccount(account);
  const bool isRead = readStatement(account) == 0 && server_.attempt([&](GetMySqlInfo&) {
    return session_.getGrantQueries(name, account.grants);
  }) == 0;
  if (!isRead && isClientError(session_.iErrorCode)) {
    server_.fail(std::string("not all accounts from ") + server_.instance());
  }
  if (!isRead) {
    ++refused_;
    leaveOut(listed, account.isRole         ? "the server does not print the grants of the role"
                     : account.host.empty() ? "it has no host"
                                            : "the server does not print it");
  } else if (account.statement.empty() && account.user != kPublic) {
    leaveOut(listed, "the server has no statement for it");
  } else {
    capture_.accounts.push_back(std::move(account));
  }
}

void Capturing::leaveOut(const std::string& account, const std::string& reason) {
  capture_.leftOut.push_back({account, reason, std::max(session_.iErrorCode, 0), onOneLine(session_.strErrorString)});
  session_.clearErrors();
}

void Capturing::requireThatSomethingWasRead() {
  if (!capture_.accounts.empty() || refused_ == 0) return;
  const LeftOut& first = capture_.leftOut.front();
  const std::optional<long> number = first.number > 0 ? std::optional<long>(first.number) : std::nullopt;
  throw Failure(
      std::string(kNothing) + " " + server_.instance() + ", not one of " + std::to_string(capture_.leftOut.size()),
      first.text, "grant the instance's account SELECT on the database mysql", number);
}

/// A grant of a role wants the role. No role is granted to itself, by no way around either.
void Capturing::orderByGrants() {
  std::map<Name, std::size_t> places;
  for (std::size_t i = 0; i < capture_.accounts.size(); ++i) {
    places.emplace(Name(capture_.accounts[i].user, capture_.accounts[i].host), i);
  }
  std::vector<CapturedAccount> ordered;
  std::vector<bool> begun(capture_.accounts.size(), false);
  const auto append = [&](const auto& self, std::size_t place) -> void {
    if (begun[place]) return;
    begun[place] = true;
    for (const std::string& grant : capture_.accounts[place].grants) {
      for (const Name& role : rolesGrantedBy(grant)) {
        if (const auto found = places.find(role); found != places.end()) self(self, found->second);
      }
    }
    ordered.push_back(std::move(capture_.accounts[place]));
  };
  for (std::size_t i = 0; i < begun.size(); ++i) append(append, i);
  capture_.accounts = std::move(ordered);
}

Capture Capturing::all(bool hexadecimal) {
  server_.usePlainStatements(kNothing);
  setSwitch(hexadecimal);
  addRoles();
  addAccounts();
  server_.requirePlainStatements(kNothing);
  requireThatSomethingWasRead();
  orderByGrants();
  return std::move(capture_);
}

}  // namespace

Capture captureAccounts(ServerSession& server, bool hexadecimal) {
  return Capturing(server, server.library(kNothing)).all(hexadecimal);
}

bool isOnObject(std::string_view grant) {
  constexpr std::string_view kOn = " ON ";
  char quote = 0;
  std::size_t at = 0;
  for (; at < grant.size() && (quote != 0 || !grant.substr(at).starts_with(kOn)); ++at) {
    const char c = grant[at];
    if (quote != 0 ? c == quote : c == '`' || c == '\'' || c == '"') quote = quote != 0 ? '\0' : c;
  }
  if (at >= grant.size()) return false;
  std::string_view target = grant.substr(at + kOn.size());
  for (const std::string_view kind : {"PROCEDURE ", "FUNCTION ", "PACKAGE "}) {
    if (target.starts_with(kind)) return true;
  }
  std::string database;
  return takeName(target, database) && takeWord(target, ".") && !target.starts_with('*');
}

std::string quotedName(const std::string& name) {
  std::string text = "`";
  for (const char c : name) text.append(c == '`' ? 2 : 1, c);
  return text + "`";
}

std::string quotedAccount(const CapturedAccount& account) {
  return account.isRole ? quotedName(account.user) : quotedName(account.user) + "@" + quotedName(account.host);
}

}  // namespace orrery::tool
