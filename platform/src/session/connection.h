#pragma once

/// One client of a session server.

#include <sys/types.h>

#include <chrono>
#include <string>

#include "orrery/platform/DbSessionServer.h"

#include "frame.h"

namespace orrery::platform::session {

class Connection {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// `number` is what handlers know it by; never 0.
  Connection(OwnFd socket, std::uint64_t number, Time now);

  int fd() const noexcept { return socket_.get(); }
  std::uint64_t number() const noexcept { return number_; }
  DznHandle_t handle() const noexcept { return network_.handle(); }
  CDzNetwork& network() noexcept { return network_; }
  bool greeted() const noexcept { return greeted_; }
  void greet() noexcept { greeted_ = true; }

  /// Takes note of a message of the client.
  void note(std::uint32_t code, const dzsDatabuf_v2& data) noexcept;
  /// Whether the client told the end of every image that it began, and nothing since. It owes no word then, however
  /// long its connection stays.
  bool hasToldItsEnd() const noexcept { return toldItsEnd_; }

  /// Reads what is there, up to a portion. False when the client is gone.
  bool receive(Time now);
  /// The next frame, as FrameReader; incomplete also while answers wait to be taken by the client.
  FrameReader::Next next(Frame& frame, Time now);
  void answer(int result, const std::string& text) { outgoing_ += encodeAnswer(result, text); }
  /// Sends what the client takes without waiting. False when it is gone.
  bool send();
  bool hasAnswersLeft() const noexcept { return !outgoing_.empty(); }
  /// Whether a client has kept the server waiting for longer than that: in the middle of a frame, with its hello, or
  /// with taking its answers.
  bool isOverdue(Time now, std::chrono::milliseconds patience) const noexcept;

 private:
  OwnFd socket_;
  std::uint64_t number_;
  CDzNetwork network_;
  FrameReader reader_;
  std::string outgoing_;
  Time lastProgress_;
  bool greeted_ = false;
  std::uint64_t openImages_ = 0;
  bool toldItsEnd_ = false;
};

/// The account of the process at the other end, as it was when it connected.
bool peerAccount(int socket, uid_t& account);

}  // namespace orrery::platform::session
