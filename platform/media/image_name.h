#pragma once

#include <string>
#include <string_view>

namespace orrery::media {

/// The file of an image in the media folder. No two names have one file, no file leaves the folder or begins with a
/// dot, and none has more than 255 bytes: bytes other than letters, digits and "-_.:" stand as %XX, and of a name that
/// becomes too long so, a beginning, "~" and the BLAKE2b-256 of the whole name. Throws MediaFailure for an empty name
/// and one of more than 511 bytes.
std::string fileNameOf(std::string_view imageName);

/// The name for messages: what is not printable ASCII is shown as "?".
std::string printable(std::string_view name);

}  // namespace orrery::media
