#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "discovery/host.h"

namespace orrery::mysql::discovery {

struct RecordedProcess {
  std::string commandLine;  // "|" stands for the null behind an argument
  ProcessPlaces places{"/usr/sbin/mariadbd", "/", "/", false, false, false, false};
  ListeningSockets sockets;
  ProcessAccount account{true, false, 999, 999, "mysql"};
};

struct Answer {
  int code = 0;
  std::string output;
  std::string errors;
};

struct Recording {
  std::map<std::string, Answer> answers;
  std::map<std::string, RecordedProcess> processes;
  std::map<std::string, std::string> files;
  std::vector<std::string> folders;
  std::map<std::string, PathVerdict> verdicts;  // of paths that others could change
  uid_t agent = 0;
  std::int64_t milliseconds = 0;      // of its clock
  std::int64_t slowness = 0;          // of every command
  std::vector<std::string> commands;  // as they were run
  std::vector<CommandRules> rules;    // of these commands
};

class OneProcess : public Process {
 public:
  explicit OneProcess(const RecordedProcess& recorded) : recorded_(recorded) {}
  bool commandLine(std::string& bytes) override {
    bytes = recorded_.commandLine;
    std::replace(bytes.begin(), bytes.end(), '|', '\0');
    return true;
  }
  ProcessAccount account() override { return recorded_.account; }
  ProcessPlaces places() override { return recorded_.places; }
  std::optional<ListeningSockets> sockets() override { return recorded_.sockets; }

 private:
  const RecordedProcess& recorded_;
};

class RecordedHost : public Host {
 public:
  explicit RecordedHost(Recording& recording) : recording_(recording) {}

  int shell(const std::string& command, const CommandRules& rules, std::string& output, std::string& errors) override {
    recording_.commands.push_back(command);
    recording_.rules.push_back(rules);
    recording_.milliseconds += recording_.slowness;
    const Answer answer = valueAt(recording_.answers, command);
    output = answer.output;
    errors = answer.errors;
    return answer.code;
  }
  int start(const std::string&, std::string&, std::string&, int&, std::string& reason) override {
    reason = "no process";
    return 0;
  }
  std::unique_ptr<Process> open(const std::string& pid) override {
    const auto found = recording_.processes.find(pid);
    return found == recording_.processes.end() ? nullptr : std::make_unique<OneProcess>(found->second);
  }
  bool exists(const std::string& path, bool& isFile) override {
    isFile = recording_.files.count(path) != 0;
    return isFile || std::find(recording_.folders.begin(), recording_.folders.end(), path) != recording_.folders.end();
  }
  bool readOptionFile(const std::string& path, std::string& text, std::string& reason) override {
    text = valueAt(recording_.files, path);
    const bool isThere = recording_.files.count(path) != 0;
    if (!isThere) reason = "No such file or directory";
    return isThere;
  }
  std::vector<std::string> optionFilesIn(const std::string& folder) override { return {folder + "/50-server.cnf"}; }
  PathVerdict whoCanReplace(const std::string& path) override { return valueAt(recording_.verdicts, path); }
  uid_t agentUid() override { return recording_.agent; }
  std::int64_t milliseconds() override { return recording_.milliseconds; }

 private:
  template <class Value>
  static Value valueAt(const std::map<std::string, Value>& values, const std::string& key) {
    const auto found = values.find(key);
    return found == values.end() ? Value() : found->second;
  }
  Recording& recording_;
};

}  // namespace orrery::mysql::discovery
