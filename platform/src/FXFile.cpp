#include "orrery/platform/FXFile.h"

#include <cerrno>
#include <exception>
#include <filesystem>
#include <system_error>

CKyError FXFile::RemoveFolder(const std::string& path, int) try {
  std::filesystem::path folder = path;
  // With a slash at its end the name of a link would stand for what the link leads to.
  if (!folder.has_filename()) folder = folder.parent_path();
  if (!folder.is_absolute() || !folder.has_relative_path() || path.find('\0') != std::string::npos)
    return {EINVAL, "[" + path + "] is no folder to remove"};
  std::error_code error;
  std::filesystem::remove_all(folder, error);
  return error ? CKyError(error.value(), path + ": " + error.message()) : CKyError();
} catch (const std::exception& failure) {
  return {ENOMEM, failure.what()};
}
