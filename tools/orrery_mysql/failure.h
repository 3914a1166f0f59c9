#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "orrery/platform/services.h"

namespace orrery::tool {

/// A command that could not do what it was asked: exit status 1 and one line on standard error,
/// "orrery-mysql: WHAT: [NUMBER] TEXT; NEXT".
class Failure : public std::runtime_error {
 public:
  /// `what`: what failed. `text`: why. `next`: what to do about it. Empty parts and their separators are left out.
  Failure(std::string_view what, std::string_view text, std::string_view next = {},
          std::optional<long> number = std::nullopt);
};

/// A command line that lacks something: exit status 2.
class WrongUsage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The user asked the program to stop; it ends by the signal once everything is put away.
class Interrupted {};

/// Throws unless the service did its work.
void require(const platform::Status& status, std::string_view what, std::string_view next = {});

/// `text` on one line: runs of blanks, line breaks and other control characters become one blank each.
std::string onOneLine(std::string_view text);

}  // namespace orrery::tool
