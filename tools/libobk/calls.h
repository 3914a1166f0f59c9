#pragma once

#include "sbt_interface.h"

namespace orrery::libobk {

/// The calls of a session.
const SbtFunctions& callTable() noexcept;

}  // namespace orrery::libobk
