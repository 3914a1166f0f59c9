#include "sbt/texts.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "orrery/platform/FXString.h"
#include "orrery/platform/services.h"

namespace orrery::mysql::sbt {

std::int64_t secondsNow() {
  constexpr std::int64_t microsecondsPerSecond = 1'000'000;
  return platform::services().clock->now() / microsecondsPerSecond;
}

std::string timedFolder(const std::string& folder) {
  return FXPath::Append(folder, std::to_string(secondsNow()));
}

void removeTimedFolderOf(const std::string& directory) noexcept {
  const std::size_t slash = directory.rfind('/');
  if (slash == std::string::npos) return;
  // One that is not empty stays; a folder that stays for another reason does no harm.
  (void)::rmdir(std::string(directory, 0, slash).c_str());
}

std::string formatted(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  std::string text(length < 0 ? 0 : static_cast<std::size_t>(length), '\0');
  if (!text.empty()) std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  va_end(arguments);
  return text;
}

}  // namespace orrery::mysql::sbt
