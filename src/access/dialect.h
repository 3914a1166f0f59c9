#pragma once

#include <set>
#include <string>
#include <string_view>

#include "orrery/platform/EvEvent.h"

namespace orrery::mysql {

/// Texts that later servers and clients replaced, and the signs by which one is told that it does not know the old
/// one. The old text goes first, always; its successor is used only after a rejection as unknown, and then for the rest
/// of the session. Nobody else compares versions to choose a text.
class Dialect {
 public:
  /// The text to send for a statement: itself, or its successor once the server rejected it.
  std::string statement(const std::string& text) const;
  /// File name of a client program below `binaryPath`: "mysql" or "mysqladmin", or its successor once the old name was
  /// found missing.
  std::string program(const std::string& name) const;
  /// What a client's command line needs for `text` besides `statement(text)`, with a blank before it: empty, or the
  /// option that stands for a closing "\G" once a client did not know that.
  std::string layoutOption(const std::string& text) const;
  /// The option that asks a client for TLS, with a blank before it.
  std::string tlsOption() const;

  /// What a failed run teaches.
  struct Rejection {
    std::string_view binaryPath;
    std::string_view program;    ///< old name
    std::string_view statement;  ///< as first written; empty for a ping
    bool usedTls = false;
    int errorNumber = 0;
    std::string_view errorText;  ///< of the client
  };
  /// Looks for the signs of a rejection as unknown. True when something was learned, so that the same request is worth
  /// another try; the log then holds the old text and the new one. Each lesson is learned once.
  bool learn(const Rejection& rejection, const EvDebug& log, const char* tag);

  /// Whether a ping's answer says that the server is alive; `answer` without its line feed.
  static bool saysAlive(std::string_view answer);

 private:
  bool learnProgram(const Rejection& rejection, const EvDebug& log, const char* tag);
  bool learnTlsOption(const Rejection& rejection, const EvDebug& log, const char* tag);
  bool learnLayout(const Rejection& rejection, const EvDebug& log, const char* tag);
  bool learnStatement(const Rejection& rejection, const EvDebug& log, const char* tag);

  std::set<std::string, std::less<>> rejected_;
};

}  // namespace orrery::mysql
