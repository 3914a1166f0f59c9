#pragma once

/// The folder of a home: whether it can be trusted, what is missing in it, and making what is missing.

#include <string>

#include "posix.h"

namespace orrery::platform::local {

/// The path made absolute, without "." and "..", and without a slash at its end.
std::string absolutePath(const std::string& path);

/// Throws Failure (statusInvalid) unless the open folder belongs to root or the caller and nobody else may write to it.
void requireTrusted(int folder, const std::string& path);

/// Names of the parts that a home needs and this one lacks, joined by ", "; empty when it is complete. A part that is
/// there as something else (a link, say) is reported by throwing Failure (statusInvalid).
std::string missingParts(int folder, const std::string& path);

/// Whether any part of a home is there.
bool hasAnyPart(int folder);

/// Makes every missing part, the store last, each under a temporary name first. To be called under the folder's lock.
void makeMissingParts(int folder, const std::string& path, const std::string& clientName);

}  // namespace orrery::platform::local
