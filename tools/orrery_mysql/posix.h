#pragma once

/// Small questions to the operating system that several commands ask.

#include <string>

#include "orrery/platform/posix.h"

namespace orrery::tool {

using platform::errorText;
using platform::OwnFd;

enum class FileKind { missing, regular, directory, socket, other };
/// What a path leads to, links followed.
FileKind kindOf(const std::string& path);

bool isExecutable(const std::string& path);
bool accountExists(const std::string& name);
/// The path made absolute from the current folder; an empty one stays empty.
std::string absolutePath(const std::string& path);
std::string environmentVariable(const char* name);

}  // namespace orrery::tool
