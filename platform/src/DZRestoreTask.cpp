#include "orrery/platform/DZRestoreTask.h"

#include <charconv>
#include <optional>

#include "orrery/platform/services.h"

using namespace orrery::platform;

int DZRestoreTask::getText(std::uint32_t option, std::string& value) const {
  std::optional<std::string> found;
  const Status status = services().jobs->readTaskOption(jobId_, option, found);
  if (!status.ok()) return status.code;
  if (!found) return statusNotFound;
  value = std::move(*found);
  return 0;
}

int DZRestoreTask::getNumber(std::uint32_t option, long& value) const {
  std::string text;
  if (const int rc = getText(option, text); rc != 0) return rc;
  long number = 0;
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, number);
  if (error != std::errc() || end != last) return statusInvalid;
  value = number;
  return 0;
}

int DZRestoreTask::number(std::uint32_t option, unsigned long& value) const {
  long found = 0;
  if (const int rc = getNumber(option, found); rc != 0) return rc;
  if (found <= 0) return statusInvalid;
  value = static_cast<unsigned long>(found);
  return 0;
}

int DZRestoreTask::getRestoreToTime(std::int64_t& seconds) const {
  long found = 0;
  if (const int rc = getNumber(optionRestoreToTime, found); rc != 0) return rc;
  seconds = found;
  return 0;
}
