#pragma once

#include "../database.h"

namespace orrery::platform::local {

/// Marks a file as a store of this agent ("orry").
inline constexpr std::int64_t storeApplicationId = 0x6f727279;

/// Version of the schema that this program writes and reads.
std::int64_t newestSchema() noexcept;

/// Brings a store to the newest schema. Costs two look-ups when it is there already. Throws Failure
/// (statusUnavailable) when the file is not a store of this agent, or a newer program made it.
void bringUpToDate(Database& database);

/// Makes an empty file a store: its mark, its journal mode and its tables.
void makeStore(Database& database);

}  // namespace orrery::platform::local
