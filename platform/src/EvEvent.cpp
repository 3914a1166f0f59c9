#include "orrery/platform/EvEvent.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "orrery/platform/DzProcess.h"
#include "orrery/platform/services.h"

namespace {

using orrery::platform::LogKind;
using orrery::platform::LogLine;
using orrery::platform::LogSink;

std::atomic<long long> currentJob{0};

// Nearly every message fits; a longer one costs one allocation. In a child it is cut instead.
constexpr std::size_t stackBuffer = 1024;

[[gnu::format(printf, 2, 0)]] void emit(LogLine line, const char* format, va_list arguments) noexcept {
  LogSink& sink = *orrery::platform::services().log;
  const bool inChild = orrery::platform::inForkedChild();
  const int error = errno;  // callers log a failure and then report its errno

  std::array<char, stackBuffer> buffer;
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
  const std::size_t size = length < 0 ? 0 : static_cast<std::size_t>(length);
  if (size < buffer.size() || inChild) {
    line.text = std::string_view(buffer.data(), std::min(size, buffer.size() - 1));
    inChild ? sink.writeInChild(line) : sink.write(line);
  } else {
    try {
      std::string text(size, '\0');
      std::vsnprintf(text.data(), size + 1, format, again);
      line.text = text;
      sink.write(line);
    } catch (const std::exception&) {
      line.text = std::string_view(buffer.data(), buffer.size() - 1);
      sink.write(line);
    }
  }
  va_end(again);
  errno = error;
}

bool wanted(int level) noexcept {
  return orrery::platform::services().log->wants(level);
}

}  // namespace

EvDebug::EvDebug() noexcept : jobId_(currentJob.load(std::memory_order_relaxed)) {}

void EvDebug::Debug(const char* tag, const char* format, ...) const noexcept {
  if (!wanted(0)) return;
  va_list arguments;
  va_start(arguments, format);
  emit({LogKind::debug, 0, jobId_, tag, {}}, format, arguments);
  va_end(arguments);
}

void EvDebug::DebugLvl(const char* tag, int level, const char* format, ...) const noexcept {
  if (!wanted(level)) return;
  va_list arguments;
  va_start(arguments, format);
  emit({LogKind::debug, level, jobId_, tag, {}}, format, arguments);
  va_end(arguments);
}

void EvDebug::Error(const char* tag, const char* format, ...) const noexcept {
  va_list arguments;
  va_start(arguments, format);
  emit({LogKind::error, 0, jobId_, tag, {}}, format, arguments);
  va_end(arguments);
}

void EvDebug::debugLvl(int level, const char* format, ...) noexcept {
  if (!wanted(level)) return;
  va_list arguments;
  va_start(arguments, format);
  emit({LogKind::debug, level, currentJob.load(std::memory_order_relaxed), {}, {}}, format, arguments);
  va_end(arguments);
}

std::string EvDebug::getClientName() {
  orrery::platform::Client client;
  return orrery::platform::services().inventory->ownClient(client).ok() ? client.name : std::string();
}

void EvEvent::raise(int severity, std::uint32_t code) noexcept {
  try {
    orrery::platform::Event event;
    event.severity = static_cast<orrery::platform::Severity>(severity);
    event.code = code;
    event.jobId = getJobId();
    event.arguments = takeArguments();
    const auto status = orrery::platform::services().events->raise(event);
    if (!status.ok()) Error("EvEvent", "event 0x%08x could not be raised: %s", code, status.text.c_str());
  } catch (const std::exception& error) {
    Error("EvEvent", "event 0x%08x could not be raised: %s", code, error.what());
  }
}

void EvEvent::CriticalEvent(std::uint32_t code) noexcept {
  raise(static_cast<int>(orrery::platform::Severity::critical), code);
}

void EvEvent::MajorEvent(std::uint32_t code) noexcept {
  raise(static_cast<int>(orrery::platform::Severity::major), code);
}

void EvEvent::InformationEvent(std::uint32_t code) noexcept {
  raise(static_cast<int>(orrery::platform::Severity::information), code);
}

namespace orrery::platform {

ScopedJob::ScopedJob(long long jobId) noexcept : earlier_(currentJob.exchange(jobId)) {}
ScopedJob::~ScopedJob() {
  currentJob.store(earlier_);
}

}  // namespace orrery::platform
