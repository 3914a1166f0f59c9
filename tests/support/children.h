#pragma once

#include <functional>

namespace orrery::test {

/// Runs `body` in a child process and returns its result, 0 to 255; -1 when a signal ended it.
int inChild(const std::function<int()>& body);

/// Runs `body` in a child as an ordinary user: the calling one, or nobody when that is root.
int asOrdinaryUser(const std::function<int()>& body);

/// Runs `body` in that many child processes at the same time, each with its number; all must return 0.
void inChildrenTogether(int children, const std::function<int(int)>& body);

/// Runs `body` in a child that is killed when it enters its nth system call. Returns whether it came that far.
bool killedAtSystemCall(int n, const std::function<void()>& body);

}  // namespace orrery::test
