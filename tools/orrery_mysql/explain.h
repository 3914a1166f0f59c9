#pragma once

#include <string>
#include <string_view>

#include "orrery/platform/services.h"

#include "context.h"
#include "failure.h"

class GetMySqlInfo;

namespace orrery::tool {

/// What the user learns of an operation that failed on a session: the server's or client's own words where the session
/// has some; else what can be seen to be wrong with the instance and the home; else the log's last words. Interrupted
/// instead when the user asked for the end. To be called while the session lives.
[[noreturn]] void throwSessionFailure(Context& context, const platform::InstanceRecord& instance,
                                      const GetMySqlInfo& session, std::string_view what);

/// The part of a client's error output that tells why: without the statement's echo, the program's path and the number
/// in front. "ERROR 1045 (28000): Access denied" becomes "Access denied".
std::string essentialText(std::string_view clientErrors);

/// The next step for a server's or client's error number and text; empty when there is no better one than the log.
std::string nextStepFor(long number, std::string_view text);

}  // namespace orrery::tool
