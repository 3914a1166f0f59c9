#include "discovery_text.h"

#include <algorithm>
#include <array>

namespace orrery::tool {
namespace {

using mysql::DiscoveredFact;
using mysql::DiscoveryHint;
using mysql::FactSource;
using mysql::ServerProcess;

const char* nameOf(FactSource source) {
  switch (source) {
    case FactSource::nowhere:
      return "not found";
    case FactSource::commandLine:
      return "command line";
    case FactSource::socketList:
      return "socket list";
    case FactSource::optionFile:
      return "option file";
    case FactSource::usualPlace:
      return "usual place";
    case FactSource::program:
      return "running program";
    case FactSource::searchPath:
      return "search path";
    case FactSource::defaultValue:
      return "default";
    case FactSource::agentAccount:
      return "the agent's account";
    case FactSource::composed:
      return "client and port";
  }
  return "";
}

struct FactField {
  const char* name;
  const char* label;
  const DiscoveredFact ServerProcess::*fact;
};

constexpr std::array kFacts{
    FactField{"name", "name", &ServerProcess::instanceName},
    FactField{"socket", "socket", &ServerProcess::socket},
    FactField{"port", "port", &ServerProcess::port},
    FactField{"log_data_directory", "log or data folder", &ServerProcess::logDataDirectory},
    FactField{"binary_directory", "programs", &ServerProcess::binaryDirectory},
    FactField{"config_file", "option file", &ServerProcess::configFile},
    FactField{"unix_user", "Unix account", &ServerProcess::unixUser},
};

Json textOrNull(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

std::string withOption(const DiscoveryHint& hint) {
  if (hint.option.empty()) return hint.text;
  return hint.text + " (" + hint.option + (hint.value.empty() ? "" : " " + shellWord(hint.value)) + ")";
}

}  // namespace

std::string shellWord(const std::string& text) {
  const auto isPlain = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '/' || c == '.' ||
           c == '_' || c == '-' || c == ':' || c == ',' || c == '+' || c == '=' || c == '@';
  };
  if (!text.empty() && std::all_of(text.begin(), text.end(), isPlain)) return text;
  std::string word = "'";
  for (const char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return word + "'";
}

Json toJson(const MysqlInstanceInfo& record) {
  Json document;
  document["name"] = record.strInstanceName;
  document["socket"] = textOrNull(record.strSocketFile);
  document["port"] = textOrNull(record.strPort);
  document["log_data_directory"] = textOrNull(record.strLogDataDir);
  document["binary_directory"] = textOrNull(record.strBinaryDir);
  document["config_file"] = textOrNull(record.strConfigFile);
  document["unix_user"] = textOrNull(record.strUnixUser);
  return document;
}

Json toJson(const DiscoveryHint& hint) {
  return {{"text", hint.text}, {"option", textOrNull(hint.option)}, {"value", textOrNull(hint.value)}};
}

Json toJson(const ServerProcess& server) {
  Json document;
  document["pid"] = std::stol(server.pid);
  document["program"] = server.program;
  document["account"] = textOrNull(server.account);
  document["recorded"] = server.recorded;
  document["left_out"] = textOrNull(server.leftOut);
  document["claimed_because"] = textOrNull(server.claimedBecause);
  for (const FactField& field : kFacts) {
    const DiscoveredFact& fact = server.*field.fact;
    document["fields"][field.name] = {{"value", textOrNull(fact.value)}, {"from", nameOf(fact.source)}};
    if (!fact.replaceableBy.empty()) document["fields"][field.name]["replaceable_by"] = fact.replaceableBy;
  }
  document["hints"] = Json::array();
  for (const DiscoveryHint& hint : server.hints) document["hints"].push_back(toJson(hint));
  return document;
}

Table explanationTable(const mysql::DiscoveryExplanation& explanation) {
  Table table({"PROCESS", "WHAT", "VALUE", "FROM"});
  for (const ServerProcess& server : explanation.processes) {
    table.add({server.pid, "program", server.program, "process list"});
    for (const FactField& field : kFacts) {
      const DiscoveredFact& fact = server.*field.fact;
      table.add({server.pid, field.label, fact.value.empty() ? "-" : fact.value, nameOf(fact.source)});
    }
    if (!server.recorded) table.add({server.pid, "left out", server.leftOut, ""});
    for (const DiscoveryHint& hint : server.hints) table.add({server.pid, "hint", withOption(hint), ""});
  }
  for (const DiscoveryHint& hint : explanation.hints) table.add({"-", "hint", withOption(hint), ""});
  return table;
}

}  // namespace orrery::tool
