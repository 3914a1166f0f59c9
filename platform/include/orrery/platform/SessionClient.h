#pragma once

/// The other end of a session server: what a media library tells its agent.

#include <cstdint>
#include <string>
#include <string_view>

#include "orrery/platform/export.h"
#include "orrery/platform/posix.h"
#include "orrery/platform/services.h"

namespace orrery::platform {

/// Name of the service that serves a job's media library.
ORRERY_PLATFORM_EXPORT std::string sessionServiceName(long long jobId);

/// One connection to a session server. One thread uses one object at a time. The connection ends with the object, also
/// in a process that dies. A process that forks keeps it in one of the two only: descriptors are close-on-exec.
class ORRERY_PLATFORM_EXPORT SessionClient {
 public:
  /// How long one exchange may take before the connection counts as lost.
  explicit SessionClient(std::int64_t timeoutMilliseconds = 30'000) : timeout_(timeoutMilliseconds) {}
  SessionClient(const SessionClient&) = delete;
  SessionClient& operator=(const SessionClient&) = delete;
  ~SessionClient() = default;

  /// Connects to the service below `temporaryDirectory` and announces itself. statusNotFound when nobody serves that
  /// name; statusFailed when the server refuses or does not speak this protocol.
  Status connect(const std::string& temporaryDirectory, const std::string& serviceName, long long jobId);
  bool connected() const noexcept { return socket_.valid(); }
  /// Tells one message and waits for the answer. statusFailed with the handler's text when the handler refused it: the
  /// connection then goes on. statusUnavailable when the connection is lost; it is closed then.
  Status tell(std::uint32_t code, std::string_view payload);
  void disconnect() noexcept { socket_ = OwnFd(); }

 private:
  Status exchange(std::uint32_t code, std::string_view frame);

  OwnFd socket_;
  std::int64_t timeout_;
};

}  // namespace orrery::platform
