// A run of enterprise backup without its programs: one process that supervises, and one that is `mysqlbackup` and its
// media library in one.
// usage: orrery-sbt-run supervise MODE      makes a backup job in the home of ORRERY_HOME, prints its number, runs
//                                           itself as the media program; exit status 0 when the run succeeded
//        orrery-sbt-run media MODE JOB      MODE: report (twenty messages of a MiB each), fail (the same, then an
//                                           error), on (reports until it is ended), silent (connects and says nothing)

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "orrery/mysql/MySqlSBTCommon.h"
#include "orrery/platform/SessionClient.h"
#include "orrery/platform/services.h"

namespace {

using orrery::platform::encodeMessage;
using orrery::platform::services;

constexpr std::int64_t mebibyte = std::int64_t{1} << 20;
constexpr int cannotConnect = 10;
constexpr int notTaken = 11;

class Driver : public MySqlSBTUtils {
 public:
  int backup(long long jobId, const std::string& command) {
    if (initializeJobControl(jobId, DZJobType::backup, "", nullptr) != 0) return -1;
    handler_->setSBTAgent(this);
    handler_->setJobId(jobId);
    if (initializeCommonParams(1) != 0) return -1;
    isInitialized_ = true;
    std::string out;
    std::string err;
    int rc = 0;
    const int result = runCommand(command, out, err, rc, false);
    NotifyArbiterJobComplete(result == 0 ? DZJobStatus::success : DZJobStatus::failed, DZJobStatusFor::job, 0);
    cleanUp();
    return result;
  }
};

int supervise(const std::string& program, const std::string& mode) {
  orrery::platform::JobRecord record;
  record.processId = getpid();
  long long jobId = 0;
  if (!services().jobs->start(record, jobId).ok()) return 2;
  std::printf("%lld\n", jobId);
  std::fflush(stdout);
  const orrery::platform::ScopedJob job(jobId);
  Driver driver;
  return driver.backup(jobId, program + " media " + mode + " " + std::to_string(jobId)) == 0 ? 0 : 1;
}

bool connect(orrery::platform::SessionClient& client, long long jobId) {
  std::string folder;
  if (!services().directories->temporary(folder).ok()) return false;
  // The server begins when the program that talks to it runs already.
  for (int tries = 0; tries < 1000; ++tries) {
    if (client.connect(folder, orrery::platform::sessionServiceName(jobId), jobId).ok()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

int media(const std::string& mode, long long jobId) {
  orrery::platform::SessionClient client;
  if (!connect(client, jobId)) return cannotConnect;
  if (!client.tell(sbtRunCode, encodeMessage(SbtStatusMessage{jobId, 1, 0, 0})).ok()) return notTaken;
  if (mode == "silent") return pause();
  for (std::int64_t i = 1; mode == "on" || i <= 20; ++i) {
    const SbtProgressMessage message{jobId, 1, "image", i * mebibyte, 1, 1};
    if (!client.tell(sbtProgressCode, encodeMessage(message)).ok()) return notTaken;
    if (mode == "on") std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  if (mode != "fail") return 0;
  std::fputs("WARNING: nearly full\nERROR: the media is full\nlast words\n", stderr);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "supervise") == 0) return supervise(argv[0], argv[2]);
  if (argc == 4 && std::strcmp(argv[1], "media") == 0) return media(argv[2], std::atoll(argv[3]));
  return 2;
}
