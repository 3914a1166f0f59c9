#pragma once

#include <chrono>
#include <string>

namespace orrery::tool {

enum class Greeting {
  none,    ///< nobody takes the connection
  silent,  ///< somebody takes it, or lets it wait, and says nothing: a server that hangs
  given,   ///< somebody speaks, as a server does first
};

/// Whether a server speaks on a socket, a path or "host:port", within the limit; of a host at any of its addresses.
/// Sends nothing; a client library would wait for a hanging server without limit. Throws Interrupted.
Greeting greetingOf(const std::string& socket, std::chrono::milliseconds limit);

}  // namespace orrery::tool
