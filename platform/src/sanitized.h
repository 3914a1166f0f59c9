#pragma once

namespace orrery::platform {

/// Whether a sanitizer watches this build. Sanitizers keep their books in the memory that a borrowing child would
/// share, and lose count there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool isSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool isSanitized = true;
#else
inline constexpr bool isSanitized = false;
#endif
#else
inline constexpr bool isSanitized = false;
#endif

}  // namespace orrery::platform
