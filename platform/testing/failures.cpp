#include "orrery/platform/testing/failures.h"

#include <algorithm>

namespace orrery::platform::testing {

void Failures::failNth(const std::string& call, std::size_t n, Status status) {
  const std::lock_guard lock(mutex_);
  Rule rule;
  rule.nth = n;
  rule.status = std::move(status);
  rules_[call].push_back(std::move(rule));
}

void Failures::failAlways(const std::string& call, Status status) {
  const std::lock_guard lock(mutex_);
  Rule rule;
  rule.status = std::move(status);
  rules_[call].push_back(std::move(rule));
}

void Failures::failWhen(const std::string& call, const std::string& argument, Status status) {
  const std::lock_guard lock(mutex_);
  Rule rule;
  rule.argument = argument;
  rule.anyArgument = false;
  rule.status = std::move(status);
  rules_[call].push_back(std::move(rule));
}

void Failures::clear() {
  const std::lock_guard lock(mutex_);
  rules_.clear();
}

std::size_t Failures::calls(const std::string& call) const {
  const std::lock_guard lock(mutex_);
  const auto count = counts_.find(call);
  return count == counts_.end() ? 0 : count->second;
}

/// Every rule counts every call it is about, so that two rules for different calls in a row both come true.
Status Failures::check(const std::string& call, const std::vector<std::string>& arguments) {
  const std::lock_guard lock(mutex_);
  ++counts_[call];
  Status result;
  const auto rules = rules_.find(call);
  if (rules == rules_.end()) return result;
  for (Rule& rule : rules->second) {
    if (!rule.anyArgument && std::find(arguments.begin(), arguments.end(), rule.argument) == arguments.end()) continue;
    ++rule.seen;
    if (result.ok() && (rule.nth == 0 || rule.nth == rule.seen)) result = rule.status;
  }
  return result;
}

}  // namespace orrery::platform::testing
