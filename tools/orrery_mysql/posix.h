#pragma once

/// Small questions to the operating system that several commands ask.

#include <filesystem>
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
/// Without links as far as the path exists; what cannot be looked at is taken by its words. Ends in no "/".
std::filesystem::path resolvedPath(const std::string& path);
/// Whether a path is another one or lies below it; both resolved.
bool isWithin(const std::filesystem::path& path, const std::filesystem::path& above);
std::string environmentVariable(const char* name);

}  // namespace orrery::tool
