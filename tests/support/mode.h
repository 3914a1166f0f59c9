#pragma once

#include <gtest/gtest.h>

namespace orrery::test {

/// For suites that run in both access modes.
enum class Mode { command, library };

inline auto bothModes() {
  return testing::Values(Mode::command, Mode::library);
}

inline const char* nameOfMode(const testing::TestParamInfo<Mode>& test) {
  return test.param == Mode::command ? "command" : "library";
}

}  // namespace orrery::test
