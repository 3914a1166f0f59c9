// What the rules of discovery miss and the machine shows all the same. Nothing here changes a record.

#include <algorithm>

#include "orrery/platform/FXString.h"

#include "discovery/option_file.h"
#include "discovery/pass.h"

namespace orrery::mysql::discovery {
namespace {

std::string lastPart(const std::string& path) {
  return path.substr(path.rfind('/') + 1);  // the whole without a slash
}

std::string withoutLastSlash(std::string path) {
  if (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

bool isAbsolute(const std::string& path) {
  return !path.empty() && path.front() == '/';
}

template <class List, class Value>
bool holds(const List& list, const Value& value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

class Hints {
 public:
  Hints(const Evidence& evidence, Pass& pass, ServerProcess& server)
      : evidence_(evidence),
        pass_(pass),
        server_(server),
        given_(optionsAsGiven(evidence.bytes)),
        places_(pass.places) {
    if (!pass.configText.empty()) further_ = readFurther(server.configFile.value, pass.configText, reader());
  }

  void add() {
    aboutWhereItLives();
    aboutAccount();
    aboutOptions();
    aboutSockets();
    aboutOptionFile();
    aboutDataDirectory();
    aboutProgram();
  }

 private:
  void hint(std::string text, std::string option = {}, std::string value = {}, bool replaces = false) {
    const auto isTold = [&](const DiscoveryHint& told) { return told.option == option && told.value == value; };
    const auto told = std::find_if(server_.hints.begin(), server_.hints.end(), isTold);
    if (!value.empty() && told != server_.hints.end()) {
      told->replaces = told->replaces || replaces;
      return;
    }
    server_.hints.push_back({std::move(text), std::move(option), std::move(value), replaces});
  }

  OptionFileReader reader() const {
    Host& host = *pass_.host;
    return {[&host](const std::string& path, std::string& text) {
              std::string reason;
              return host.readOptionFile(path, text, reason);
            },
            [&host](const std::string& folder) { return host.optionFilesIn(folder); }};
  }

  void aboutWhereItLives() {
    if (lastPart(server_.program) == "mysqld_safe") {
      hint("this is the script that starts a server; the server itself stands on its own");
    }
    if (places_.otherMounts) {
      hint(
          "it runs in a mount namespace of its own, in a container say, and the paths are those inside: reach it over "
          "TCP, with orrery-mysql instance add NAME --socket HOST:PORT");
    } else if (!places_.root.empty() && places_.root != "/") {
      hint("its root is " + places_.root + ", and its paths are counted from there");
    }
    if (places_.otherNetwork) hint("it has a network of its own, so the socket list does not show where it listens");
  }

  void aboutAccount() {
    if (server_.account.empty() || server_.unixUser.source == FactSource::nowhere) return;
    if (server_.account == server_.unixUser.value) return;
    hint("the server runs as " + server_.account + "; the record has the account of the agent", "--unix-user",
         server_.account);
  }

  void aboutOption(const char* what, const char* option, const std::string& value, const std::string& read) {
    if (value.empty() || value == read) return;
    hint(std::string("the command line gives ") + what + " as " + value +
             ", in a form that is not read (apart from its option, with a blank, a second \"=\" or a line break)",
         option, value);
  }

  void aboutOptions() {
    aboutOption("the socket", "--socket", given_.socket, evidence_.texts.socket);
    aboutOption("the port", "--port", given_.port, evidence_.texts.port);
    aboutOption("the option file", "--config", given_.configFile, evidence_.texts.configFile);
    aboutOption("the base directory", "", given_.baseDirectory, evidence_.texts.baseDirectory);
    if (evidence_.bytes.find('\n') != std::string::npos) {
      hint("its command line holds a line break; what stands behind that is not read");
    }
  }

  void aboutOptionFile() {
    const std::string& file = server_.configFile.value;
    if (file.empty()) return;
    if (further_.isCutShort) hint("it includes more option files than are read for one server");
    if (pass_.configText.empty()) {
      hint("the option file " + file + " is empty or cannot be read");
      return;
    }
    const bool portIsGuess = server_.port.source == FactSource::defaultValue;
    if (further_.port && further_.port->text != server_.port.value &&
        (portIsGuess || server_.port.source == FactSource::optionFile)) {
      hint(further_.port->place + ", which is not read, sets the port", "--port", further_.port->text);
    }
    if (further_.socket && server_.socket.value.empty()) {
      hint(further_.socket->place + ", which is not read, sets the socket", "--socket", further_.socket->text);
    }
    if (further_.logBin && isAbsolute(further_.logBin->text) && evidence_.texts.logDirectory.empty()) {
      hint(further_.logBin->place + ", which is not read, puts the binary logs at " + further_.logBin->text);
    }
  }

  void aboutDataDirectory() {
    std::string data = given_.dataDirectory;
    std::string from = "the command line gives the data directory";
    if (!isAbsolute(data) && further_.dataDirectory) {
      data = further_.dataDirectory->text;
      from = further_.dataDirectory->place + " sets the data directory";
    }
    // A server works in its data directory; the script that starts it does not.
    if (!isAbsolute(data) && lastPart(server_.program) != "mysqld_safe" && places_.workingDirectory != "/") {
      data = places_.workingDirectory;
      from = "the server works in its data directory, " + data;
    }
    const std::string& recorded = evidence_.texts.dataDirectory;
    if (!isAbsolute(data) || withoutLastSlash(data) == withoutLastSlash(recorded)) return;
    const bool isLog = !evidence_.texts.logDirectory.empty() && recorded == evidence_.texts.logDirectory;
    hint(from + (isLog ? "; the record has the folder of the binary logs" : "; the record does not have it"), "--data",
         data);
  }

  void aboutSockets() {
    const bool socketIsSure = server_.socket.source == FactSource::commandLine;
    if (socketIsSure && !isAbsolute(server_.socket.value) && isAbsolute(places_.workingDirectory)) {
      hint("the socket's path is counted from the server's own folder", "--socket",
           places_.workingDirectory + "/" + server_.socket.value);
    }
    if (socketIsSure && server_.port.source == FactSource::commandLine) return;
    const auto own = pass_.process->sockets();
    if (!own) {
      hint("where it listens can only be seen by its own account and by a superuser");
      return;
    }
    if (!socketIsSure) aboutSocket(*own);
    aboutPort(*own);
  }

  void aboutSocket(const ListeningSockets& own) {
    const std::string first = own.paths.empty() ? std::string() : own.paths.front();
    const std::string& recorded = server_.socket.value;
    if (recorded.empty()) {
      if (first.empty())
        hint("it listens on no Unix socket");
      else
        hint("it listens on a socket whose name is not mysql*.sock", "--socket", first);
    } else if (!holds(own.paths, recorded)) {
      hint("the socket " + recorded + " is another process's: its line in the socket list holds " + server_.pid +
               " as a part",
           "--socket", first, true);
    } else if (own.paths.size() > 1) {
      hint("it listens on " + std::to_string(own.paths.size()) + " Unix sockets; the record has the first of them");
    }
  }

  void aboutPort(const ListeningSockets& own) {
    if (server_.port.source == FactSource::socketList) {
      const auto isRecorded = [&](unsigned port) { return std::to_string(port) == server_.port.value; };
      if (std::any_of(own.ports.begin(), own.ports.end(), isRecorded)) return;
      hint("the port " + server_.port.value + " is another process's: its line in the socket list holds " +
               server_.pid + " as a part",
           "--port", own.ports.empty() ? std::string() : std::to_string(own.ports.front()), true);
    } else if (!server_.port.value.empty() && own.ports.empty() && !places_.otherNetwork) {
      hint("it does not listen on TCP; the port " + server_.port.value + " only names the instance");
    }
  }

  void aboutProgram() {
    constexpr const char* deleted = " (deleted)";
    const std::string& program = places_.executable;
    if (FXString::Contains(program, deleted, false)) {
      hint("its program has been replaced since it was started; the version asked for is the new one's");
    }
    if (!pass_.programNote.empty()) {
      hint("its program was asked for the version with the rights of " + pass_.account.name +
           ", because others than root could have put it there: " + pass_.programNote);
    }
    if (server_.recorded || lastPart(program) != "mariadbd") return;
    bool isFile = false;
    const std::string folder = FXPath::SplitParentPath(program);
    if (pass_.host->exists(FXPath::Append(folder, "mysqld"), isFile)) return;
    hint("there is mariadbd alone in " + folder + ", and servers are asked for their version as mysqld: a link " +
         folder + "/mysqld that leads to it is missing");
  }

  const Evidence& evidence_;
  Pass& pass_;
  ServerProcess& server_;
  const WorkingTexts given_;
  const ProcessPlaces places_;
  FurtherOptions further_;
};

}  // namespace

void addHints(const Evidence& evidence, Pass& pass, ServerProcess& server) {
  Hints(evidence, pass, server).add();
}

void addUnmatched(const std::vector<ListedProcess>& others, Pass& pass) {
  for (const ListedProcess& listed : others) {
    const auto process = pass.host->open(listed.pid);
    if (process == nullptr || !isServerName(lastPart(process->places().executable))) continue;
    ServerProcess& server = pass.unmatched.emplace_back();
    server.pid = listed.pid;
    server.program = listed.program;
    server.account = process->account().name;
    server.leftOut = "its title does not begin with a server's program, which is " + process->places().executable;
  }
}

void addMissingProgram(const std::string& errors, const char* program, const char* package,
                       DiscoveryExplanation& explanation) {
  // As the shells say it: "ps: not found", "ps: command not found".
  const auto says = [&](const char* words) {
    return FXString::Contains(errors, " " + std::string(program) + words, false);
  };
  const bool isMissing = says(": not found") || says(": command not found");
  const auto isKnown = [&](const DiscoveryHint& hint) { return hint.value == package; };
  if (!isMissing || std::any_of(explanation.hints.begin(), explanation.hints.end(), isKnown)) return;
  explanation.hints.push_back(
      {std::string(program) + " is not installed, so servers are missed; install the package " + package, "", package,
       false});
}

}  // namespace orrery::mysql::discovery
