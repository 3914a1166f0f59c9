#include "faults.h"

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <string_view>

namespace orrery::standin {
namespace {

constexpr const char* variable = "ORRERY_MYSQLBACKUP_FAULT";
constexpr std::string_view points[] = {"start",   "options", "server",        "stream",    "media_write", "close",
                                       "history", "unpack",  "prepare",       "copy_back", "apply",       "silent",
                                       "hang",    "crash",   "no_error_line", "slow"};

}  // namespace

Faults::Faults() {
  const char* const value = ::secure_getenv(variable);
  if (value == nullptr || *value == '\0') return;
  const std::string_view text = value;
  const std::size_t colon = std::min(text.find(':'), text.size());
  point_ = text.substr(0, colon);
  if (std::find(std::begin(points), std::end(points), point_) == std::end(points))
    throw Failure(std::string(variable) + " names no fault: " + value);
  if (colon == text.size()) return;
  const auto [end, error] = std::from_chars(text.data() + colon + 1, text.data() + text.size(), number_);
  if (error != std::errc() || end != text.data() + text.size())
    throw Failure(std::string(variable) + " has no number behind its colon: " + value);
}

void Faults::at(const char* point) const {
  if (is(point)) throw Failure(std::string("the fault \"") + point + "\" was asked for");
}

void Faults::beforeBlock(std::uint64_t done, const Ending& ending) const {
  if (is("slow")) ending.waitFor(std::chrono::milliseconds(number_));
  if (done < number_) return;
  at("stream");
  if (is("crash")) ::kill(::getpid(), SIGKILL);
}

void Faults::beforeMediaWrite(std::uint64_t index) const {
  if (index >= number_) at("media_write");
}

void Faults::onConnected(const Ending& ending) const {
  if (is("silent")) ending.waitForever();
  while (is("hang")) ::pause();
}

}  // namespace orrery::standin
