#pragma once

/// How a child that never became its program tells the parent why.
namespace orrery::mysql::exitCode {

inline constexpr int redirectionFailed = 77;
inline constexpr int execFailed = 79;
inline constexpr int accountFailed = 81;
inline constexpr int environmentFailed = 83;  // no child ends with it; decoded for callers that know it

}  // namespace orrery::mysql::exitCode
