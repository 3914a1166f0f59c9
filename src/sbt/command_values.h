#pragma once

/// Values on their way into a command line, through the shell and without one.

#include <string>
#include <vector>

namespace orrery::mysql::sbt {

/// As a shell reads it: as it stands, or in single quotes when it holds anything that a shell would not take so.
std::string shellWord(const std::string& text);
/// For a place between double quotes, where a shell still resolves some characters.
std::string insideDoubleQuotes(const std::string& text);

/// How a value stands in the command line of `mysqlbackup`.
enum class Place {
  word,         ///< bare
  quoted,       ///< between double quotes
  environment,  ///< the same, as an item of a list with commas
};

struct CommandValue {
  const char* name;  ///< what people know it by
  const std::string& text;
  Place place;
};

/// What of the values cannot be handed over, for the log and the job; empty: nothing. Without a shell double quotes
/// group and nothing escapes them; through the shell a value that has been escaped is one word whatever it holds, but
/// for a null, and for what parts the items of the environment.
std::string whyNotHandedOver(const std::vector<CommandValue>& values, bool throughShell);

}  // namespace orrery::mysql::sbt
