#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace orrery::standin {

/// What ends a run: its text becomes the last line, behind "ERROR: ".
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A step that the operating system refused: "cannot STEP: its text".
[[nodiscard]] Failure systemFailure(const std::string& step, int error);

/// One line on standard error, written at once. A reader that has gone does not matter.
void say(std::string_view line);
/// "2026-03-01 22:15:04 mysqlbackup: INFO: text"
void tell(std::string_view text);

}  // namespace orrery::standin
