#pragma once

#include <exception>
#include <string>
#include <utility>

#include "orrery/platform/posix.h"
#include "orrery/platform/services.h"

#include "sbt_interface.h"

namespace orrery::media {

/// How a failure travels inside the library, up to the call of the interface: a code of the interface, and a text that
/// says what failed, why, and what to do.
class MediaFailure : public std::exception {
 public:
  MediaFailure(Ulong code, std::string text) : code_(code), text_(std::move(text)) {}
  explicit MediaFailure(std::string text) : MediaFailure(sbtMediaFailure, std::move(text)) {}
  const char* what() const noexcept override { return text_.c_str(); }
  Ulong code() const noexcept { return code_; }

 private:
  Ulong code_;
  std::string text_;
};

/// "cannot STEP: the system's reason", with what to do where the reason tells.
MediaFailure systemFailure(const std::string& step, int error);

inline void require(const platform::Status& status, const std::string& step) {
  if (!status.ok()) throw MediaFailure("cannot " + step + ": " + status.text);
}

}  // namespace orrery::media
