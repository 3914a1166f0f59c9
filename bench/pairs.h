#pragma once

/// Two ways of doing one thing, measured in turn.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace orrery::bench {

inline void require(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error(what);
}

inline double milliseconds(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

inline double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
  return values[values.size() / 2];
}

/// Prints both medians and the median of the pairs' ratios. The first three pairs warm up; the way that goes first
/// changes from pair to pair.
inline void compare(const char* name, int pairs, const std::function<void()>& ours, const std::function<void()>& raw) {
  std::vector<double> mine;
  std::vector<double> theirs;
  std::vector<double> ratios;
  for (int i = -3; i < pairs; ++i) {
    double b = i % 2 == 0 ? milliseconds(raw) : 0;
    const double a = milliseconds(ours);
    if (i % 2 != 0) b = milliseconds(raw);
    if (i < 0) continue;
    mine.push_back(a);
    theirs.push_back(b);
    ratios.push_back(a / b);
  }
  std::printf("%-37s %8.2f ms %8.2f ms   %.3f\n", name, median(mine), median(theirs), median(ratios));
  std::fflush(stdout);
}

}  // namespace orrery::bench
