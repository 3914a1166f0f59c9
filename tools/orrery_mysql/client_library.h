#pragma once

#include <optional>
#include <string>
#include <vector>

namespace orrery::tool {

/// Folders where packages of servers and clients put their libraries.
std::vector<std::string> clientLibraryFolders();

/// The newest client library of the vendors, by the version in its name, that this program could load: a file of its
/// own kind of machine.
std::optional<std::string> findClientLibrary(const std::vector<std::string>& folders);

/// Whether this program could load the file: a shared object for its own kind of machine.
bool isLoadable(const std::string& path);

}  // namespace orrery::tool
