#include "server_databases.h"

#include <set>
#include <string_view>

#include "failure.h"
#include "server_session.h"
#include "subclient_lookup.h"

namespace orrery::tool {

Names bareNames(const Names& listed) {
  Names names;
  for (const std::string& name : listed) names.push_back(bareName(name));
  return names;
}

Names readNames(ServerSession& server) {
  Names listed;
  server.run("no list of databases from", [&](GetMySqlInfo& session) { return session.FetchDBList(listed); });
  return bareNames(listed);
}

Names chosenNames(ServerSession& server, const std::vector<std::string>& asked) {
  Names names = readNames(server);
  if (asked.empty()) return names;
  const std::set<std::string_view> present(names.begin(), names.end());
  for (const std::string& name : asked) {
    if (present.count(name) == 0) {
      throw Failure("there is no database " + name + " on " + server.instance(), "",
                    "orrery-mysql databases list " + server.instance() + " lists them");
    }
  }
  return {asked.begin(), asked.end()};
}

}  // namespace orrery::tool
