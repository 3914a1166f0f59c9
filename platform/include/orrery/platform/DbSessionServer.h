#pragma once

/// The session server: media libraries in other processes of this machine connect to it by the name of a service, and
/// what they tell reaches a handler.
///
/// A service is a Unix-domain stream socket, "NAME.sock" in the agent's temporary directory. Only processes of root, of
/// the agent's own account and of accounts that were admitted are served. docs/file-formats.md describes the frames. A
/// malformed frame ends its connection, never the server.

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "orrery/platform/CKyError.h"
#include "orrery/platform/DzThread.h"
#include "orrery/platform/SbtMessages.h"
#include "orrery/platform/export.h"
#include "orrery/platform/posix.h"

/// Handle of a connection: tells connections of one server apart, and leads nowhere.
using DznHandle_t = void*;

/// One connection, as handlers see it.
class ORRERY_PLATFORM_EXPORT CDzNetwork {
 public:
  explicit CDzNetwork(DznHandle_t handle) noexcept : handle_(handle) {}
  DznHandle_t handle() const noexcept { return handle_; }

 private:
  DznHandle_t handle_;
};

/// The server of a connection, as handlers see it.
class ORRERY_PLATFORM_EXPORT CDzNetworkServer {
 public:
  explicit CDzNetworkServer(void* customData) noexcept : customData_(customData) {}
  /// The DBAgentUtils::DbSessionServer.
  void* GetCustomData() const noexcept { return customData_; }

 private:
  void* customData_;
};

/// One message as it came in: of a known code the message itself, of any other the bytes of the payload.
class ORRERY_PLATFORM_EXPORT dzsDatabuf_v2 {
 public:
  dzsDatabuf_v2() = default;
  explicit dzsDatabuf_v2(const SbtStatusMessage& message) : content_(message) {}
  explicit dzsDatabuf_v2(const SbtProgressMessage& message);
  dzsDatabuf_v2(const dzsDatabuf_v2&) = delete;
  dzsDatabuf_v2& operator=(const dzsDatabuf_v2&) = delete;
  ~dzsDatabuf_v2() = default;

  /// Takes a payload apart. False when it is not one of a message with this code.
  bool assign(std::uint32_t code, std::string_view payload);
  /// SbtStatusMessage, SbtProgressMessage or the payload's bytes, by the code; lives as long as the object.
  const void* getDataBuffer() const noexcept;

 private:
  std::variant<std::string, SbtStatusMessage, SbtProgressMessage> content_;
  std::string name_;
};

namespace DBAgentUtils {

/// What a session server tells. Called on the thread that serves, one call at a time. An error that is returned goes
/// back to the client as the answer to its message, and ends nothing.
class ORRERY_PLATFORM_EXPORT DzDbAgentSessionHandler {
 public:
  DzDbAgentSessionHandler() = default;
  DzDbAgentSessionHandler(const DzDbAgentSessionHandler&) = delete;
  DzDbAgentSessionHandler& operator=(const DzDbAgentSessionHandler&) = delete;
  virtual ~DzDbAgentSessionHandler();

  /// `session` is a number of the connection's own, never 0.
  virtual CKyError OnClientConnect(CDzNetwork* network, long long session, CDzNetworkServer* server) = 0;
  virtual CKyError OnClientMsg(CDzNetwork* network, DznHandle_t handle, unsigned long msgType, dzsDatabuf_v2* data,
                               CDzNetworkServer* server) = 0;
  virtual CKyError OnClientDisconnect(CDzNetwork* network, unsigned long handle, CDzNetworkServer* server) = 0;
  /// Whether a suite's server keeps the ports it listens on. There are none here: false, and nobody asks.
  virtual bool ShouldSaveRegisteredPorts();
  /// After how many idle intervals without a message a run counts as silent.
  virtual std::uint32_t GetIdleTimeoutMaxCount() = 0;
};

class ORRERY_PLATFORM_EXPORT DbSessionServer {
 public:
  /// Gets the server itself, on the thread that serves.
  using IdleCallback = void (*)(void* sessionServer);

  explicit DbSessionServer(std::shared_ptr<DzDbAgentSessionHandler> handler);
  /// Cleans up.
  ~DbSessionServer();
  DbSessionServer(const DbSessionServer&) = delete;
  DbSessionServer& operator=(const DbSessionServer&) = delete;

  /// Serves a service until CleanupSessionServer, on the calling thread. `idle` is called each time the idle interval
  /// passes with no connection coming, speaking or going while a word is owed: before the first client, by a client
  /// that did not tell the end of its images, and after one that went like that until another comes. It may be null. A
  /// client that told the end of them may be silent, or gone, for as long as it likes. A socket that a dead server left
  /// is replaced; while a living server has the name, or when the socket cannot be made, the result is an error. A call
  /// while another thread serves the same name with this object succeeds at once: the name is served. Another name is
  /// an error then. After clean-up every call is an error until `prepare`.
  CKyError StartSessionServer(const std::string& serviceName, IdleCallback idle, int applicationType);
  /// Waits until the StartSessionServer that another thread calls listens: clients can connect from then on. Between
  /// `prepare` and that call it is waited for as well. False when it fails, when the server was cleaned up, and when
  /// the time is over.
  bool waitUntilListening(std::int64_t milliseconds);
  /// Ends serving at once, whatever its clients do, and waits until StartSessionServer has left, unless that is the
  /// calling thread. Connections are closed without a call to the handler; the socket's file is removed. May be called
  /// at any time and more than once.
  void CleanupSessionServer();
  /// Lets the next StartSessionServer serve, also after clean-up.
  void prepare();

  /// Processes of this account are served too. Before StartSessionServer.
  void admit(uid_t account);
  /// Milliseconds; 0, as at first: the setting "nIdleSeconds" of section "Session", or 120 seconds without it. Before
  /// StartSessionServer.
  void setIdleInterval(std::int64_t milliseconds) noexcept { idleInterval_ = milliseconds; }
  /// How long a client may keep the server waiting, in milliseconds: with its first frame, in the middle of a frame,
  /// with taking its answers. Its connection ends then. Before StartSessionServer.
  void setPatience(std::int64_t milliseconds) noexcept { patience_ = milliseconds; }

  // What handlers and the idle call-back use.
  const std::shared_ptr<DzDbAgentSessionHandler>& handler() const noexcept { return handler_; }
  DzCriticalSection& handlerLock() noexcept { return handlerLock_; }
  /// Idle intervals since a client last came, spoke or went.
  std::atomic<std::uint32_t> idleTimeoutCount{0};
  std::uint32_t maxIdleTimeoutCount() const noexcept { return maxIdleTimeoutCount_; }

 private:
  const std::shared_ptr<DzDbAgentSessionHandler> handler_;
  const std::uint32_t maxIdleTimeoutCount_;
  DzCriticalSection handlerLock_;
  std::int64_t idleInterval_ = 0;
  std::int64_t patience_ = 10'000;
  std::vector<uid_t> admitted_;
  orrery::platform::OwnFd stop_;  // an event counter; readable: serving is to end

  enum class State { prepared, listening, ended };
  ORRERY_PLATFORM_HIDDEN void enter(State state);

  std::mutex mutex_;
  std::condition_variable changed_;
  State state_ = State::prepared;
  bool cleaned_ = false;
  std::string served_;  // name of the service that a thread serves; empty: none does
  std::thread::id servingThread_;
};

}  // namespace DBAgentUtils
