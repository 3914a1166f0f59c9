// A walk through one session: what an agent asks of a server before and after a backup, in command mode.
// usage: orrery-tour INSTANCE-ID [DATABASE-TO-MAKE]

#include <cstdio>
#include <cstdlib>
#include <string>

#include "orrery/mysql/MySqlHelperClasses.h"

namespace {

int failed(const char* step, const GetMySqlInfo& session) {
  std::fprintf(stderr, "%s failed: [%d] %s\n", step, session.iErrorCode, session.strErrorString.c_str());
  return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: %s INSTANCE-ID [DATABASE-TO-MAKE]\n", argv[0]);
    return 2;
  }
  const std::string database = argc == 3 ? argv[2] : "orrery_tour";

  int rc = 0;
  GetMySqlInfo session(std::strtol(argv[1], nullptr, 10), rc);
  if (rc != 0) return failed("opening the session", session);

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

  if (session.DropDB(database) == 0) {
    std::fprintf(stderr, "dropping it twice succeeded\n");
    return EXIT_FAILURE;
  }
  std::printf("dropping it again     error %d\n%s\n", session.iErrorCode, session.strErrorString.c_str());
  return EXIT_SUCCESS;
}
