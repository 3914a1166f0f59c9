#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "orrery/platform/DbSessionServer.h"
#include "orrery/platform/SbtMessages.h"

namespace orrery::test {

/// Keeps what a session server hears, a text for each message; of progress: "progress IMAGE BYTES FILES PHASE".
class SessionRecorder : public DBAgentUtils::DzDbAgentSessionHandler {
 public:
  CKyError OnClientConnect(CDzNetwork*, long long session, CDzNetworkServer*) override {
    return add(session == 0 ? "connect without a session" : "connect");
  }
  CKyError OnClientMsg(CDzNetwork*, DznHandle_t, unsigned long code, dzsDatabuf_v2* data, CDzNetworkServer*) override {
    if (code == sbtProgressCode) {
      const auto* const message = static_cast<const SbtProgressMessage*>(data->getDataBuffer());
      const std::string image = message->backupFileName == nullptr ? "NULL" : message->backupFileName;
      add("progress " + image + " " + std::to_string(message->bytes) + " " + std::to_string(message->files) + " " +
          std::to_string(message->phase));
      progressJob_ = message->threadId > 0 ? message->jobId : -1;
      return refusesProgress ? CKyError(14, "not now") : CKyError();
    }
    if (code == sbtStatusCode || code == sbtRunCode)
      return add((code == sbtRunCode ? "run " : "status ") +
                 std::to_string(static_cast<const SbtStatusMessage*>(data->getDataBuffer())->status));
    add("unknown");
    return {14, "no such message"};
  }
  CKyError OnClientDisconnect(CDzNetwork*, unsigned long, CDzNetworkServer*) override { return add("disconnect"); }
  std::uint32_t GetIdleTimeoutMaxCount() override { return 5; }

  std::vector<std::string> seen() const {
    const std::lock_guard held(mutex_);
    return seen_;
  }
  /// The job of the last message of progress; -1 when it was no thread's.
  long long progressJob() const { return progressJob_; }

  std::atomic<bool> refusesProgress{false};

 private:
  CKyError add(std::string what) {
    const std::lock_guard held(mutex_);
    seen_.push_back(std::move(what));
    return {};
  }
  mutable std::mutex mutex_;
  std::vector<std::string> seen_;
  std::atomic<long long> progressJob_{0};
};

}  // namespace orrery::test
