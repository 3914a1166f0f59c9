#pragma once

#include <string>

#include "orrery/platform/services.h"

namespace orrery::platform::local {

/// Passwords sealed with the key of a home. A sealed text is "v1:" and the base64 form of nonce and box.
/// The key is read for each call and wiped after it, so it lies in memory only while it is used.
class Vault final : public PasswordVault {
 public:
  static constexpr const char* fileName = "vault.key";

  explicit Vault(const std::string& home) : keyPath_(home + "/" + fileName) {}

  Status seal(const std::string& plain, std::string& sealed) override;
  Status open(const std::string& sealed, std::string& plain) override;

  /// A fresh key as it is kept in the file.
  static std::string makeKey();

 private:
  const std::string keyPath_;
};

}  // namespace orrery::platform::local
