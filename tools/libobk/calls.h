#pragma once

#include "sbt_interface.h"

namespace orrery::libobk {

using namespace media;

/// The calls of a session.
const SbtFunctions& callTable() noexcept;

}  // namespace orrery::libobk
