#include "printable.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace orrery::tool {
namespace {

/// Bytes of the UTF-8 character that `text` begins with; 0 when it begins with none.
std::size_t lengthOfCharacter(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t length = lead < 0x80   ? 1
                             : lead < 0xC2 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
  if (length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return 0;
  }
  if (length < 3) return length;
  // Longer than need be, halves of a UTF-16 pair, beyond the last character.
  const auto second = static_cast<unsigned char>(text[1]);
  const bool isWrong = (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second >= 0xA0) ||
                       (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second >= 0x90);
  return isWrong ? 0 : length;
}

bool steersTheTerminal(std::string_view character) {
  const auto first = static_cast<unsigned char>(character.front());
  if (character.size() == 1) return first < ' ' || first == 0x7f;
  const auto last = static_cast<unsigned char>(character.back());
  if (character.size() == 2) return first == 0xC2 && last < 0xA0;
  const std::string_view head = character.substr(0, 2);
  if (head == "\xE2\x80") return last == 0x8E || last == 0x8F || (last >= 0xA8 && last <= 0xAE);
  return head == "\xE2\x81" && last >= 0xA6 && last <= 0xA9;
}

void appendEscaped(std::string& result, std::string_view bytes) {
  for (const char byte : bytes) {
    std::array<char, 8> escaped{};
    std::snprintf(escaped.data(), escaped.size(), "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    result += escaped.data();
  }
}

}  // namespace

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = lengthOfCharacter(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = lengthOfCharacter(text);
    const std::string_view character = text.substr(0, length == 0 ? 1 : length);
    if (character == "\n") {
      result += "\\n";
    } else if (character == "\t") {
      result += "\\t";
    } else if (character == "\\") {
      result += "\\\\";
    } else if (length == 0 || steersTheTerminal(character)) {
      appendEscaped(result, character);
    } else {
      result += character;
    }
    text.remove_prefix(character.size());
  }
  return result;
}

}  // namespace orrery::tool
