#pragma once

#include <string>
#include <vector>

#include "orrery/mysql/MySqlHelperClassesExt.h"

#include "session/session_fixture.h"
#include "support/client_library/stand_in_library.h"

namespace orrery::test {

/// A session in library mode whose client library the tests play.
class LibraryModeTest : public SessionTest {
 protected:
  LibraryModeTest() { backend_.setSetting("MySQL", "sLibPath", library_.path()); }

  /// The texts that were logged under a tag.
  std::vector<std::string> under(const std::string& tag) {
    std::vector<std::string> texts;
    for (const auto& line : backend_.log().entries()) {
      if (line.tag == tag) texts.push_back(line.text);
    }
    return texts;
  }
  /// An instance reached over this socket or address.
  long add(const std::string& socket, platform::Id client = 0) {
    auto properties = this->properties();
    properties[platform::property::socketFile] = socket;
    const std::string name = "at " + socket;
    return static_cast<long>(client == 0 ? backend_.addInstance(name, properties)
                                         : backend_.addInstance(client, name, properties));
  }
  /// A cloud database's instance. Every one has a client of its own, as the last client is remembered.
  long addCloud(const std::string& socket) {
    platform::Id client = 0;
    EXPECT_TRUE(backend_.services()->inventory->putClient("cloud " + socket, 1, client).ok());
    backend_.setProxyDirectory(client, platform::property::applicationTypeMySql, "", "/proxy/bin");
    return add(socket, client);
  }
  std::string failure() const { return std::to_string(session_.iErrorCode) + " " + session_.strErrorString; }

  StandInLibrary library_{"unknown"};
  GetMySqlInfoExt session_;
};

}  // namespace orrery::test
