#pragma once

#include <atomic>
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

using ImageState = SbtImageState;

/// One line of the library in the log of its home.
void logLine(platform::LogSink& log, platform::LogKind kind, long long jobId, const std::string& text) noexcept;

/// The library's line to the agent of a job, shared by all sessions of the process that work for the job at the same
/// time: the agent expects one run with one sum. The sums live as long as the link, and the agent is told of a new run
/// once in that time and before any sum, because it counts from 0 then. What it misses while there is no connection,
/// the next sum tells. Nothing here fails: a job goes on without its agent, and the log says so once per silence.
/// Any thread may call.
class AgentLink {
 public:
  /// The link of this job; null for job 0.
  static std::shared_ptr<AgentLink> of(const std::string& temporaryDirectory, long long jobId,
                                       std::shared_ptr<platform::LogSink> log);
  AgentLink(std::string temporaryDirectory, long long jobId, std::shared_ptr<platform::LogSink> log)
      : temporaryDirectory_(std::move(temporaryDirectory)), jobId_(jobId), log_(std::move(log)) {}

  /// Tells that an image is begun. The first one of a link waits a moment for an agent that is not there yet.
  void begin() noexcept;
  /// Adds to the sums and tells them; unless they are the last of an image, only when no other session is telling
  /// something.
  void add(const std::string& image, Phase phase, std::int64_t bytes, std::int64_t files, bool last) noexcept;
  void end(ImageState state) noexcept;

 private:
  using SteadyClock = std::chrono::steady_clock;
  /// A healthy agent answers at once; a backup is not to stand still for another one.
  static constexpr std::int64_t answerMilliseconds = 2000;
  static constexpr std::chrono::seconds shortestPause{2};
  static constexpr std::chrono::seconds longestPause{60};

  template <class Body>
  void attempt(Body&& body) noexcept;
  /// Whether there is a connection to an agent that knows of the run; tries to make one when the pause since the last
  /// failure is over.
  bool isReady();
  platform::Status connect();
  bool tellStatus(std::uint32_t code, ImageState state);
  /// Whether the agent answered, be it with a refusal.
  bool tell(std::uint32_t code, const std::string& payload);
  /// After a failure. `logged` is whether this kind of failure was logged since the agent was last heard.
  void pause(platform::LogKind kind, bool& logged, const std::string& text);

  const std::string temporaryDirectory_;
  const long long jobId_;
  const std::shared_ptr<platform::LogSink> log_;
  std::atomic<std::int64_t> bytes_{0};
  std::atomic<std::int64_t> files_{0};

  std::mutex mutex_;  // of everything below; held while the agent is waited for
  platform::SessionClient client_{answerMilliseconds};
  SteadyClock::time_point nextAttempt_{};
  SteadyClock::duration pause_ = shortestPause;
  bool waitedForAgent_ = false;
  bool runTold_ = false;
  bool absenceLogged_ = false;
  bool silenceLogged_ = false;
  bool refusalLogged_ = false;
};

/// Gathers the blocks of one image, so that the agent hears of them every half second, or every 64 MiB when those come
/// faster.
class ProgressMeter {
 public:
  /// Begins an image. `link` may be null.
  ProgressMeter(std::shared_ptr<AgentLink> link, std::string image, Phase phase);
  void add(std::size_t bytes) noexcept {
    pending_ += static_cast<std::int64_t>(bytes);
    if (link_ && (pending_ >= tellBytes || std::chrono::steady_clock::now() - told_ >= tellInterval)) tell(0, false);
  }
  /// Ends the image. Without this call it ends as given up.
  void finish() noexcept;
  ~ProgressMeter();
  ProgressMeter(const ProgressMeter&) = delete;
  ProgressMeter& operator=(const ProgressMeter&) = delete;

 private:
  static constexpr std::int64_t tellBytes = 64LL << 20;
  static constexpr std::chrono::milliseconds tellInterval{500};

  void tell(std::int64_t files, bool last) noexcept;

  const std::shared_ptr<AgentLink> link_;
  const std::string image_;
  const Phase phase_;
  std::int64_t pending_ = 0;
  std::chrono::steady_clock::time_point told_ = std::chrono::steady_clock::now();
  bool finished_ = false;
};

}  // namespace orrery::libobk
