// The session server's thread and its idle call-back.

#include <exception>
#include <mutex>
#include <string>

#include "orrery/mysql/MySqlSBTCommon.h"
#include "orrery/platform/SessionClient.h"

using DBAgentUtils::DbSessionServer;

void* startThreadForMEBSessionServer(void* sessionServer) {
  constexpr const char* tag = "startThreadForMEBSessionServer";
  const EvEvent event;
  const long long jobId = event.getJobId();
  if (sessionServer == nullptr) return nullptr;
  try {
    auto& server = *static_cast<DbSessionServer*>(sessionServer);
    const std::string serviceName = orrery::platform::sessionServiceName(jobId);
    const CKyError error = server.StartSessionServer(serviceName, AcceptMySqlIdleCallback, kMySqlApplicationType);
    if (error.isError()) {
      // Kept: the handler is not marked as failed. `mysqlbackup` goes on then, unwatched: its media library moves
      // images whether it reaches an agent or not, the job hears nothing of them, and no silence ends the run.
      const std::lock_guard held(server.handlerLock());
      event.Error(tag, "Failed to start DZSessionServer with serviceName=%s:%s", serviceName.c_str(),
                  error.text().c_str());
    }
  } catch (const std::exception& error) {
    event.Error(tag, "given up: %s", error.what());
  }
  return nullptr;
}

void AcceptMySqlIdleCallback(void* sessionServer) {
  constexpr const char* tag = "AcceptMySqlIdleCallback";
  if (sessionServer == nullptr) return;
  const EvEvent event;
  auto& server = *static_cast<DbSessionServer*>(sessionServer);
  const std::uint32_t count = ++server.idleTimeoutCount;
  const std::uint32_t most = server.maxIdleTimeoutCount();
  // Kept: with the two blanks, as people search for it.
  event.DebugLvl(tag, 2, "Got timed out while waiting for messages ...  m_idleTimeoutCount=%d",
                 static_cast<int>(count));
  if (count < most) {
    event.Debug(tag, "So far idleTimeouts=[%u] MaxIdleTimeouts=[%u]. Will wait for some more time ... ", count, most);
    return;
  }
  event.Debug(tag, "Maximum idle time reached. Failing the job... ");
  if (auto* const handler = dynamic_cast<MySqlSBTHandler*>(server.handler().get()); handler != nullptr)
    handler->failThread();
}
