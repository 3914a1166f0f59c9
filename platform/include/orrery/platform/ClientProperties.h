#pragma once

/// Look-ups of clients. Results: 0 and the output filled, or another code (a StatusCode of services.h).

#include <string>

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

/// A client of the suite, known by its name or its id. One object is used by one thread at a time.
class ORRERY_PLATFORM_EXPORT DZClient {
 public:
  explicit DZClient(std::string name) : name_(static_cast<std::string&&>(name)) {}
  explicit DZClient(unsigned long id) noexcept : id_(id) {}

  /// Asks the inventory for what is not known. The getters answer after a success.
  int lookup();
  unsigned long getClientId() const noexcept { return id_; }
  const std::string& getName() const noexcept { return name_; }

 private:
  unsigned long id_ = 0;  // 0: known by its name
  std::string name_;
};
