#include "orrery/platform/SessionClient.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "address.h"
#include "frame.h"

namespace orrery::platform {
namespace {

using SteadyTime = std::chrono::steady_clock::time_point;

Status lost(const std::string& what) {
  return Status::unavailable("the connection to the session server is lost: " + what);
}

/// Waits until the socket can be used; false, with errno, when the time is over or the system says no.
bool await(int fd, short what, SteadyTime deadline) {
  while (true) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    pollfd watched{fd, what, 0};
    const int ready = ::poll(&watched, 1, static_cast<int>(std::max<std::int64_t>(left, 0)));
    if (ready > 0) return true;
    if (ready < 0 && errno == EINTR) continue;
    if (ready == 0) errno = ETIMEDOUT;
    return false;
  }
}

bool sendWhole(int fd, std::string_view bytes, SteadyTime deadline) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    } else if (errno == EAGAIN) {
      if (!await(fd, POLLOUT, deadline)) return false;
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

/// Appends what has come; false, with errno (0: the end), when there is nothing more to expect.
bool receiveSome(int fd, session::FrameReader& reader, SteadyTime deadline) {
  char bytes[4096];
  while (true) {
    const ssize_t received = ::recv(fd, bytes, sizeof(bytes), 0);
    if (received > 0) {
      reader.append(bytes, static_cast<std::size_t>(received));
      return true;
    }
    if (received == 0) errno = 0;
    if (received == 0 || (errno != EAGAIN && errno != EINTR)) return false;
    if (errno == EAGAIN && !await(fd, POLLIN, deadline)) return false;
  }
}

}  // namespace

std::string sessionServiceName(long long jobId) {
  return std::string(session::jobServicePrefix) + std::to_string(jobId);
}

Status SessionClient::connect(const std::string& temporaryDirectory, const std::string& serviceName, long long jobId) {
  const OwnFd folder = session::openFolder(temporaryDirectory);
  if (!folder) return Status::notFound("cannot open " + temporaryDirectory + ": " + errorText(errno));
  const session::Address address(folder.get(), serviceName);
  if (!address.valid()) return Status::invalid("\"" + serviceName + "\" cannot be the name of a service");
  socket_ = session::makeSocket();
  if (!socket_) return Status::failure("cannot make a socket: " + errorText(errno));
  if (::connect(socket_.get(), address.get(), address.size()) != 0) {
    const int error = errno;
    disconnect();
    return Status::notFound("cannot connect to " + address.fileName() + ": " + errorText(error));
  }
  Status status = exchange(session::helloCode, session::encodeHello(jobId));
  if (!status.ok()) {
    disconnect();
    status.code = statusFailed;
  }
  return status;
}

Status SessionClient::tell(std::uint32_t code, std::string_view payload) {
  if (!connected()) return lost("it was not made");
  if (payload.size() > session::largestPayload) return Status::invalid("the message is too long");
  return exchange(code, session::encodeFrame(code, payload));
}

Status SessionClient::exchange(std::uint32_t code, std::string_view frame) {
  const SteadyTime deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_);
  session::FrameReader reader;
  session::Frame answer;
  auto next = session::FrameReader::Next::incomplete;
  bool open = sendWhole(socket_.get(), frame, deadline);
  while (open && (next = reader.next(answer)) == session::FrameReader::Next::incomplete)
    open = receiveSome(socket_.get(), reader, deadline);
  int result = 0;
  std::string text;
  if (!open || next != session::FrameReader::Next::frame || answer.code != session::answerCode ||
      !session::decodeAnswer(answer.payload, result, text)) {
    const int error = open ? EPROTO : errno;
    disconnect();
    return lost(error == 0 ? "the server closed it" : errorText(error));
  }
  if (result == 0) return Status::success();
  if (text.empty()) text = "message " + std::to_string(code) + " failed with " + std::to_string(result);
  return Status::failure(std::move(text));
}

}  // namespace orrery::platform
