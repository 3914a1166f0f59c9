#pragma once

#include <string.h>

#include <string>

namespace orrery::mysql {

/// A text that is wiped when it ends.
class [[nodiscard]] Secret {
 public:
  Secret() = default;
  ~Secret() { explicit_bzero(text_.data(), text_.size()); }
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  std::string& text() noexcept { return text_; }

 private:
  std::string text_;
};

}  // namespace orrery::mysql
