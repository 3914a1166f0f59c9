#pragma once

/// Marks a name that liborrery-platform.so offers. Everything else is hidden.
#define ORRERY_PLATFORM_EXPORT [[gnu::visibility("default")]]
/// Hides a member of an exported class that only the library itself calls.
#define ORRERY_PLATFORM_HIDDEN [[gnu::visibility("hidden")]]

/// Lets the compiler check a printf-like front. `text` and `first` count from 1 and include `this` of a member.
#define ORRERY_PRINTF(text, first) __attribute__((format(printf, text, first)))
