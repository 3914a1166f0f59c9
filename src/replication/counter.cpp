#include "replication/counter.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "orrery/platform/DZFile.h"

namespace orrery::mysql {
namespace {

CounterWriting writeAside(const std::string& path, unsigned int count) {
  // Left by one who died; an older, longer text must not shine through.
  ::unlink(path.c_str());
  DZFile file;
  if (!file.open(path, DZFile::modeReadWrite)) {
    return {CounterWriting::Outcome::notOpened, -1, file.lastError()};
  }
  const std::string digits = std::to_string(count);
  int rc = file.write(digits.data(), digits.size());
  if (rc == 0) rc = file.close();
  if (rc != 0) return {CounterWriting::Outcome::notWritten, rc, file.lastError()};
  return {CounterWriting::Outcome::written, 0, 0};
}

}  // namespace

CounterReading readCounter(const std::string& path) {
  CounterReading reading;
  DZFile file;
  if (!file.open(path, DZFile::modeReadWrite)) {
    reading.error = file.lastError();
    return reading;
  }
  std::array<char, counterDigits> buffer{};
  reading.bytes = file.read(buffer.data(), buffer.size());
  if (reading.bytes < 0) {
    reading.outcome = CounterReading::Outcome::notRead;
    reading.error = file.lastError();
    return reading;
  }
  reading.outcome = CounterReading::Outcome::read;
  reading.text.assign(buffer.data(), static_cast<std::size_t>(reading.bytes));
  reading.count = static_cast<unsigned int>(std::max(0L, std::strtol(reading.text.c_str(), nullptr, 10)));
  return reading;
}

CounterWriting writeCounter(const std::string& path, unsigned int count) {
  const std::string aside = path + ".new";
  CounterWriting writing = writeAside(aside, count);
  if (writing.outcome == CounterWriting::Outcome::written && std::rename(aside.c_str(), path.c_str()) != 0) {
    writing = {CounterWriting::Outcome::notWritten, -1, errno};
  }
  if (writing.outcome != CounterWriting::Outcome::written) {
    ::unlink(aside.c_str());
    if (count == 0) ::unlink(path.c_str());
  }
  return writing;
}

void tellNotOpened(const EvEvent& log, const char* tag, const std::string& path, int error) noexcept {
  log.Debug(tag, "opening [%s] failed with error %d by DZFile::open call", path.c_str(), error);
}

void tellNotRead(const EvEvent& log, const char* tag, int error) noexcept {
  log.Debug(tag, "DZFile::read() returned error %d", error);
}

void tellNotWritten(const EvEvent& log, const char* tag, const CounterWriting& writing) noexcept {
  log.Debug(tag, "DZFile::write() returned error %d", writing.error);
  if (writing.result == -2) log.Debug(tag, "DZFile::write() did not write requested bytes");
}

}  // namespace orrery::mysql
