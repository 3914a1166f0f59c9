#pragma once

#include <string_view>

namespace orrery::mysql::discovery {

/// Hands the pieces of `text` between separators to `take`, empty ones too, without keeping them: what strangers write
/// may consist of separators alone.
template <class Take>
void forEachPiece(std::string_view text, char separator, const Take& take) {
  for (std::size_t from = 0;;) {
    const std::size_t end = text.find(separator, from);
    take(text.substr(from, end == std::string_view::npos ? end : end - from));
    if (end == std::string_view::npos) return;
    from = end + 1;
  }
}

}  // namespace orrery::mysql::discovery
