// Names of databases and tables as the server spells them on disk.

#include "databases/file_name.h"

#include <array>
#include <cstdio>

#include "orrery/mysql/MySqlHelperClasses.h"

#include "session/guarded.h"

namespace orrery::mysql {
namespace {

constexpr char32_t replacement = 0xFFFD;

bool isContinuation(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

struct Character {
  char32_t codePoint;
  std::size_t length;
};

/// The first character of a text that is not empty. A byte that begins none counts for itself: a cut-off, overlong or
/// surrogate sequence is as many replacements as it has bytes.
Character firstOf(std::string_view text) {
  constexpr Character broken{replacement, 1};
  const auto first = static_cast<unsigned char>(text[0]);
  if (first < 0x80) return {first, 1};
  if (first < 0xC2 || first > 0xF4) return broken;
  const std::size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (text.size() < length) return broken;
  char32_t codePoint = first & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (!isContinuation(byte)) return broken;
    codePoint = codePoint << 6 | (byte & 0x3Fu);
  }
  constexpr std::array<char32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
  const bool isSurrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  if (codePoint < smallest[length] || codePoint > 0x10FFFF || isSurrogate) return broken;
  return {codePoint, length};
}

bool isKept(char32_t c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

}  // namespace

// Kept: one rule for all characters. Servers have shorter codes for letters with an upper and a lower case outside
// ASCII; the names that agents look for have always been those of this rule.
std::string encodeFileName(std::string_view name) {
  std::string encoded;
  encoded.reserve(name.size());
  while (!name.empty()) {
    const Character character = firstOf(name);
    if (isKept(character.codePoint)) {
      encoded += static_cast<char>(character.codePoint);
    } else {
      std::array<char, 16> text;
      const int length =
          std::snprintf(text.data(), text.size(), "@%04x", static_cast<unsigned int>(character.codePoint));
      encoded.append(text.data(), static_cast<std::size_t>(length));
    }
    name.remove_prefix(character.length);
  }
  return encoded;
}

}  // namespace orrery::mysql

std::string GetMySqlInfo::getMySqlHexName(const std::string& name) {
  std::string encoded;
  orrery::mysql::guarded(evEvent, "GetMySqlInfo::getMySqlHexName", [&] {
    encoded = orrery::mysql::encodeFileName(name);
    return 0;
  });
  return encoded;
}

void GetMySqlInfo::convertSpecialCharsToHexChars(const std::string& name, std::string& encoded) {
  constexpr const char* tag = "GetMySqlInfo::convertSpecialCharsToHexChars";
  evEvent.DebugLvl(tag, 5, "Trying to convert: %s", name.c_str());
  encoded = getMySqlHexName(name);
  evEvent.DebugLvl(tag, 5, "Converted db name: %s", encoded.c_str());
}
