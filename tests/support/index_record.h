#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include <protozero/pbf_reader.hpp>

namespace orrery::test {

/// The fields of an index record without lists, by number.
inline std::map<unsigned, std::string> fieldsOf(const std::string& bytes) {
  std::map<unsigned, std::string> fields;
  protozero::pbf_reader reader(bytes);
  while (reader.next()) {
    const unsigned number = reader.tag();  // reading the value forgets it
    fields[number] = reader.get_string();
  }
  return fields;
}

/// The bytes that an Ascii85 text stands for; nothing for what is none.
inline std::optional<std::string> fromAscii85(const std::string& text) {
  std::string bytes;
  std::string group;
  const auto flush = [&] {
    const std::size_t missing = 5 - group.size();
    std::uint64_t value = 0;
    for (const char digit : group + std::string(missing, 'u')) value = value * 85 + static_cast<unsigned>(digit - '!');
    for (std::size_t i = 0; i < 4 - missing; ++i) bytes += static_cast<char>(value >> (24 - 8 * i) & 0xFFU);
    group.clear();
    return value <= 0xFFFFFFFFU;
  };
  for (const char digit : text) {
    if (digit == 'z' && group.empty()) {
      bytes.append(4, '\0');
    } else if (digit < '!' || digit > 'u') {
      return std::nullopt;
    } else if ((group += digit).size() == 5 && !flush()) {
      return std::nullopt;
    }
  }
  if (group.size() == 1 || (!group.empty() && !flush())) return std::nullopt;
  return bytes;
}

}  // namespace orrery::test
