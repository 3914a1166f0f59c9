#include "orrery/platform/arguments.h"

#include <algorithm>
#include <optional>

namespace orrery::platform {
namespace {

/// Pieces of a line between single blanks, one after the other. Two blanks in a row have an empty piece between them,
/// which counts inside quotes.
class Pieces {
 public:
  explicit Pieces(std::string_view line) : rest_(line) {}

  std::optional<std::string_view> next() {
    if (!rest_) return std::nullopt;
    const std::size_t blank = rest_->find(' ');
    const std::string_view piece = rest_->substr(0, blank);
    if (blank == std::string_view::npos) {
      rest_.reset();
    } else {
      rest_->remove_prefix(blank + 1);
    }
    return piece;
  }

 private:
  std::optional<std::string_view> rest_;
};

std::string joinQuoted(std::string_view first, char quote, Pieces& pieces) {
  std::string argument(first);
  if (std::count(first.begin(), first.end(), quote) % 2 != 0) {
    while (const auto piece = pieces.next()) {
      argument.append(1, ' ').append(*piece);
      if (piece->find(quote) != std::string_view::npos) break;
    }
  }
  argument.erase(std::remove(argument.begin(), argument.end(), quote), argument.end());
  return argument;
}

}  // namespace

std::vector<std::string> splitArguments(std::string_view command) {
  std::vector<std::string> arguments;
  Pieces pieces(command);
  while (const auto piece = pieces.next()) {
    if (piece->empty()) continue;
    if (piece->find('"') != std::string_view::npos) {
      arguments.push_back(joinQuoted(*piece, '"', pieces));
    } else if (piece->find('\'') != std::string_view::npos) {
      arguments.push_back(joinQuoted(*piece, '\'', pieces));
    } else if (piece->find("--stop-datetime") != std::string_view::npos) {
      const auto time = pieces.next();
      arguments.push_back(time ? std::string(*piece) + " " + std::string(*time) : std::string(*piece));
    } else {
      arguments.emplace_back(*piece);
    }
  }
  return arguments;
}

}  // namespace orrery::platform
