#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "orrery/platform/home.h"
#include "orrery/platform/services.h"

#include "support/children.h"
#include "support/temporary_directory.h"

namespace orrery::test {

using platform::Id;
using platform::Services;
using platform::Status;

inline ::testing::AssertionResult succeeded(const Status& status) {
  if (status.ok()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "code " << status.code << ": " << status.text;
}

/// A failure of this code whose text says something and holds `part`.
inline ::testing::AssertionResult failed(const Status& status, int code, const std::string& part = {}) {
  if (status.code == code && !status.text.empty() && status.text.find(part) != std::string::npos)
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "code " << status.code << ": " << status.text;
}

/// A home in a folder of its own.
class HomeTest : public ::testing::Test {
 protected:
  std::string home() const { return folder_ / "home"; }
  std::string inHome(const std::string& name) const { return home() + "/" + name; }
  void create() { ASSERT_TRUE(succeeded(platform::createHome(home(), "thisclient"))); }
  /// Null when it cannot be opened; the test has failed then.
  std::shared_ptr<const Services> open() const;

  const TemporaryDirectory folder_;
};

/// The same, open.
class OpenHomeTest : public HomeTest {
 protected:
  void SetUp() override {
    create();
    services_ = open();
    ASSERT_NE(services_, nullptr);
  }

  std::shared_ptr<const Services> services_;
};

/// A backend under test, by name.
struct Backend {
  const char* name;
  std::function<std::shared_ptr<const Services>(const TemporaryDirectory&)> open;
};
std::ostream& operator<<(std::ostream& stream, const Backend& backend);
std::vector<Backend> bothBackends();
std::string nameOfBackend(const ::testing::TestParamInfo<Backend>& info);

/// Base of the suite that every backend passes.
class Conformance : public ::testing::TestWithParam<Backend> {
 protected:
  void SetUp() override {
    services_ = GetParam().open(folder_);
    ASSERT_NE(services_, nullptr);
  }
  /// What a request that succeeds puts into its last argument: got<T>([&](T& out) { return port.request(..., out); }).
  template <class T, class Request>
  static T got(Request request) {
    T out{};
    EXPECT_TRUE(succeeded(request(out)));
    return out;
  }
  Id addInstance(const std::string& name, const std::map<std::string, std::string>& properties = {});
  Id onlyBackupSet(Id instance);
  Id defaultSubclient(Id instance);

  const TemporaryDirectory folder_;
  std::shared_ptr<const Services> services_;
};

}  // namespace orrery::test
