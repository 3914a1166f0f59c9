#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "orrery/platform/SbtMessages.h"
#include "orrery/platform/SessionClient.h"
#include "orrery/platform/services.h"

namespace orrery::libobk {

/// What is being done with an image, as progress messages tell it.
enum class Phase : std::int32_t { writing = 1, reading = 2 };

/// How an image goes, as status messages tell it.
enum class ImageState : std::int32_t { begun = 0, done = 1, givenUp = 2 };

/// One line of the library in the log of its home.
void logLine(platform::LogSink& log, platform::LogKind kind, long long jobId, const std::string& text) noexcept;

/// The library's line to the agent of a job, shared by all sessions of the process that work for the job: the agent
/// expects one run with one sum. Nothing here fails: a job goes on without its agent, and the log says so once.
/// Any thread may call.
class AgentLink {
 public:
  /// The link of this job; null for job 0.
  static std::shared_ptr<AgentLink> of(const std::string& temporaryDirectory, long long jobId,
                                       std::shared_ptr<platform::LogSink> log);
  AgentLink(std::string temporaryDirectory, long long jobId, std::shared_ptr<platform::LogSink> log)
      : temporaryDirectory_(std::move(temporaryDirectory)), jobId_(jobId), log_(std::move(log)) {}

  /// Connects when there is no connection, tells that a run begins when that was not told yet, and that an image is
  /// begun.
  void begin() noexcept;
  /// Adds to the sums and tells them.
  void add(const std::string& image, Phase phase, std::int64_t bytes, std::int64_t files) noexcept;
  void end(ImageState state) noexcept;

 private:
  void connect();
  void tellStatus(std::uint32_t code, ImageState state);
  void tell(std::uint32_t code, const std::string& payload);

  const std::string temporaryDirectory_;
  const long long jobId_;
  const std::shared_ptr<platform::LogSink> log_;

  std::mutex mutex_;  // of everything below
  platform::SessionClient client_;
  bool runTold_ = false;
  bool absenceLogged_ = false;
  bool refusalLogged_ = false;
  std::int64_t bytes_ = 0;
  std::int64_t files_ = 0;
};

/// Gathers the blocks of one image, so that the agent hears of them every half second, or every 64 MiB when those come
/// faster.
class ProgressMeter {
 public:
  /// Begins an image. `link` may be null.
  ProgressMeter(std::shared_ptr<AgentLink> link, std::string image, Phase phase);
  void add(std::size_t bytes) noexcept {
    pending_ += static_cast<std::int64_t>(bytes);
    if (link_ && (pending_ >= tellBytes || std::chrono::steady_clock::now() - told_ >= tellInterval)) tell(0);
  }
  /// Ends the image. Without this call it ends as given up.
  void finish() noexcept;
  ~ProgressMeter();
  ProgressMeter(const ProgressMeter&) = delete;
  ProgressMeter& operator=(const ProgressMeter&) = delete;

 private:
  static constexpr std::int64_t tellBytes = 64LL << 20;
  static constexpr std::chrono::milliseconds tellInterval{500};

  void tell(std::int64_t files) noexcept;

  const std::shared_ptr<AgentLink> link_;
  const std::string image_;
  const Phase phase_;
  std::int64_t pending_ = 0;
  std::chrono::steady_clock::time_point told_ = std::chrono::steady_clock::now();
  bool finished_ = false;
};

}  // namespace orrery::libobk
