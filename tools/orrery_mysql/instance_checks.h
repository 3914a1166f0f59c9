#pragma once

/// What the inventory takes for an instance. Each check throws Failure with one clear line.

#include <string>

#include "context.h"
#include "instance_fields.h"

namespace orrery::tool {

/// Whether a text is an id: digits only.
bool looksLikeId(const std::string& text);

/// A name that can be told from an id and from an option, and printed on one line.
void checkInstanceName(const std::string& name);

/// The value as it is stored: paths made absolute, on and off as 1 and 0. Throws when the field cannot hold it. May
/// tell the user something that is no failure.
std::string checkedValue(const Context& context, const InstanceField& field, const std::string& value);

/// Folder of the client programs in PATH, else /usr/bin.
std::string defaultBinaryPath();

/// The client that a folder lacks, as "mysql or mariadb"; empty when it lacks none.
std::string missingClient(const std::string& folder);

}  // namespace orrery::tool
