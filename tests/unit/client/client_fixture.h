#pragma once

#include <list>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "orrery/mysql/MySqlInterface.h"

#include "support/backend_test.h"
#include "support/client_library/stand_in_library.h"

namespace orrery::test {

/// Surroundings in memory for connections through client libraries that the tests play.
class ClientTest : public BackendTest {
 protected:
  static constexpr const char* ciphers = " AES128-SHA:AES128-SHA256:AES256-SHA256\n";
  static constexpr const char* connectLine = "connect localhost agent secret - 0 /run/db.sock 0\n";
};

/// A connection object over a socket with its library.
struct Loaded {
  explicit Loaded(const std::string& name) : library(name), server("agent", "secret", "/run/db.sock", 0) {
    EXPECT_EQ(server.LoadAndInitialize(library.path()), 0);
  }
  void useTls(bool withCa = true) {
    library->cipher = "TLS_AES_256_GCM_SHA384";
    server.setSslParameters("/tls/key.pem", "/tls/cert.pem", withCa ? "/tls/ca.pem" : "", "/other", "OTHER");
  }
  std::string failure() const { return std::to_string(server.getLastError()) + " " + server.getLastErrorStr(); }

  StandInLibrary library;
  MySqlInterface server;
};

}  // namespace orrery::test
