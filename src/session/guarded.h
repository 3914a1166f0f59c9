#pragma once

#include <exception>
#include <utility>

#include "orrery/platform/EvEvent.h"

namespace orrery::mysql {

/// Runs the body of an exported operation; what it throws (memory is short, in practice) becomes a log line and -1.
template <class Body>
int guarded(const EvDebug& log, const char* tag, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (const std::exception& error) {
    log.Error(tag, "given up: %s", error.what());
  } catch (...) {
    log.Error(tag, "given up: unknown exception");
  }
  return -1;
}

}  // namespace orrery::mysql
