#include "session/option_file.h"

#include <cctype>

namespace orrery::mysql {
namespace {

bool isQuote(char character) {
  return character == '\'' || character == '"';
}

bool isBlank(char character) {
  return std::isspace(static_cast<unsigned char>(character)) != 0;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

/// Cuts at the first "#" that stands in no quotes. A backslash protects the quote behind it only inside quotes.
std::string_view withoutComment(std::string_view line) {
  char quote = '\0';
  bool escaped = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char character = line[i];
    if (isQuote(character) && !escaped) {
      if (quote == '\0') {
        quote = character;
      } else if (quote == character) {
        quote = '\0';
      }
    }
    if (quote == '\0' && character == '#') return line.substr(0, i);
    escaped = quote != '\0' && character == '\\' && !escaped;
  }
  return line;
}

std::string withEscapesResolved(std::string_view value) {
  std::string result;
  result.reserve(value.size());
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] != '\\' || i + 1 == value.size()) {
      result += value[i];
      continue;
    }
    const char escape = value[++i];
    switch (escape) {
      case 'n':
        result += '\n';
        break;
      case 't':
        result += '\t';
        break;
      case 'r':
        result += '\r';
        break;
      case 'b':
        result += '\b';
        break;
      case 's':
        result += ' ';
        break;
      case '"':
      case '\'':
      case '\\':
        result += escape;
        break;
      default:
        result += '\\';
        result += escape;
    }
  }
  return result;
}

}  // namespace

std::string readOptionLine(std::string_view line) {
  const std::string_view code = withoutComment(line);
  const std::size_t equals = code.find('=');
  if (equals == std::string_view::npos) return {};
  std::string_view value = trimmed(code.substr(equals + 1));
  if (value.size() > 1 && isQuote(value.front()) && value.front() == value.back()) {
    value.remove_prefix(1);
    value.remove_suffix(1);
  }
  return withEscapesResolved(value);
}

bool givesBackPassword(std::string_view content, std::string_view password) {
  if (password.find_first_of(std::string_view("\n\0", 2)) != std::string_view::npos) return false;
  const std::size_t start = content.find("password=");
  if (start == std::string_view::npos) return false;
  const std::size_t end = content.find('\n', start);
  if (end == std::string_view::npos) return false;  // the buffer's limit cut the line's end off
  return readOptionLine(content.substr(start, end - start)) == password;
}

}  // namespace orrery::mysql
