#pragma once

/// The one table of what an instance's record can hold: option, property, name in JSON and on the screen.

#include <span>
#include <string>

#include "orrery/platform/services.h"

#include "output.h"

namespace orrery::tool {

enum class FieldKind {
  socket,    ///< absolute path or HOST:PORT
  account,   ///< a MySQL account
  unixUser,  ///< an account of this machine
  clients,   ///< a folder with the client programs
  path,      ///< any path
  tlsFile,   ///< a file that must be there
  onOff,     ///< stored as 1 or 0
  port,      ///< a TCP port
  text,      ///< anything on one line
};

struct InstanceField {
  const char* option;  ///< with its dashes
  const char* metavar;
  const char* property;
  const char* name;  ///< key in JSON
  const char* label;
  FieldKind kind;
  const char* help;
};

std::span<const InstanceField> instanceFields();

/// A record as people and programs see it; of the password only whether there is one.
Json toJson(const platform::InstanceRecord& record, const std::string& client);
Table toTable(const platform::InstanceRecord& record, const std::string& client);

}  // namespace orrery::tool
