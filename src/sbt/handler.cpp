// What the media library tells, call by call. Every call-back holds the session server's handler lock to its end.

#include <cstdio>
#include <mutex>

#include "orrery/mysql/MySqlSBTCommon.h"

namespace {

constexpr int errorCode = 14;
constexpr const char* messageTag = "MySqlSBTHandler::OnClientMsg";

std::unique_lock<DzCriticalSection> handlerLock(CDzNetworkServer* server) {
  auto* const sessionServer =
      server == nullptr ? nullptr : static_cast<DBAgentUtils::DbSessionServer*>(server->GetCustomData());
  return sessionServer == nullptr ? std::unique_lock<DzCriticalSection>()
                                  : std::unique_lock<DzCriticalSection>(sessionServer->handlerLock());
}

/// Totals go down when a new run was not announced: the difference is negative then and passed on. The numbers are
/// another process's, so they may be any.
std::int64_t difference(std::int64_t total, std::int64_t cached) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(total) - static_cast<std::uint64_t>(cached));
}

}  // namespace

MySqlSBTHandler::MySqlSBTHandler() {
  event_.Debug("MySqlSBTHandler", "Inside constructor");
}

MySqlSBTHandler::~MySqlSBTHandler() = default;

std::uint32_t MySqlSBTHandler::GetIdleTimeoutMaxCount() {
  return 5;
}

CKyError MySqlSBTHandler::OnClientConnect(CDzNetwork*, long long session, CDzNetworkServer* server) {
  constexpr const char* tag = "MySqlSBTHandler::OnClientConnect";
  const auto held = handlerLock(server);
  if (session != 0) {
    event_.Debug(tag, "Connection with OraSbt library was established.");
    if (sbtAgent_ != nullptr) sbtAgent_->setIsSessionServerReady(true);
  } else {
    event_.Debug(tag, "pSession is NULL... Something went wrong!");
  }
  return {};
}

CKyError MySqlSBTHandler::OnClientMsg(CDzNetwork*, DznHandle_t handle, unsigned long msgType, dzsDatabuf_v2* data,
                                      CDzNetworkServer* server) {
  const auto held = handlerLock(server);
  const void* const payload = data == nullptr ? nullptr : data->getDataBuffer();
  if (payload != nullptr && msgType == sbtRunCode) {
    const auto& message = *static_cast<const SbtStatusMessage*>(payload);
    if (sbtAgent_ != nullptr) sbtAgent_->resetCountersFromCache();
    event_.Debug(messageTag, "SBT Session Server Received msgType=%s jobId=[%lld] threadId=[%ld] status=[%d]\n",
                 DZS_OraBackupRestore_PM_STRING(msgType), static_cast<long long>(message.jobId),
                 static_cast<long>(message.threadId), message.status);
    return {};
  }
  if (payload != nullptr && msgType == sbtStatusCode) {
    const auto& message = *static_cast<const SbtStatusMessage*>(payload);
    event_.Debug(messageTag,
                 "SBT Session Server Received msgType=[%s] jobId=[%lld] threadId=[%ld] status=[%d] session=[%p]\n",
                 DZS_OraBackupRestore_PM_STRING(msgType), static_cast<long long>(message.jobId),
                 static_cast<long>(message.threadId), message.status, handle);
    return {};
  }
  if (payload != nullptr && msgType == sbtProgressCode)
    return onProgress(*static_cast<const SbtProgressMessage*>(payload), msgType);
  char text[64];
  std::snprintf(text, sizeof(text), "Error: unexpected msgType=%lu\n", msgType);
  event_.Debug(messageTag, "%s", text);
  return {errorCode, text, __func__, __FILE__};
}

CKyError MySqlSBTHandler::onProgress(const SbtProgressMessage& message, unsigned long msgType) {
  event_.DebugLvl(messageTag, 2,
                  "SBT Session Server Received msgType=%s jobId=[%lld] threadId=[%ld] BackupFileName=[%s] phase=[%d] "
                  "bytes=[%lld] files=[%lld]\n",
                  DZS_OraBackupRestore_PM_STRING(msgType), static_cast<long long>(message.jobId),
                  static_cast<long>(message.threadId),
                  message.backupFileName == nullptr ? "NULL" : message.backupFileName, message.phase,
                  static_cast<long long>(message.bytes), static_cast<long long>(message.files));
  if (sbtAgent_ == nullptr) {
    event_.DebugLvl(messageTag, 2, "SBTAgent not found");
    return {};
  }
  if (sbtAgent_->getJobObject() == nullptr) {
    event_.Debug(messageTag, "JobObject not found");
    return {};
  }
  sbtAgent_->setUncompBytesToAdd(difference(message.bytes, sbtAgent_->cachedBytes_));
  sbtAgent_->addFilesXferred(difference(message.files, sbtAgent_->cachedFiles_));
  if (!sbtAgent_->updateInfo(false)) {
    // The totals stay: the next message tells the whole difference again.
    event_.DebugLvl(messageTag, 2, "Failed to update jobInfo");
    return {errorCode, "Failed to update JonbInfo\n", "OnClientMsg", __FILE__};
  }
  sbtAgent_->cachedBytes_ = message.bytes;
  sbtAgent_->cachedFiles_ = message.files;
  return {};
}

CKyError MySqlSBTHandler::OnClientDisconnect(CDzNetwork*, unsigned long handle, CDzNetworkServer* server) {
  constexpr const char* tag = "MySqlSBTHandler::OnClientDisconnect";
  const auto held = handlerLock(server);
  event_.DebugLvl(tag, 4, "Reset idle timeout counter due to activity");
  // Kept: the label says message type, the value is the connection's handle.
  event_.DebugLvl(tag, 4, "Disconnect MsgType=[%lu] ", handle);
  if (sbtAgent_ != nullptr) sbtAgent_->setIsSessionServerReady(false);
  return {};
}
