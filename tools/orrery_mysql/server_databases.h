#pragma once

#include <list>
#include <string>
#include <vector>

namespace orrery::tool {

class ServerSession;

using Names = std::list<std::string>;

/// Names without the "/" that they have in lists.
Names bareNames(const Names& listed);
/// The server's databases, bare names. Throws Failure.
Names readNames(ServerSession& server);
/// The databases that were asked for, all of them when none was. Throws Failure for one that is not there.
Names chosenNames(ServerSession& server, const std::vector<std::string>& asked);

}  // namespace orrery::tool
