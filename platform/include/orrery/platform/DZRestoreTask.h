#pragma once

/// What a restore job is to do: the options of its task at the job manager.

#include <cstdint>
#include <string>

#include "orrery/platform/export.h"

class ORRERY_PLATFORM_EXPORT DZRestoreTask {
 public:
  // Numbers of the options. The first three are the suite's; the others are this backend's, which has no other place
  // for what is told of a restore job besides.
  static constexpr std::uint32_t optionRestoreType = 0x127C15C8;    ///< 0 into the server, 1 into a folder
  static constexpr std::uint32_t optionStagingFolder = 0x2C3E994D;  ///< in place of the server's data directory
  static constexpr std::uint32_t optionDestinationFolder = 0x086F6B98;
  static constexpr std::uint32_t optionSourceClient = 0x10000001;
  static constexpr std::uint32_t optionSourceInstance = 0x10000002;
  static constexpr std::uint32_t optionDestinationClient = 0x10000003;
  static constexpr std::uint32_t optionDestinationInstance = 0x10000004;
  static constexpr std::uint32_t optionRestoreToTime = 0x10000005;  ///< seconds since the epoch

  explicit DZRestoreTask(long long jobId) noexcept : jobId_(jobId) {}

  /// 0 and the output filled; a code of services.h otherwise (statusNotFound for an option that the task does not have,
  /// statusInvalid for one that is no number), with the output as it was.
  int getSourceClientId(unsigned long& id) const { return number(optionSourceClient, id); }
  int getSourceInstanceId(unsigned long& id) const { return number(optionSourceInstance, id); }
  int getDestinationClientId(unsigned long& id) const { return number(optionDestinationClient, id); }
  int getDestinationInstanceId(unsigned long& id) const { return number(optionDestinationInstance, id); }
  int getRestoreToTime(std::int64_t& seconds) const;
  int getNumber(std::uint32_t option, long& value) const;
  int getText(std::uint32_t option, std::string& value) const;

 private:
  int number(std::uint32_t option, unsigned long& value) const;

  long long jobId_;
};
