#pragma once

/// Look-ups of clients. Results: 0 and the output filled, or another code (a StatusCode of services.h).

#include "orrery/platform/export.h"

class ORRERY_PLATFORM_EXPORT ClientFromInstanceId {
 public:
  /// The client that owns an instance.
  static int getClientId(unsigned long instanceId, unsigned long& clientId);
};

class ORRERY_PLATFORM_EXPORT ClientProperties {
 public:
  explicit ClientProperties(unsigned long clientId) noexcept : clientId_(clientId) {}
  /// 1 is a cloud database client.
  int getClientAppType(int& type) const;

 private:
  unsigned long clientId_;
};
