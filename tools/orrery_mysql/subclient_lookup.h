#pragma once

#include <string>
#include <vector>

#include "orrery/mysql/MySqlHelperClasses.h"
#include "orrery/platform/services.h"

#include "context.h"

namespace orrery::tool {

/// The subclients of an instance's default backup set, the default one among them. Throws Failure.
std::vector<platform::SubclientRecord> subclientsOf(Context& context, const platform::InstanceRecord& instance);

/// The default subclient of an instance, or the one of this name. Throws Failure when there is none.
platform::SubclientRecord findSubclient(Context& context, const platform::InstanceRecord& instance,
                                        const std::string& name);

/// The application that an agent would be started with for it.
ApplicationId applicationOf(const platform::InstanceRecord& instance, const platform::SubclientRecord& subclient);

/// The databases in the content of a subclient.
std::vector<platform::ContentEntry> contentOf(Context& context, const platform::SubclientRecord& subclient);

// Lists and content keep databases with a "/" before the name; people and servers know the bare name.
std::string bareName(const std::string& listed);
std::string listedName(const std::string& bare);

}  // namespace orrery::tool
