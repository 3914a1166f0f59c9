// orrery-mysql accounts: the statements that make a server's accounts and roles on another server.

#include <algorithm>
#include <memory>
#include <string_view>

#include <CLI/CLI.hpp>

#include "account_capture.h"
#include "context.h"
#include "failure.h"
#include "output_file.h"
#include "printable.h"
#include "server_session.h"
#include "text_json.h"

namespace orrery::tool {
namespace {

struct Arguments {
  std::string instance;
  std::string as;  ///< empty: what the format says
  std::string output = "-";
  bool hexadecimal = true;
};

/// In front of the statements: how they are written, and nothing else of the mode of whoever runs them.
std::string headOf(const std::string& instance) {
  return "-- Accounts and roles of " + printable(instance) +
         ".\n"
         "-- Accounts of the hosts localhost and 127.0.0.1 are not among them.\n"
         "-- Accounts that are there already get these grants and, where a grant names one, its password.\n"
         "SET NAMES utf8mb4;\n"
         "SET SESSION sql_mode = '" +
         std::string(plainMode) + "';\n";
}

/// An account that is there, root on the name of the machine for one, keeps what it has but for the password, which
/// MariaDB sets anew with the first grant.
std::string creationOf(const CapturedAccount& account) {
  for (const std::string_view words : {"CREATE USER ", "CREATE ROLE "}) {
    if (!account.statement.starts_with(words)) continue;
    return std::string(words) + "IF NOT EXISTS " + account.statement.substr(words.size());
  }
  return account.statement;
}

/// MariaDB prints the password with the first grant as well, and a password that is set has not expired. Nothing for
/// accounts that need no such word behind their grants.
std::string expiryOf(const CapturedAccount& account) {
  constexpr std::string_view words = "CREATE USER ";
  const auto setsPassword = [](const std::string& grant) { return grant.find(" IDENTIFIED ") != std::string::npos; };
  if (account.statement.find(" PASSWORD EXPIRE") == std::string::npos || !account.statement.starts_with(words) ||
      std::none_of(account.grants.begin(), account.grants.end(), setsPassword)) {
    return {};
  }
  return "ALTER USER " + account.statement.substr(words.size()) + ";\n";
}

/// Stands over an account's statements. Escaped, so that no name can end the comment.
std::string titleOf(const CapturedAccount& account) {
  return std::string("\n-- ") + (account.isRole ? "role " : "account ") + printable(quotedAccount(account)) + "\n";
}

/// The account's grants of one kind.
std::string grantsOf(const CapturedAccount& account, bool onObjects) {
  std::string text;
  for (const std::string& grant : account.grants) {
    if (isOnObject(grant) == onObjects) text += grant + ";\n";
  }
  return text;
}

/// All are made before anything is granted; last comes what fails on a server without the databases, where a client
/// stops at the first failure.
std::string sqlOf(const std::string& instance, const Capture& capture) {
  std::string text = headOf(instance);
  for (const CapturedAccount& account : capture.accounts) {
    if (!account.statement.empty()) text += titleOf(account) + creationOf(account) + ";\n";
  }
  text += "\n-- What they are granted.\n";
  for (const CapturedAccount& account : capture.accounts) {
    const std::string grants = grantsOf(account, false) + expiryOf(account);
    if (!grants.empty()) text += titleOf(account) + grants;
  }
  text += "\n-- Grants of single tables, columns and routines, which have to be there: restore the databases first.\n";
  for (const CapturedAccount& account : capture.accounts) {
    if (const std::string grants = grantsOf(account, true); !grants.empty()) text += titleOf(account) + grants;
  }
  return text;
}

Json toJson(const LeftOut& leftOut) {
  Json document;
  document["account"] = leftOut.account.empty() ? Json(nullptr) : Json(leftOut.account);
  document["reason"] = leftOut.reason;
  document["number"] = leftOut.number == 0 ? Json(nullptr) : Json(leftOut.number);
  document["text"] = leftOut.text.empty() ? Json(nullptr) : Json(leftOut.text);
  return document;
}

Json toJson(const CapturedAccount& account) {
  Json document;
  addText(document, "user", account.user);
  document["host"] = account.isRole ? Json(nullptr) : Json(account.host);
  document["role"] = account.isRole;
  if (account.statement.empty()) {
    document["statement"] = nullptr;
  } else {
    addText(document, "statement", account.statement);
  }
  addTexts(document, "grants", account.grants);
  return document;
}

std::string jsonOf(const std::string& instance, const Capture& capture) {
  Json document;
  document["instance"] = instance;
  document["hexadecimal"] = capture.isHexadecimal;
  document["sql_mode"] = plainMode;
  document["accounts"] = Json::array();
  for (const CapturedAccount& account : capture.accounts) document["accounts"].push_back(toJson(account));
  document["left_out"] = Json::array();
  if (capture.switchRefused) document["left_out"].push_back(toJson(*capture.switchRefused));
  for (const LeftOut& leftOut : capture.leftOut) document["left_out"].push_back(toJson(leftOut));
  document["hosts_left_out"] = {"localhost", "127.0.0.1"};
  return dumped(document, 2) + "\n";
}

std::string reasonText(const LeftOut& leftOut) {
  std::string text = leftOut.reason;
  if (leftOut.number != 0) text += ": [" + std::to_string(leftOut.number) + "]";
  if (!leftOut.text.empty()) text += (leftOut.number == 0 ? ": " : " ") + leftOut.text;
  return text;
}

void tell(const Context& context, const Capture& capture) {
  context.note("accounts of the hosts localhost and 127.0.0.1 are not captured; how many there are was not asked");
  if (capture.switchRefused) context.note(reasonText(*capture.switchRefused));
  for (const LeftOut& leftOut : capture.leftOut) {
    context.note("the account " + leftOut.account + " is left out, " + reasonText(leftOut));
  }
}

void accounts(Context& context, const Arguments& arguments) {
  const std::string as = resultForm(context, arguments.as, "sql");
  Destination output(context, "the file of the accounts", arguments.output);
  ServerSession server(context, arguments.instance);
  const Capture capture = captureAccounts(server, arguments.hexadecimal);
  output.write(as == "sql" ? sqlOf(server.instance(), capture) : jsonOf(server.instance(), capture));
  output.finish();
  tell(context, capture);
}

}  // namespace

void addAccountsCommand(CLI::App& program, Action& chosen) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command =
      program.add_subcommand("accounts", "Statements that make the server's accounts and roles elsewhere");
  command->add_option("INSTANCE", arguments->instance, "Name or id")->required();
  command->add_option("--as", arguments->as, "Statements or JSON; what --format says unless given")
      ->check(CLI::IsMember({"sql", "json"}).description(""))
      ->type_name("sql|json");
  command
      ->add_option("--output", arguments->output,
                   "Write into FILE, which only its owner can read; standard output unless given")
      ->type_name("FILE");
  command->add_flag_function(
      "--hex,!--no-hex", [arguments](std::int64_t on) { arguments->hexadecimal = on > 0; },
      "Authentication strings in hexadecimal digits; where the server knows that unless given");
  command->callback([=, &chosen] { chosen = [=](Context& context) { accounts(context, *arguments); }; });
}

}  // namespace orrery::tool
