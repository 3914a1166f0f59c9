#pragma once

/// The embedded default: everything the library needs of a suite, kept in one folder of one machine.
/// docs/file-formats.md describes what lies in it.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "orrery/platform/export.h"
#include "orrery/platform/services.h"

namespace orrery::platform {

/// ORRERY_HOME when set and not empty, else /var/lib/orrery for root, else $XDG_STATE_HOME/orrery, else
/// ~/.local/state/orrery.
ORRERY_PLATFORM_EXPORT std::string defaultHome();

/// Makes a home or completes one that a crash left half made; an existing home is left as it is. `clientName` names
/// this machine's client; empty: the host's name. statusInvalid when the path cannot be a home (a file, a folder that
/// others may write), statusFailed with the step and the system's reason otherwise. On failure nothing is removed
/// that was there before.
ORRERY_PLATFORM_EXPORT Status createHome(const std::string& path, const std::string& clientName);

/// Opens an existing home. statusUnavailable when there is none (the text says to run `orrery-mysql init`), when its
/// store cannot be read, or when a newer version of this program made it.
ORRERY_PLATFORM_EXPORT Status openHome(const std::string& path, std::shared_ptr<const Services>& services);

/// What `openHome` looks at before it trusts a home, without opening the store.
ORRERY_PLATFORM_EXPORT bool isHome(const std::string& path);

/// Removes what processes that were killed left in a home's tmp folder: the defaults files of sessions
/// (orrery_bkp_mycnf_*.cnf) whose process is gone, told by the process id in the name and by the start time of the
/// process that has this id now. Files of living processes, and whatever else lies there, stay.
/// `removed` receives the paths; it may be null.
ORRERY_PLATFORM_EXPORT Status removeLeftovers(const std::string& temporaryDirectory, std::vector<std::string>* removed);

/// The catalogue's sentence for the code of a cause or event, the arguments in the places of %1 and so on; an unknown
/// code yields a sentence that says so with the code.
ORRERY_PLATFORM_EXPORT std::string messageText(std::uint32_t code, const std::vector<std::string>& arguments);

}  // namespace orrery::platform
