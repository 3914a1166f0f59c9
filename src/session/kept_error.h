#pragma once

#include <cstdint>
#include <string>

#include "orrery/mysql/MySqlHelperClasses.h"

namespace orrery::mysql {

/// The session's last error, to be put back where a request has none of its own: a success leaves the last failure to
/// be read.
class [[nodiscard]] KeptError {
 public:
  explicit KeptError(GetMySqlInfo& session)
      : session_(session), code_(session.iErrorCode), text_(session.strErrorString) {}
  void putBack() const {
    session_.iErrorCode = code_;
    session_.strErrorString = text_;
  }

 private:
  GetMySqlInfo& session_;
  std::int32_t code_;
  std::string text_;
};

}  // namespace orrery::mysql
