#pragma once

#include <signal.h>
#include <sys/resource.h>

#include <cstddef>
#include <functional>

namespace orrery::test {

/// Runs `body` in a child process and returns its result, 0 to 255; -1 when a signal ended it.
int inChild(const std::function<int()>& body);

/// Runs `body` in a child as an ordinary user: the calling one, or nobody when that is root.
int asOrdinaryUser(const std::function<int()>& body);

/// Whether `condition` holds there.
bool holdsForOrdinaryUser(const std::function<bool()>& condition);

/// Runs `body` in that many child processes at the same time, each with its number; all must return 0.
void inChildrenTogether(int children, const std::function<int(int)>& body);

/// Runs `body` in a child that is killed when it enters its nth system call. Returns whether it came that far.
bool killedAtSystemCall(int n, const std::function<void()>& body);

/// Whether nobody is left to be reaped.
bool hasNoChildren();

std::size_t openDescriptors();

/// No file can grow beyond a size for the time of a scope: writing fails as on a full disk.
class [[nodiscard]] FullDisk {
 public:
  explicit FullDisk(rlim_t size = 0);
  ~FullDisk();
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit before_{};
  sighandler_t handler_;
};

}  // namespace orrery::test
