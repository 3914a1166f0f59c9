#pragma once

/// Where passwords come from: a file, standard input or a prompt, never an argument.

#include <string>
#include <utility>

namespace orrery::tool {

/// A text that is wiped from memory when its owner lets it go.
class Secret {
 public:
  Secret() = default;
  explicit Secret(std::string text) : text_(std::move(text)) {}
  ~Secret();
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  Secret(Secret&& other) noexcept;
  Secret& operator=(Secret&& other) noexcept;

  const std::string& text() const noexcept { return text_; }

 private:
  std::string text_;
};

/// Longest password, in bytes: what stored passwords are opened into.
inline constexpr std::size_t kLongestPassword = 1024;

/// The password that a file holds; one newline at its end is not part of it. Throws Failure for a file that cannot be
/// read, is empty or too long, or holds a null or a line break.
Secret readPasswordFile(const std::string& path);

/// The same from standard input.
Secret readPasswordFromStandardInput();

/// Asks on the terminal without showing what is typed. Throws WrongUsage where standard input is no terminal, and
/// Interrupted after Ctrl-C; the terminal shows what is typed again in any case.
Secret askForPassword(const std::string& prompt);

/// Asks a question on the terminal; true for an answer that begins with "y". Throws like askForPassword; `instead` says
/// what to give where there is no terminal.
bool askYesOrNo(const std::string& question, const std::string& instead);

}  // namespace orrery::tool
