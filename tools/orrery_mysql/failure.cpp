#include "failure.h"

namespace orrery::tool {
namespace {

std::string compose(std::string_view what, std::string_view text, std::string_view next, std::optional<long> number) {
  std::string line(what);
  if (number || !text.empty()) line += ":";
  if (number) line += " [" + std::to_string(*number) + "]";
  if (!text.empty()) line.append(" ").append(text);
  if (!next.empty()) line.append("; ").append(next);
  return onOneLine(line);
}

}  // namespace

Failure::Failure(std::string_view what, std::string_view text, std::string_view next, std::optional<long> number)
    : std::runtime_error(compose(what, text, next, number)) {}

void require(const platform::Status& status, std::string_view what, std::string_view next) {
  if (!status.ok()) throw Failure(what, status.text, next);
}

std::string onOneLine(std::string_view text) {
  std::string line;
  line.reserve(text.size());
  for (const char character : text) {
    const auto code = static_cast<unsigned char>(character);
    if (code > ' ' && code != 0x7f) {
      line += character;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  if (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

}  // namespace orrery::tool
