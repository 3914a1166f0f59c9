#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "context.h"
#include "posix.h"

namespace orrery::tool {

/// A new file, mode 0600, that stands under another name until it is whole; it goes again unless it is kept. What stood
/// under its name is replaced. Operations throw Failure.
class NewFile {
 public:
  /// `what` names it in failures: "the manifest". `temporary` is in the same folder.
  NewFile(std::string what, std::string path, std::string temporary);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  const OwnFd& file() const noexcept { return file_; }
  void keep();

 private:
  std::string what_;
  std::string path_;
  std::string temporary_;
  OwnFd file_;
};

/// Writes everything; throws Failure "WHAT is not written".
void writeWhole(const OwnFd& file, std::string_view text, const std::string& what);

/// The form of a result whose command has forms of its own: `as` where it is given, else json or `forPeople` as
/// --format says. Throws WrongUsage when the two contradict each other.
std::string resultForm(const Context& context, const std::string& as, const std::string& forPeople);

/// Where a result goes piece by piece: a file, or standard output for "-". Neither gets anything before `finish`.
class Destination {
 public:
  /// Refuses what is there and no regular file: it would be replaced.
  Destination(Context& context, std::string what, const std::string& path);

  void write(std::string_view text);
  /// Where the next text goes, and back to such a place: what came behind it was never written.
  std::int64_t place() const noexcept { return written_ + static_cast<std::int64_t>(buffer_.size()); }
  void cutBack(std::int64_t place);
  /// All is written; throws Failure when it cannot be kept.
  void finish();

 private:
  void flush();
  const OwnFd& file() const noexcept { return named_ ? named_->file() : spool_; }

  std::string what_;
  std::optional<NewFile> named_;
  OwnFd spool_;  // for standard output: a file without a name
  std::string buffer_;
  std::int64_t written_ = 0;  // bytes in the file
};

}  // namespace orrery::tool
