#include "client_library.h"

#include <elf.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "posix.h"

namespace orrery::tool {
namespace {

namespace fs = std::filesystem;

/// The part of an ELF header that 32 and 64 bits share.
struct ElfStart {
  unsigned char identity[EI_NIDENT];
  Elf64_Half type;
  Elf64_Half machine;
};

std::optional<ElfStart> elfStartOf(const std::string& path) {
  const OwnFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  ElfStart start{};
  if (!file.valid() || ::read(file.get(), &start, sizeof start) != static_cast<ssize_t>(sizeof start)) return {};
  if (std::memcmp(start.identity, ELFMAG, SELFMAG) != 0) return {};
  return start;
}

/// Numbers behind ".so.", for example 21, 2, 33; none for a name that is no versioned client library.
std::vector<int> versionOf(std::string_view name) {
  std::vector<int> version;
  for (const std::string_view stem : {"libmysqlclient.so.", "libmariadb.so."}) {
    if (!name.starts_with(stem)) continue;
    const char* position = name.data() + stem.size();
    const char* const end = name.data() + name.size();
    while (position < end) {
      int number = 0;
      const auto [next, error] = std::from_chars(position, end, number);
      if (error != std::errc() || (next != end && *next != '.')) return {};
      version.push_back(number);
      position = next == end ? end : next + 1;
    }
  }
  return version;
}

}  // namespace

std::vector<std::string> clientLibraryFolders() {
  std::vector<std::string> folders{"/usr/lib64/mysql", "/usr/lib64",     "/usr/lib/mysql",
                                   "/usr/lib",         "/usr/local/lib", "/usr/local/mysql/lib"};
  std::error_code error;
  for (fs::directory_iterator entry("/usr/lib", error), end; !error && entry != end; entry.increment(error)) {
    // Multiarch folders are named for the machine, as in x86_64-linux-gnu.
    if (entry->path().filename().string().find("-linux-") != std::string::npos) folders.push_back(entry->path());
  }
  return folders;
}

bool isLoadable(const std::string& path) {
  const std::optional<ElfStart> own = elfStartOf("/proc/self/exe");
  const std::optional<ElfStart> other = elfStartOf(path);
  return own && other && other->type == ET_DYN && other->machine == own->machine &&
         other->identity[EI_CLASS] == own->identity[EI_CLASS];
}

std::optional<std::string> findClientLibrary(const std::vector<std::string>& folders) {
  std::optional<std::string> best;
  std::vector<int> bestVersion;
  for (const std::string& folder : folders) {
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
      std::vector<int> version = versionOf(entry->path().filename().string());
      if (version.empty() || version < bestVersion || (version == bestVersion && best <= entry->path().string()))
        continue;
      if (!isLoadable(entry->path())) continue;
      best = entry->path();
      bestVersion = std::move(version);
    }
  }
  return best;
}

}  // namespace orrery::tool
