#pragma once

#include <string>
#include <string_view>

namespace orrery::mysql {

/// The value that the clients' option-file reader makes of one line "name=value", as a client receives it: comments
/// cut, blanks and one pair of quotes around the value removed, backslash escapes resolved. Empty for a line without
/// "=". The reader's rules are those of the chapter on option files in the servers' manuals, and were checked against
/// the reader itself.
std::string readOptionLine(std::string_view line);

/// Whether a client that reads `content`, a whole option file with one line "password='...'", receives `password`.
bool givesBackPassword(std::string_view content, std::string_view password);

}  // namespace orrery::mysql
