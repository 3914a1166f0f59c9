#include "orrery/platform/UlmBackup.h"

#include "orrery/platform/EvEvent.h"
#include "orrery/platform/services.h"

int UlmBackup::getProxyDBInstallDir(const Ulm::GetProxyDBInstallDirReq& request,
                                    Ulm::GetProxyDBInstallDirResp& response) {
  using namespace orrery::platform;
  response = {};
  const ProxyRequest asked{request.clientId, static_cast<int>(request.applicationType), request.version,
                           request.proxyClientId};
  const Status status = services().proxies->installDirectory(asked, response.installDirectory);
  if (status.code == statusUnavailable) {
    EvEvent().Error("UlmBackup::getProxyDBInstallDir", "%s", status.text.c_str());
    return status.code;
  }
  if (!status.ok()) response.error = Ulm::ResponseError{status.code, status.text};
  return 0;
}
