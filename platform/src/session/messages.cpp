#include "orrery/platform/DbSessionServer.h"
#include "orrery/platform/SbtMessages.h"

#include "little_endian.h"

using orrery::platform::decodeMessage;
using orrery::platform::session::appendNumber;
using orrery::platform::session::Bytes;

const char* DZS_OraBackupRestore_PM_STRING(unsigned long msgType) noexcept {
  switch (msgType) {
    case sbtStatusCode:
      return "SBT_STATUS";
    case sbtProgressCode:
      return "SBT_PROGRESS";
    case sbtRunCode:
      return "SBT_RUN";
    default:
      return "UNKNOWN";
  }
}

namespace orrery::platform {

std::string encodeMessage(const SbtStatusMessage& message) {
  std::string payload;
  appendNumber(payload, message.jobId);
  appendNumber(payload, message.threadId);
  appendNumber(payload, message.reserved);
  appendNumber(payload, message.status);
  return payload;
}

bool decodeMessage(std::string_view payload, SbtStatusMessage& message) {
  Bytes bytes(payload);
  SbtStatusMessage found;
  found.jobId = bytes.number<std::int64_t>();
  found.threadId = bytes.number<std::int64_t>();
  found.reserved = bytes.number<std::int32_t>();
  found.status = bytes.number<std::int32_t>();
  if (!bytes.readWhole()) return false;
  message = found;
  return true;
}

std::string encodeMessage(const SbtProgressMessage& message) {
  std::string payload;
  appendNumber(payload, message.jobId);
  appendNumber(payload, message.threadId);
  if (message.backupFileName == nullptr) {
    appendNumber(payload, std::uint16_t{0});
  } else {
    const std::string_view name = std::string_view(message.backupFileName).substr(0, longestBackupFileName);
    appendNumber(payload, static_cast<std::uint16_t>(name.size() + 1));
    payload += name;
  }
  appendNumber(payload, message.bytes);
  appendNumber(payload, message.files);
  appendNumber(payload, message.phase);
  return payload;
}

bool decodeMessage(std::string_view payload, SbtProgressMessage& message, std::string& name) {
  Bytes bytes(payload);
  SbtProgressMessage found;
  found.jobId = bytes.number<std::int64_t>();
  found.threadId = bytes.number<std::int64_t>();
  const std::size_t size = bytes.number<std::uint16_t>();
  const std::string_view text = size == 0 ? std::string_view() : bytes.text(size - 1);
  found.bytes = bytes.number<std::int64_t>();
  found.files = bytes.number<std::int64_t>();
  found.phase = bytes.number<std::int32_t>();
  if (!bytes.readWhole() || text.size() > longestBackupFileName) return false;
  name = text;
  found.backupFileName = size == 0 ? nullptr : name.c_str();
  message = found;
  return true;
}

}  // namespace orrery::platform

dzsDatabuf_v2::dzsDatabuf_v2(const SbtProgressMessage& message) {
  SbtProgressMessage kept = message;
  if (message.backupFileName != nullptr) {
    name_ = message.backupFileName;
    kept.backupFileName = name_.c_str();
  }
  content_ = kept;
}

bool dzsDatabuf_v2::assign(std::uint32_t code, std::string_view payload) {
  switch (code) {
    case sbtStatusCode:
    case sbtRunCode:
      return decodeMessage(payload, content_.emplace<SbtStatusMessage>());
    case sbtProgressCode:
      return decodeMessage(payload, content_.emplace<SbtProgressMessage>(), name_);
    default:
      content_.emplace<std::string>(payload);
      return true;
  }
}

const void* dzsDatabuf_v2::getDataBuffer() const noexcept {
  if (const auto* const bytes = std::get_if<std::string>(&content_)) return bytes->data();
  if (const auto* const status = std::get_if<SbtStatusMessage>(&content_)) return status;
  return std::get_if<SbtProgressMessage>(&content_);
}
