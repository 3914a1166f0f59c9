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
  std::string failure() const { return std::to_string(session_.iErrorCode) + " " + session_.strErrorString; }

  StandInLibrary library_{"unknown"};
  GetMySqlInfoExt session_;
};

}  // namespace orrery::test
