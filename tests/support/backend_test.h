#pragma once

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "orrery/platform/testing/test_backend.h"

namespace orrery::test {

/// The suite's services in memory for the time of a test.
class BackendTest : public testing::Test {
 protected:
  /// Whether a message of exactly this text was logged.
  bool logged(const std::string& text) {
    const auto texts = backend_.log().texts();
    return std::find(texts.begin(), texts.end(), text) != texts.end();
  }

  platform::testing::TestBackend backend_;
  platform::ScopedServices installed_{backend_.services()};
};

}  // namespace orrery::test
