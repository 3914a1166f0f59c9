// orrery-mysql server start|stop: the server process.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>

#include <CLI/CLI.hpp>

#include "context.h"
#include "explain.h"
#include "failure.h"
#include "instance_checks.h"
#include "interrupt.h"
#include "known_settings.h"
#include "server_session.h"

namespace orrery::tool {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr long kFirstPauseMilliseconds = 100;
constexpr long kLongestPauseMilliseconds = 1000;

struct StartOptions {
  std::string instance;
  std::optional<std::string> command;
  std::optional<int> wait;
};

struct StopOptions {
  std::string instance;
  std::optional<std::string> command;
};

// ------------------------------------------------------------------------------------------ what the settings say

std::string settingOr(Context& context, const char* key, const std::string& otherwise) {
  std::optional<std::string> value;
  require(context.services().settings->read("MySQL", key, value), "the settings cannot be read");
  return value && !value->empty() ? *value : otherwise;
}

/// Empty: the library's default.
std::string startCommand(Context& context, const StartOptions& options) {
  return options.command ? *options.command : settingOr(context, "sServerStartCmd", {});
}

std::chrono::seconds waitTime(Context& context, const StartOptions& options) {
  if (options.wait) return std::chrono::seconds(*options.wait);
  const KnownSetting& setting = *findSetting("nStartServerWaitTime");
  const std::string value = settingOr(context, setting.key, setting.defaultValue);
  if (const auto reason = refuseValue(setting, value)) {
    throw Failure(std::string("the value ") + value + " of " + setting.key + " is refused", *reason,
                  std::string("orrery-mysql setting set ") + setting.key + " SECONDS");
  }
  return std::chrono::seconds(std::stol(value));
}

// ------------------------------------------------------------------------------------------ what a ping tells

enum class PingAnswer {
  alive,
  refused,  ///< a server is there and does not let the account in
  absent,   ///< nobody listens
  unclear,
};

/// The clients' own words for it are English wherever they run; the number is the system's: no such file, refused, and
/// what one family of clients makes of refused over TCP. A socket that may not be reached proves nothing.
bool saysNobodyListens(std::string_view text) {
  const std::size_t start = text.find("Can't connect");
  if (start == std::string_view::npos) return false;
  text.remove_prefix(start);
  const auto holds = [text](std::string_view number) { return text.find(number) != std::string_view::npos; };
  return holds("' (2)") || holds("' (111)") || holds("' (115)");
}

PingAnswer answerOf(GetMySqlInfo& session) {
  session.clearErrors();
  if (session.PingServer() == 0) return PingAnswer::alive;
  if (session.strErrorString.find("Access denied") != std::string::npos) return PingAnswer::refused;
  return saysNobodyListens(session.strErrorString) ? PingAnswer::absent : PingAnswer::unclear;
}

PingAnswer ask(ServerSession& server) {
  PingAnswer answer = PingAnswer::unclear;
  server.attempt([&](GetMySqlInfo& session) {
    answer = answerOf(session);
    return 0;
  });
  return answer;
}

// ------------------------------------------------------------------------------------------ start and stop

void report(const Context& context, const std::string& instance, const char* result, const char* inWords,
            std::optional<SteadyClock::time_point> begin = std::nullopt) {
  const std::chrono::duration<double> taken = begin ? SteadyClock::now() - *begin : SteadyClock::duration(0);
  const Json seconds = begin ? Json(std::round(taken.count() * 10) / 10) : Json();
  Json document;
  document["instance"] = instance;
  document["result"] = result;
  document["seconds"] = seconds;
  Table table;
  table.add({instance, inWords, begin ? seconds.dump() + " s" : ""});
  context.print(document, table);
}

/// Asks until the server answers, refuses the account, or the limit passes; or the user asks for the end. `lastReason`
/// is the last that was told why there is no answer.
PingAnswer waitForAnswer(ServerSession& server, platform::Clock& clock, SteadyClock::time_point limit,
                         std::string& lastReason) {
  PingAnswer answer = PingAnswer::absent;
  server.attempt([&](GetMySqlInfo& session) {
    const ClientLimit clients(limit);
    for (long pause = kFirstPauseMilliseconds;; pause = std::min(2 * pause, kLongestPauseMilliseconds)) {
      answer = answerOf(session);
      if (answer == PingAnswer::alive || answer == PingAnswer::refused || interruptSignal() != 0) return 0;
      if (!session.strErrorString.empty()) lastReason = essentialText(session.strErrorString);
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(limit - SteadyClock::now());
      if (left.count() <= 0) return 0;
      clock.sleep(std::min<std::int64_t>(pause, left.count()));
    }
  });
  return answer;
}

[[noreturn]] void failRefused(const ServerSession& server) {
  server.fail("the server of " + server.instance() + " runs, but refuses the account");
}

/// Without the client there would be no telling whether the server comes up.
void requireClient(ServerSession& server) {
  const std::string folder = (*server).strBinaryPath;
  if (const std::string missing = missingClient(folder); !missing.empty()) {
    throw Failure("nothing is started for " + server.instance(), "there is no " + missing + " in " + folder,
                  "orrery-mysql instance set " + server.instance() + " --bin DIR names their folder");
  }
}

void startServer(Context& context, const StartOptions& options) {
  if (options.command && options.command->empty()) throw WrongUsage("the value of --command is empty");
  const std::string command = startCommand(context, options);
  const std::chrono::seconds patience = waitTime(context, options);
  ServerSession server(context, options.instance);
  requireClient(server);
  const PingAnswer before = ask(server);
  if (before == PingAnswer::refused) failRefused(server);
  if (before == PingAnswer::alive) return report(context, server.instance(), "already_running", "already running");

  const auto begin = SteadyClock::now();
  server.run("the start command was not launched for",
             [&](GetMySqlInfo& session) { return session.StartServer(command.empty() ? nullptr : command.c_str()); });
  if (patience.count() == 0) return report(context, server.instance(), "launched", "start command launched");
  std::string reason;
  const PingAnswer answer = waitForAnswer(server, *context.services().clock, begin + patience, reason);
  if (answer == PingAnswer::refused) failRefused(server);
  if (answer != PingAnswer::alive) {
    throw Failure("no answer from " + server.instance() + " within " + std::to_string(patience.count()) + " s", reason,
                  "run the start command by hand to see what it says, and look into the server's error log");
  }
  report(context, server.instance(), "started", "started", begin);
}

/// The library runs a stop command without a shell and without a search in PATH; a command that cannot work is told
/// before the server is asked for anything.
void checkStopCommand(const std::string& command) {
  const std::string program = command.substr(0, command.find(' '));
  if (program.find('/') == std::string::npos) {
    throw WrongUsage("--command [" + command +
                     "] does not begin with a program's path; no shell reads it, so write "
                     "/usr/sbin/service and the like");
  }
}

void stopServer(Context& context, const StopOptions& options) {
  if (options.command) checkStopCommand(*options.command);
  ServerSession server(context, options.instance);
  switch (ask(server)) {
    case PingAnswer::alive:
      break;
    case PingAnswer::absent:
      return report(context, server.instance(), "already_down", "already down");
    // The library takes these two for a server that is down, which people must not be told.
    case PingAnswer::refused:
      failRefused(server);
    case PingAnswer::unclear:
      server.fail("nothing is stopped: it is not known whether the server of " + server.instance() + " runs");
  }
  const auto begin = SteadyClock::now();
  server.run("there is no end of", [&](GetMySqlInfo& session) {
    return session.StopServer(options.command ? options.command->c_str() : nullptr);
  });
  report(context, server.instance(), "stopped", "stopped", begin);
}

}  // namespace

void addControlCommands(CLI::App& program, Action& chosen) {
  CLI::App* group = program.add_subcommand("server", "The server process");
  group->require_subcommand(1);

  auto start = std::make_shared<StartOptions>();
  CLI::App* startCommand = group->add_subcommand("start", "Start the server and wait until it answers");
  startCommand->add_option("INSTANCE", start->instance, "Name or id")->required();
  startCommand
      ->add_option("--command", start->command,
                   "Shell command that starts it; else the setting sServerStartCmd, else service mysqld start")
      ->type_name("CMD");
  startCommand
      ->add_option("--wait", start->wait,
                   "Seconds to wait for an answer, 0: do not wait; else the setting nStartServerWaitTime, else 180")
      ->check(CLI::Range(0, std::numeric_limits<int>::max()).description(""))
      ->type_name("SECONDS");
  startCommand->callback([=, &chosen] { chosen = [=](Context& context) { startServer(context, *start); }; });

  auto stop = std::make_shared<StopOptions>();
  CLI::App* stopCommand = group->add_subcommand("stop", "Stop the server and wait until it answers no more");
  stopCommand->add_option("INSTANCE", stop->instance, "Name or id")->required();
  stopCommand
      ->add_option("--command", stop->command,
                   "Program with its path, and arguments, that stop it; no shell reads them; else mysqladmin shutdown")
      ->type_name("CMD");
  stopCommand->callback([=, &chosen] { chosen = [=](Context& context) { stopServer(context, *stop); }; });
}

}  // namespace orrery::tool
