#pragma once

#include <sys/stat.h>

#include <mutex>
#include <string>

#include "orrery/platform/services.h"

#include "posix.h"
#include "settings_text.h"

namespace orrery::platform::local {

/// settings.ini of a home. Read again whenever the file changed, so that an edit by hand counts at once.
class SettingsFile final : public Settings {
 public:
  static constexpr const char* fileName = "settings.ini";

  explicit SettingsFile(std::string home) : home_(std::move(home)) {}

  Status read(const std::string& section, const std::string& key, std::optional<std::string>& value) override;
  Status write(const std::string& section, const std::string& key, const std::string& value) override;
  Status list(const std::string& section, std::map<std::string, std::string>& values) override;

 private:
  const ParsedSettings& current();
  void replace(int folder, const struct stat& earlier, const std::string& text) const;
  std::string path() const { return home_ + "/" + fileName; }

  const std::string home_;
  std::mutex mutex_;
  struct stat seen_ {};   // of the file that `parsed_` was read from
  bool trusted_ = false;  // `parsed_` holds for as long as the file looks like `seen_`
  ParsedSettings parsed_;
};

}  // namespace orrery::platform::local
