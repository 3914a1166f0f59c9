#include "paths/data_files.h"

namespace orrery::mysql::paths {

std::vector<DataFile> dataFilesBefore(const std::string& value, std::int64_t bound) {
  std::vector<DataFile> files;
  for (std::size_t start = 0; static_cast<std::int64_t>(start) < bound;) {
    const std::size_t separator = value.find(';', start);
    const bool closed = separator != std::string::npos;
    const std::size_t end = closed ? separator : value.size() - 1;
    // Kept: a piece keeps its ";", and without a ":" so does its name. Servers always print a size.
    const std::string piece = value.substr(start, end - start + 1);
    const std::size_t colon = piece.find(':');
    files.push_back({piece, piece.substr(0, colon), closed, colon != std::string::npos});
    start = end + 1;
  }
  return files;
}

std::vector<DataFile> dataFilesOfCommandMode(const std::string& value) {
  return dataFilesBefore(value, static_cast<std::int64_t>(value.size()) - 1);
}

std::vector<DataFile> dataFilesOfLibraryMode(const std::string& value) {
  return dataFilesBefore(value, static_cast<std::int32_t>(value.size()));
}

}  // namespace orrery::mysql::paths
