#pragma once

/// Marks a name that liborrery-mysql.so offers. Everything else is hidden.
#define ORRERY_MYSQL_EXPORT [[gnu::visibility("default")]]
/// Hides a member of an exported class that only the library itself calls.
#define ORRERY_MYSQL_HIDDEN [[gnu::visibility("hidden")]]
