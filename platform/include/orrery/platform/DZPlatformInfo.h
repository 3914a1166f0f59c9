#pragma once

/// The agent's settings and directories.

#include <string>
#include <utility>

#include "orrery/platform/export.h"

/// Directories of the agent. Returned texts live as long as the object, until the next call of the same operation.
class ORRERY_PLATFORM_EXPORT DZPI_Base {
 public:
  /// Without a trailing "/"; null when the agent has none.
  const char* getOrreryTempDirectory();

 private:
  std::string temporary_;
};

/// The settings, and where the agent is installed.
class ORRERY_PLATFORM_EXPORT DZPlatformInfo {
 public:
  /// Reads a number. Returns whether the key is present; an absent key, an unreadable store and a text without leading
  /// digits read as 0 (the last two are logged).
  bool getNumber(const char* section, const char* key, long& value) const;
  /// Reads a text. Returns whether the key is present; otherwise `value` is empty.
  bool getString(const char* section, const char* key, std::string& value) const;
  /// Empty when the agent does not tell.
  std::string getHomeDirectory() const;
};

/// Platform information of a client of the suite. 0 on success, another code otherwise.
class ORRERY_PLATFORM_EXPORT DZPI_CommClient {
 public:
  /// A client of this name; empty: this machine's own.
  explicit DZPI_CommClient(std::string name = {});

  /// From now on requests are about the client of this name; empty: this machine's own.
  void setFocusClientName(std::string name) { name_ = std::move(name); }
  int getClientId(unsigned long& clientId) const;
  /// Name of the client that requests are about; `own` asks for this machine's when no focus was set.
  std::string getFocusClientName(bool own) const;
  int getJobResultsDirectory(const std::string& focusClientName, std::string& path) const;
  /// Where the agent's own libraries lie, the media library among them.
  int getBaseHomeDirectory(std::string& path) const;
  /// Name of the management server's client. The embedded default manages itself: this machine's own client.
  std::string getArbiterClientName() const;

 private:
  std::string name_;
};
