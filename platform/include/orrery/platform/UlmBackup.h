#pragma once

/// Proxy look-ups: where this machine keeps client programs for cloud instances.

#include <optional>
#include <string>

#include "orrery/platform/export.h"

namespace Ulm {

struct GetProxyDBInstallDirReq {
  unsigned long clientId = 0;
  unsigned long applicationType = 0;
  std::string version;
  unsigned long proxyClientId = 0;
};

struct ResponseError {
  int code = 0;
  std::string text;
};

struct GetProxyDBInstallDirResp {
  std::optional<ResponseError> error;
  std::optional<std::string> installDirectory;
};

}  // namespace Ulm

class ORRERY_PLATFORM_EXPORT UlmBackup {
 public:
  /// 0 when the directory service answered; the answer may be an error or hold no directory.
  int getProxyDBInstallDir(const Ulm::GetProxyDBInstallDirReq& request, Ulm::GetProxyDBInstallDirResp& response);
};
