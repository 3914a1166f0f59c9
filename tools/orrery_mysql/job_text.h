#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "orrery/platform/services.h"

#include "context.h"

namespace orrery::tool {

/// Task option that tells the process of a job from every other that gets its id: its mark's `start`.
inline constexpr std::uint32_t processStartOption = 0x4F520001;

/// "running", "succeeded", "failed", "completed with errors"; "died" for one whose process is gone without a word.
std::string stateOf(Context& context, const platform::JobRecord& job);

/// A job with its causes and events in words.
Json jobDocument(Context& context, const platform::JobRecord& job);
Table jobTable(Context& context, const platform::JobRecord& job);

/// "1.5 MiB".
std::string amountText(double bytes);

/// What a running job has done so far, for one line: bytes, files, per cent where the job tells them, its phase once it
/// has ended, and `bytesPerSecond` where it is known.
std::string progressText(const platform::JobRecord& job, std::optional<double> bytesPerSecond);

platform::JobRecord findJob(Context& context, long long id);

}  // namespace orrery::tool
