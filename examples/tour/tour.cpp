// A walk through one session: what an agent asks of a server before and after a backup. An agent lets the library
// choose the mode; a second argument forces one.
// usage: orrery-tour INSTANCE-ID [command|library]

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/mysql/MySqlHelperClassesExt.h"

namespace {

int failed(const char* step, const GetMySqlInfo& session) {
  std::fprintf(stderr, "%s failed: [%d] %s\n", step, session.iErrorCode, session.strErrorString.c_str());
  return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: %s INSTANCE-ID [command|library]\n", argv[0]);
    return 2;
  }
  const long instance = std::strtol(argv[1], nullptr, 10);
  const std::string database = "orrery_tour";
  bool commandMode = false;
  if (argc == 3) {
    commandMode = std::string(argv[2]) == "command";
  } else if (getGetMySqlInfoMode(instance, commandMode) != 0) {
    std::fprintf(stderr, "the mode cannot be told; the log says why\n");
    return EXIT_FAILURE;
  }

  const std::unique_ptr<GetMySqlInfo> opened(commandMode ? new GetMySqlInfo : new GetMySqlInfoExt);
  GetMySqlInfo& session = *opened;
  if (session.Init(instance) != 0) return failed("opening the session", session);
  std::printf("mode                  %s\n", commandMode ? "command" : "library");

  std::string value;
  if (session.PingServer() != 0) return failed("ping", session);
  std::printf("the server is alive\n");
  if (session.getVersionFromServer(value) != 0) return failed("version", session);
  std::printf("version               %s\n", value.c_str());
  for (const char* name : {"datadir", "log_bin", "socket"}) {
    if (session.QueryVariable(name, value) != 0) return failed(name, session);
    std::printf("%-21s %s\n", name, value.c_str());
  }
  long long packet = 0;
  if (session.GetMaxAllowedPacket(packet) != 0) return failed("max_allowed_packet", session);
  std::printf("max_allowed_packet    %lld bytes\n", packet);

  if (session.CreateDB(database) != 0) return failed("create", session);
  std::printf("created the database  %s\n", database.c_str());
  if (session.FlushLogs() != 0) return failed("flush", session);
  std::printf("rotated the logs\n");
  if (session.DropDB(database) != 0) return failed("drop", session);
  std::printf("dropped the database  %s\n", database.c_str());

  if (session.createTableUsingSchema(database, "CREATE TABLE " + database + ".t (a INT)") == 0) {
    std::fprintf(stderr, "a table was made in a database that was dropped\n");
    return EXIT_FAILURE;
  }
  std::printf("a table in it now     error %d\n%s\n", session.iErrorCode, session.strErrorString.c_str());
  return EXIT_SUCCESS;
}
