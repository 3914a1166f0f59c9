#include "client/log_target.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "orrery/platform/EvEvent.h"
#include "orrery/platform/posix.h"
#include "orrery/platform/services.h"

namespace orrery::mysql {
namespace {

constexpr const char* redirectFile = "/tmp/debugMySqlInterface.log";
constexpr const char* tag = "MySqlInterface::MySQLErrorLog";
constexpr int logLevel = 5;
constexpr std::size_t messageRoom = 4095;
constexpr std::size_t lineRoom = messageRoom + 80;

/// Lines hold statements and rows. In a folder that everybody may write to, a file of another account, a link or a
/// second name of a file is not one that the agent's administrator made.
bool isTrustworthy(const struct stat& file) {
  return S_ISREG(file.st_mode) && file.st_nlink == 1 && (file.st_uid == 0 || file.st_uid == geteuid());
}

}  // namespace

void LogTarget::look() noexcept {
  struct stat file {};
  const bool exists = lstat(redirectFile, &file) == 0;
  isRedirected_ = exists && isTrustworthy(file);
  isLogged_ = platform::services().log->wants(logLevel);
  if (exists && !isRedirected_ && !hasToldRefusal_) {
    hasToldRefusal_ = true;
    EvEvent().Error(tag, "[%s] is not used: it is no plain file of root or of the agent's account", redirectFile);
  }
}

void LogTarget::line(const char* format, ...) noexcept {
  if (!isWanted()) return;
  va_list arguments;
  va_start(arguments, format);
  vline(format, arguments);
  va_end(arguments);
}

void LogTarget::vline(const char* format, va_list arguments) noexcept {
  std::array<char, messageRoom> message{};
  std::vsnprintf(message.data(), message.size(), format, arguments);
  if (isRedirected_ && appendToRedirectFile(message.data())) return;
  EvDebug::debugLvl(logLevel, "%s", message.data());
}

bool LogTarget::appendToRedirectFile(const char* message) noexcept {
  // Opened anew for every line: whoever watches may remove it at any moment, and it must not be made again then.
  const platform::OwnFd file(open(redirectFile, O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat info {};
  if (!file.valid() || fstat(file.get(), &info) != 0 || !isTrustworthy(info)) return false;
  const auto now = static_cast<time_t>(platform::services().clock->now() / 1000000);
  struct tm local {};
  localtime_r(&now, &local);
  std::array<char, lineRoom> text{};
  const int length = std::snprintf(text.data(), text.size(), "MySQLInterface-%d: %02d/%02d/%02d %02d:%02d:%02d %s\n",
                                   getpid(), local.tm_mon + 1, local.tm_mday, local.tm_year % 100, local.tm_hour,
                                   local.tm_min, local.tm_sec, message);
  return write(file.get(), text.data(), static_cast<std::size_t>(length)) == length;
}

}  // namespace orrery::mysql
