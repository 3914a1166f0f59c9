#pragma once

#include <cstddef>
#include <string>

/// Reading what strangers name. Only plain files are opened, and those without waiting.
namespace orrery::mysql::discovery {

/// A whole file of at most `most` bytes. False with the reason: nothing else than a plain file is opened, nor one of a
/// file system that the kernel makes up, where reading can do something.
bool readPlainFile(const std::string& path, std::size_t most, std::string& text, std::string& reason);

/// A file below an open folder of /proc, up to `most` bytes of it. False, with errno, when it cannot be read.
bool readProcFile(int folder, const char* name, std::size_t most, std::string& bytes);

}  // namespace orrery::mysql::discovery
