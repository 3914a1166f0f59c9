#pragma once

/// How a failure travels inside the embedded default: as an exception up to the port, where it becomes a Status.

#include <exception>
#include <new>
#include <utility>

#include "orrery/platform/services.h"

namespace orrery::platform::local {

class Failure : public std::exception {
 public:
  explicit Failure(Status status) noexcept : status_(std::move(status)) {}
  const char* what() const noexcept override { return status_.text.c_str(); }
  Status take() noexcept { return std::move(status_); }

 private:
  Status status_;
};

/// Runs the body of a port's operation and turns what it throws into a Status.
template <class Body>
Status guarded(Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
    return Status::success();
  } catch (Failure& failure) {
    return failure.take();
  } catch (const std::bad_alloc&) {
    return {statusFailed, "out of memory"};  // short enough to need no heap
  } catch (const std::exception&) {
    return {statusFailed, "internal error"};
  }
}

}  // namespace orrery::platform::local
