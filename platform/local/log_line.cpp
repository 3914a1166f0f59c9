#include "log_line.h"

#include <charconv>
#include <chrono>
#include <cstring>

namespace orrery::platform::local {
namespace {

constexpr std::string_view cutMark = "...";
constexpr std::size_t fixedPart = 192;  // more than time, ids, kind and separators can take
constexpr std::size_t longestEscape = 4;

/// Appends to a buffer of fixed size; keeps room for the mark and the line break.
class Cursor {
 public:
  Cursor(char* out, std::size_t capacity) noexcept : begin_(out), at_(out), end_(out + capacity - cutMark.size() - 1) {}

  void put(std::string_view piece) noexcept {
    if (piece.empty()) return;  // lines without a tag have a view of nothing
    if (cut_ || static_cast<std::size_t>(end_ - at_) < piece.size()) {
      cut_ = true;
      return;
    }
    std::memcpy(at_, piece.data(), piece.size());
    at_ += piece.size();
  }

  void putNumber(long long number, int width = 1) noexcept {
    char digits[24];
    const auto [last, error] = std::to_chars(digits, digits + sizeof digits, number);
    static_cast<void>(error);  // 24 bytes hold every number
    for (auto length = last - digits; length < width; ++length) put("0");
    put({digits, static_cast<std::size_t>(last - digits)});
  }

  /// Runs of ordinary bytes are copied whole.
  void putEscaped(std::string_view text) noexcept {
    std::size_t from = 0;
    for (std::size_t i = 0; i < text.size() && !cut_; ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      if (byte >= 0x20 && byte != 0x7f && byte != '\\') continue;
      putRun(text.substr(from, i - from));
      putEscape(byte);
      from = i + 1;
    }
    putRun(text.substr(from));
  }

  std::size_t finish() noexcept {
    if (cut_) {
      std::memcpy(at_, cutMark.data(), cutMark.size());
      at_ += cutMark.size();
    }
    *at_++ = '\n';
    return static_cast<std::size_t>(at_ - begin_);
  }

 private:
  void putRun(std::string_view run) noexcept {
    if (cut_) return;
    const auto room = static_cast<std::size_t>(end_ - at_);
    put(run.substr(0, room));
    if (run.size() > room) cut_ = true;
  }

  void putEscape(unsigned char byte) noexcept {
    switch (byte) {
      case '\n':
        return put("\\n");
      case '\t':
        return put("\\t");
      case '\\':
        return put("\\\\");
      default: {
        constexpr char hex[] = "0123456789abcdef";
        const char escape[longestEscape] = {'\\', 'x', hex[byte >> 4], hex[byte & 15]};
        put({escape, sizeof escape});
      }
    }
  }

  char* begin_;
  char* at_;
  char* end_;
  bool cut_ = false;
};

/// The calendar is computed here: localtime and gmtime read the time zone under a lock.
void putTime(Cursor& line, std::int64_t microseconds) noexcept {
  using namespace std::chrono;
  const sys_time<std::chrono::microseconds> time{std::chrono::microseconds{microseconds}};
  const auto day = floor<days>(time);
  const year_month_day date{day};
  const hh_mm_ss clock{time - day};
  line.putNumber(int{date.year()}, 4);
  line.put("-");
  line.putNumber(unsigned{date.month()}, 2);
  line.put("-");
  line.putNumber(unsigned{date.day()}, 2);
  line.put("T");
  line.putNumber(clock.hours().count(), 2);
  line.put(":");
  line.putNumber(clock.minutes().count(), 2);
  line.put(":");
  line.putNumber(clock.seconds().count(), 2);
  line.put(".");
  line.putNumber(clock.subseconds().count(), 6);
  line.put("Z");
}

}  // namespace

std::size_t roomForLogLine(const LogLine& line) noexcept {
  return fixedPart + longestEscape * (line.tag.size() + line.text.size());
}

std::size_t formatLogLine(const LogLine& line, const LogOrigin& origin, char* out, std::size_t capacity) noexcept {
  Cursor cursor(out, capacity);
  putTime(cursor, origin.microseconds);
  cursor.put(" ");
  cursor.putNumber(origin.process);
  cursor.put(" ");
  cursor.putNumber(origin.thread);
  cursor.put(" ");
  cursor.putNumber(line.jobId);
  if (line.kind == LogKind::error) {
    cursor.put(" E");
  } else {
    cursor.put(" D");
    cursor.putNumber(line.level);
  }
  cursor.put(" [");
  cursor.putEscaped(line.tag);
  cursor.put("] ");
  cursor.putEscaped(line.text);
  return cursor.finish();
}

}  // namespace orrery::platform::local
