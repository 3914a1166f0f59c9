#include "settings_text.h"

#include <ini.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "failure.h"

namespace orrery::platform::local {
namespace {

constexpr std::string_view blanks = " \t\r\v\f";

std::string_view withoutLeadingBlanks(std::string_view text) {
  return text.substr(std::min(text.find_first_not_of(blanks), text.size()));
}

/// Feeds the parser line by line and collects what it finds.
///
/// The parser has habits that would lose what people wrote: it cuts long lines and long section names, and takes an
/// indented line for more of the key above. So the lines are handed to it without their indentation, and everything
/// that it would cut is refused here, with the number of the line.
class Reading {
 public:
  Reading(std::string_view text, ParsedSettings& parsed) : rest_(text), parsed_(parsed) {}

  /// As ini_reader: fills `buffer` with the next line; null at the end or after a problem.
  static char* nextLine(char* buffer, int size, void* self) {
    return static_cast<Reading*>(self)->fill(buffer, static_cast<std::size_t>(size));
  }

  /// As ini_handler: 1 when the key was taken.
  static int takeKey(void* self, const char* section, const char* name, const char* value) {
    return static_cast<Reading*>(self)->take(section, name, value) ? 1 : 0;
  }

  const std::string& problem() const noexcept { return problem_; }

 private:
  char* fill(char* buffer, std::size_t size) {
    if (rest_.empty() || !problem_.empty()) return nullptr;
    const std::size_t end = rest_.find('\n');
    std::string_view line = rest_.substr(0, end);
    rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
    ++lines_;
    if (lines_ == 1 && line.substr(0, 3) == "\xef\xbb\xbf") line.remove_prefix(3);
    line = withoutLeadingBlanks(line);
    if (line.find('\0') != std::string_view::npos) return refuse("it holds a null byte");
    if (line.size() + 1 > size - 1)
      return refuse("it is longer than " + std::to_string(size - 2) + " bytes; shorten it");
    if (!line.empty() && line.front() == '[' && !beginSection(line.substr(1))) return nullptr;
    std::memcpy(buffer, line.data(), line.size());
    buffer[line.size()] = '\n';
    buffer[line.size() + 1] = '\0';
    return buffer;
  }

  bool beginSection(std::string_view line) {
    const std::size_t end = line.find(']');
    if (end == std::string_view::npos) return refuse("the section has no ]") != nullptr;
    const std::string_view behind = withoutLeadingBlanks(line.substr(end + 1));
    if (!behind.empty() && behind.front() != ';' && behind.front() != '#')
      return refuse("there is text behind the section") != nullptr;
    section_ = line.substr(0, end);
    if (section_.empty()) return refuse("the section has no name") != nullptr;
    parsed_.sections[section_].lastLine = lines_ - 1;
    return true;
  }

  bool take(const std::string& section, const std::string& key, const std::string& value) {
    if (!problem_.empty()) return false;
    if (section_.empty()) return refuse("the key \"" + key + "\" stands before the first [section]") != nullptr;
    if (section != section_) return refuse("it is in a section whose name cannot be used: " + section_) != nullptr;
    if (key.empty()) return refuse("there is no key before the =") != nullptr;
    ParsedSettings::Section& target = parsed_.sections[section_];
    const auto [place, isNew] = target.values.try_emplace(key, ParsedSettings::Value{value, lines_ - 1});
    if (!isNew)
      return refuse("the key \"" + key + "\" is given a second time, first in line " +
                    std::to_string(place->second.line + 1)) != nullptr;
    target.lastLine = lines_ - 1;
    return true;
  }

  char* refuse(const std::string& reason) {
    if (problem_.empty()) problem_ = "settings.ini line " + std::to_string(lines_) + ": " + reason;
    return nullptr;
  }

  std::string_view rest_;
  ParsedSettings& parsed_;
  std::string section_;
  std::size_t lines_ = 0;
  std::string problem_;
};

std::vector<std::string> splitLines(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t from = 0; from < text.size();) {
    const std::size_t end = text.find('\n', from);
    const std::size_t next = end == std::string::npos ? text.size() : end + 1;
    lines.push_back(text.substr(from, next - from));
    from = next;
  }
  return lines;
}

std::string joinLines(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line;
  return text;
}

bool isBlank(char c) {
  return std::strchr(" \t\r\n", c) != nullptr;
}

/// The line with its value exchanged; indentation, separator and a comment behind the value stay.
std::string replaceValue(const std::string& line, const std::string& earlier, const std::string& value) {
  std::size_t at = line.find_first_of("=:") + 1;
  at = std::min(line.find_first_not_of(" \t", at), line.size());
  const std::string behind = line.substr(std::min(at + earlier.size(), line.size()));
  std::string before = line.substr(0, at) + value;
  if (!behind.empty() && !isBlank(before.back()) && !isBlank(behind.front())) before += ' ';
  return before + behind;
}

void insertBehind(std::vector<std::string>& lines, std::size_t line, const std::string& text) {
  std::string& above = lines[line];
  if (above.back() != '\n') above += '\n';
  const bool carriageReturn = above.size() > 1 && above[above.size() - 2] == '\r';
  lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(line) + 1, text + (carriageReturn ? "\r\n" : "\n"));
}

bool hasOneOf(const std::string& text, std::string_view characters) {
  return text.find_first_of(characters) != std::string::npos;
}

std::string edited(const std::string& text, const ParsedSettings& parsed, const std::string& section,
                   const std::string& key, const std::string& value) {
  std::vector<std::string> lines = splitLines(text);
  const auto known = parsed.sections.find(section);
  if (known == parsed.sections.end()) {
    if (!lines.empty() && lines.back().back() != '\n') lines.back() += '\n';
    if (!lines.empty()) lines.push_back("\n");
    lines.push_back("[" + section + "]\n" + key + " = " + value + "\n");
    return joinLines(lines);
  }
  const auto present = known->second.values.find(key);
  if (present == known->second.values.end()) {
    insertBehind(lines, known->second.lastLine, key + " = " + value);
  } else {
    std::string& line = lines[present->second.line];
    line = replaceValue(line, present->second.text, value);
  }
  return joinLines(lines);
}

/// Whether `after` says what `before` said, with the one key set.
bool saysTheSame(const ParsedSettings& before, const ParsedSettings& after, const std::string& section,
                 const std::string& key, const std::string& value) {
  ParsedSettings expected = before;
  expected.sections[section].values[key] = {value, 0};
  return std::equal(
      expected.sections.begin(), expected.sections.end(), after.sections.begin(), after.sections.end(),
      [](const auto& a, const auto& b) { return a.first == b.first && a.second.values == b.second.values; });
}

}  // namespace

Status parseSettings(std::string_view text, ParsedSettings& parsed) {
  return guarded([&] {
    ParsedSettings found;
    Reading reading(text, found);
    const int line = ini_parse_stream(&Reading::nextLine, &reading, &Reading::takeKey, &reading);
    if (!reading.problem().empty()) throw Failure(Status::failure(reading.problem()));
    if (line != 0)
      throw Failure(Status::failure("settings.ini line " + std::to_string(line) +
                                    ": it is neither [section], key = value nor a comment"));
    parsed = std::move(found);
  });
}

Status checkSetting(const std::string& section, const std::string& key, const std::string& value) {
  constexpr std::string_view unusable{"\n\r\0", 3};
  if (section.empty()) return Status::invalid("a setting needs a section");
  if (key.empty()) return Status::invalid("a setting needs a key");
  if (hasOneOf(section, unusable) || hasOneOf(key, unusable) || hasOneOf(value, unusable))
    return Status::invalid("a setting cannot hold line breaks or null bytes");
  if (hasOneOf(section, "]")) return Status::invalid("the name of a section cannot hold ]");
  if (hasOneOf(key, "=:")) return Status::invalid("a key cannot hold = or :");
  if (hasOneOf(key.substr(0, 1), "[;#")) return Status::invalid("a key cannot begin with [, ; or #");
  return Status::success();
}

Status changeSettings(const std::string& text, const std::string& section, const std::string& key,
                      const std::string& value, std::string& changed) {
  return guarded([&] {
    if (Status status = checkSetting(section, key, value); !status.ok()) throw Failure(std::move(status));
    ParsedSettings before;
    if (Status status = parseSettings(text, before); !status.ok()) throw Failure(std::move(status));
    std::string result = edited(text, before, section, key, value);
    ParsedSettings after;
    Status status = parseSettings(result, after);
    if (!status.ok() || !saysTheSame(before, after, section, key, value))
      throw Failure(Status::invalid("the value of [" + section + "] " + key +
                                    " would not read back from settings.ini; " +
                                    (status.ok() ? "remove blanks around it and \" ;\" in it" : status.text)));
    changed = std::move(result);
  });
}

}  // namespace orrery::platform::local
