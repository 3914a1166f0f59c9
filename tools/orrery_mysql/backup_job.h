#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "orrery/platform/DZJobClient.h"
#include "orrery/platform/services.h"

#include "context.h"

namespace orrery::tool {

/// The job manager asked the job to stop, and it has.
class Stopped {};

/// Asks for the end on behalf of the user's signals as well: the library looks at nothing else while it scans.
class BackupControl final : public DZJobCtrlClient {
 public:
  using DZJobCtrlClient::DZJobCtrlClient;
  bool checkQuitFlag() const override;
};

/// A backup's job in the store, and the job of this process, for one scope. A scope that ends before `complete` leaves
/// a failed job. Operations throw Failure.
class BackupJob {
 public:
  BackupJob(Context& context, const platform::InstanceRecord& instance, const platform::SubclientRecord& subclient,
            int level);
  ~BackupJob();
  BackupJob(const BackupJob&) = delete;
  BackupJob& operator=(const BackupJob&) = delete;

  long long id() const noexcept { return id_; }
  DZBkpJobClient& client() noexcept { return client_; }
  DZJobCtrlClient& control() noexcept { return control_; }
  /// Begins a step: `text` names it in causes. Throws Interrupted or Stopped when the job is to end.
  void step(std::string text, int percent);
  const std::string& stepText() const noexcept { return step_; }

  /// Tells why the job fails. What the job manager does not take is told on standard error.
  void addCause(std::uint32_t code, const std::vector<std::string>& arguments);
  /// Ends the job. A success that cannot be recorded is a Failure; it is none to the reader of the store.
  void complete(DZJobStatus status);

 private:
  Context& context_;
  long long id_;
  const platform::ScopedJob scope_;
  DZBkpJobClient client_;
  BackupControl control_;
  std::string step_ = "begin";
  bool isComplete_ = false;
};

}  // namespace orrery::tool
